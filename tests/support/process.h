// Runs the project's executables as processes for the end-to-end tests.
#pragma once

#include <string>
#include <vector>

namespace corvi::test {

struct ProcessResult {
  int status;  // the exit status, -1 when the program did not exit normally
  std::string out, err;
};

// Runs `program` with argv[0] `name` in the directory `cwd`; standard output and error are
// collected through files in a fresh temporary directory, so `cwd` stays as it was.
ProcessResult RunProgram(const char* program, const char* name, const std::string& cwd,
                         const std::vector<std::string>& args);

// A whole file as text; empty when it cannot be read.
std::string Slurp(const std::string& path);

}  // namespace corvi::test
