// corvi-check: checks JPEG files and prints one report for each, as text, JSON lines or CSV.
#include "tool/check_command.h"

int main(int argc, char** argv) {
  return corvi::RunCheck(argc, argv);
}
