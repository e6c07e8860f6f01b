#pragma once

// How far a long pass has come, on a terminal only: one line of standard error that is
// rewritten at most once a second and taken away at the end. Never a status file, and
// nothing at all with --quiet or where standard error is no terminal.
//
//   Progress progress(rows, "Writing rows", quiet);
//   while (...) progress.update(row);
//
// One pass shows at a time: one that begins within another stays silent. Where output
// goes to the same terminal, be quiet.

#include <cstdint>
#include <string_view>

class Progress {
 public:
  // `total` in any unit; below 1 when it isn't known: then the line counts.
  Progress(std::int64_t total, std::string_view text, bool quiet);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Cheap enough for every row.
  void update(std::int64_t done) {
    if (shows_ && ++calls_ % kCallsPerLook == 0) look(done);
  }

 private:
  static constexpr std::uint32_t kCallsPerLook = 64;
  static void look(std::int64_t done);

  bool shows_;
  std::uint32_t calls_ = 0;
};

// Takes the line away, so that a message doesn't stand behind it; the next update that is
// due shows it again.
void clearProgress();
// Whether what goes to standard output comes to the eye that looks at the progress.
bool outputIsTerminal();
