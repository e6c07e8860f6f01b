#pragma once

// Shared by the sources of the text reader alone: how physical lines become a
// logical one.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// One logical line under construction. Its buffer is kept from line to line.
class LogicalLine {
 public:
  void clear();
  // Takes the next physical line with its line end. True when the logical line
  // goes on behind it.
  bool add(std::string_view physical);

  std::string_view text() const { return text_; }
  // A part of the physical line that was added last.
  std::string_view comment() const { return comment_; }
  // Whether there is more than white space and comment.
  bool hasContent() const { return hasContent_; }

 private:
  enum class State : std::uint8_t { text, escape, trailing };
  enum class Action : std::uint8_t;
  struct Step;
  struct Steps;

  std::size_t copyPlainRun(std::string_view rest);
  void store(Action action, char c);

  std::string text_;
  std::string_view comment_;
  std::size_t trailingStart_ = 0;  // where a join would put its blank
  State state_ = State::text;
  bool hasContent_ = false;
};
