#include "support/program.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

#include "support/temp_dir.h"

namespace {

[[noreturn]] void becomeProgram(const std::string& program, const ProgramCall& call,
                                const std::string& outPath, const std::string& errPath) {
  const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (out < 0 || err < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0) _exit(126);
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
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("cannot start " + program);
  if (child == 0) becomeProgram(program, call, outPath, output.path("err"));
  int status = 0;
  waitpid(child, &status, 0);
  ProgramResult result;
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.out = output.read("out");
  result.err = output.read("err");
  return result;
}
