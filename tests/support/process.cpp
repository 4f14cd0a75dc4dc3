// Runs the project's executables as processes for the end-to-end tests.
#include "tests/support/process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/jpeg_builder.h"

namespace corvi::test {

std::string Slurp(const std::string& path) {
  const Bytes bytes = ReadFile(path);
  return {bytes.begin(), bytes.end()};
}

ProcessResult RunProgram(const char* program, const char* name, const std::string& cwd,
                         const std::vector<std::string>& args) {
  const std::string dir = MakeTempDir();
  const std::string out_path = dir + "/stdout.txt", err_path = dir + "/stderr.txt";
  std::vector<char*> argv = {const_cast<char*>(name)};
  for (const std::string& a : args) {
    argv.push_back(const_cast<char*>(a.c_str()));
  }
  argv.push_back(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    int out = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    int err = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (out < 0 || err < 0 || chdir(cwd.c_str()) != 0) {
      _exit(127);
    }
    dup2(out, 1);
    dup2(err, 2);
    alarm(30);  // a run that hangs is killed, and so fails
    execv(program, argv.data());
    _exit(126);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  ProcessResult result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, Slurp(out_path),
                       Slurp(err_path)};
  std::filesystem::remove_all(dir);
  return result;
}

}  // namespace corvi::test
