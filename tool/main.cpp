// corvi: maps each JPEG file named, dumps its segments and reports the bytes it identified.
#include "platform/file_search.h"
#include "tool/inspect_command.h"

int main(int argc, char** argv) {
  corvi::WideArguments arguments(argc, argv);
  return corvi::RunTool(argc, arguments.data());
}
