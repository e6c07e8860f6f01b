#pragma once

// Where a verb's data go: text collected and handed on in large pieces.

#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

class TextSink {
 public:
  // Takes a piece; false when it is lost.
  using Write = std::function<bool(std::string_view piece)>;
  explicit TextSink(Write write) : write_(std::move(write)) {}

  // Append here, then call `offer`.
  std::string& text() { return pending_; }
  // Hands on what was collected once there is enough of it.
  void offer() {
    if (pending_.size() >= kPiece) drain();
  }
  // Hands on the rest; false when anything was lost.
  bool finish() {
    drain();
    return good_;
  }
  bool good() const { return good_; }

 private:
  static constexpr std::size_t kPiece = std::size_t{1} << 18;
  void drain() {
    if (good_ && !pending_.empty()) good_ = write_(pending_);
    pending_.clear();
  }

  Write write_;
  std::string pending_;
  bool good_ = true;
};

// To an open stream, which must outlive the sink.
inline TextSink streamSink(FILE* stream) {
  return TextSink([stream](std::string_view piece) {
    return std::fwrite(piece.data(), 1, piece.size(), stream) == piece.size();
  });
}
