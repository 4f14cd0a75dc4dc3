// corvi-check: checks JPEG files and prints one report for each, as text, JSON lines or CSV.
#pragma once

namespace corvi {

// The main routine of corvi-check, `argv` as the system gives it (names are bytes). Returns 2
// when a name could not be opened or after a usage error, else 1 when a file is damaged or
// broken (with --strict also benign or unsupported), else 0.
int RunCheck(int argc, char** argv);

}  // namespace corvi
