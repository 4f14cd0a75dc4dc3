// corvi-map: writes one self-contained HTML page that maps where every byte of a JPEG file goes.
#include <cstdio>
#include <cwchar>
#include <string>

#include "map/map_page.h"
#include "platform/file_search.h"
#include "platform/file_view.h"
#include "platform/format.h"

namespace {

constexpr wchar_t kUsage[] = L"usage: corvi-map [-d] [-o OUT.html] FILE.jpg\n";

int Usage(const wchar_t* problem) {
  corvi::OutStream& err = corvi::StdErr();
  if (problem != nullptr) {
    corvi::Print(err, L"corvi-map: %s\n", problem);
  }
  corvi::Print(err, kUsage);
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  corvi::WideArguments arguments(argc, argv);
  const wchar_t* const* args = arguments.data();
  bool decode = false;
  std::wstring output;
  const wchar_t* input = nullptr;
  for (int i = 1; i < argc; ++i) {
    const std::wstring arg = args[i];
    if (arg == L"-d") {
      decode = true;
    } else if (arg == L"-o") {
      if (i + 1 == argc) {
        return Usage(L"-o needs a file name");
      }
      output = args[++i];
    } else if (arg == L"-h" || arg == L"--help") {
      corvi::Print(corvi::StdOut(), kUsage);
      return 0;
    } else if (!arg.empty() && arg[0] == L'-' && arg != L"-") {
      return Usage(L"unknown option");
    } else if (input == nullptr) {
      input = args[i];
    } else {
      return Usage(L"one file at a time");
    }
  }
  if (input == nullptr) {
    return Usage(L"no file named");
  }
  if (output.empty()) {
    output = std::wstring(input) + L".html";
  }
  corvi::OutStream& out = corvi::StdOut();
  // The file is mapped once: corvi's pipeline, the report and the page read the same bytes.
  const std::string name = corvi::EncodeUtf8(input);
  corvi::FileView view;
  std::string error;
  if (!view.Open(name, error)) {
    corvi::Print(corvi::StdErr(), L"Failed on %s: %s\n", input,
                 corvi::DecodeUtf8(error.data(), error.size()).c_str());
    return 1;
  }
  if (view.size() > 0x7FFFFFFF) {
    // Offsets in corvi's reader are 32-bit, and no browser holds such a page.
    corvi::Print(corvi::StdErr(), L"Failed on %s: File too large (%s bytes)\n", input,
                 std::to_wstring(view.size()).c_str());
    return 1;
  }
  const corvi::FileMap map =
      corvi::MapBytes(name, view.data(), static_cast<size_t>(view.size()), decode);
  const std::string page = corvi::MapPage(map, view.data());
  if (output == L"-") {
    std::fwrite(page.data(), 1, page.size(), stdout);
    return std::fflush(stdout) == 0 ? 0 : 1;
  }
  std::FILE* file = std::fopen(corvi::EncodeUtf8(output.c_str()).c_str(), "wb");
  if (file == nullptr || std::fwrite(page.data(), 1, page.size(), file) != page.size() ||
      std::fclose(file) != 0) {
    corvi::Print(corvi::StdErr(), L"Failed on %s: cannot write the page\n", output.c_str());
    return 1;
  }
  corvi::Print(out, L"Wrote %s (%u bytes)\n", output.c_str(), static_cast<uint32_t>(page.size()));
  out.Flush();
  return 0;
}
