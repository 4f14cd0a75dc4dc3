// corvi-merge: rewrites a JPEG template with new pixels and Exif overrides.
#include "platform/file_search.h"
#include "tool/merge_command.h"

int main(int argc, char** argv) {
  corvi::WideArguments arguments(argc, argv);
  return corvi::RunMerge(argc, arguments.data());
}
