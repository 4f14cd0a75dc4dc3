// corvi-merge: rewrites a JPEG template with new pixels and Exif overrides.
#include <string>
#include <vector>

#include "platform/file_search.h"
#include "tool/merge_command.h"

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
  return corvi::RunMerge(argc, wide.data());
}
