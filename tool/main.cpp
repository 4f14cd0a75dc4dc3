// corvi: maps each JPEG file named, dumps its segments and reports the bytes it identified.
#include <string>
#include <vector>

#include "platform/file_search.h"
#include "tool/pipeline.h"

int main(int argc, char** argv) {
  std::vector<std::wstring> arguments;
  arguments.reserve(static_cast<size_t>(argc));
  for (int i = 0; i < argc; ++i) {
    arguments.push_back(corvi::DecodeArgument(argv[i]));
  }
  std::vector<wchar_t*> wide;
  for (std::wstring& argument : arguments) {
    wide.push_back(argument.data());
  }
  wide.push_back(nullptr);
  return corvi::RunTool(argc, wide.data());
}
