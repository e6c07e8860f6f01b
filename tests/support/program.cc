#include "support/program.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "support/temp_dir.h"

namespace {

// Writing past the limit then fails like writing to a full disk.
void limitFileSize(std::uint64_t bytes) {
  const rlimit limit = {bytes, bytes};
  if (std::signal(SIGXFSZ, SIG_IGN) == SIG_ERR || setrlimit(RLIMIT_FSIZE, &limit) != 0) _exit(126);
}

// Standard error comes by a pipe, which no file size limit applies to.
std::string readAll(int pipe) {
  std::string text;
  std::array<char, 4096> buffer;
  for (ssize_t got; (got = read(pipe, buffer.data(), buffer.size())) > 0;) {
    text.append(buffer.data(), static_cast<std::size_t>(got));
  }
  close(pipe);
  return text;
}

[[noreturn]] void becomeProgram(const std::string& program, const ProgramCall& call,
                                const std::string& outPath, int err) {
  const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (out < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0) _exit(126);
  if (call.fileSizeLimit) limitFileSize(*call.fileSizeLimit);
  for (const auto& [name, value] : call.environment) {
    value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
  }
  std::vector<char*> words = {const_cast<char*>(program.c_str())};
  for (const std::string& word : call.arguments) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  if (chdir(call.directory.c_str()) == 0) execv(program.c_str(), words.data());
  _exit(127);
}

}  // namespace

ProgramResult runProgram(const std::string& program, const ProgramCall& call) {
  const TempDir output;
  const std::string outPath = call.outputPath.empty() ? output.path("out") : call.outputPath;
  int err[2];
  if (pipe2(err, O_CLOEXEC) != 0) throw std::runtime_error("cannot make a pipe");
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("cannot start " + program);
  if (child == 0) becomeProgram(program, call, outPath, err[1]);
  close(err[1]);
  if (call.killAfter) {
    std::this_thread::sleep_for(*call.killAfter);
    kill(child, SIGKILL);
  }
  ProgramResult result;
  result.err = readAll(err[0]);
  int status = 0;
  waitpid(child, &status, 0);
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.out = output.read("out");
  return result;
}
