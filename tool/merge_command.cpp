// corvi-merge: rewrites a JPEG template with new pixels and Exif overrides.
#include "tool/merge_command.h"

#include <cwchar>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "base/property.h"
#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "jpeg/jpeg_reader.h"
#include "merge/merge.h"
#include "merge/netpbm.h"
#include "merge/overrides.h"
#include "platform/error_text.h"
#include "platform/file_write.h"
#include "platform/format.h"

namespace corvi {
namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kContinue = -1;  // the arguments were read and the run goes on

const wchar_t* const kUsage =
    L"usage: corvi-merge [-b COLOUR] [-p PIXELS] [-s NAME=VALUE]... TEMPLATE OUTPUT\n";

const wchar_t* const kHelp =
    L"Rewrites the JPEG file TEMPLATE into OUTPUT: same frame size, quantisation tables,\n"
    L"sampling and segments, new entropy-coded data and Huffman tables, a new Exif thumbnail.\n"
    L"  -b COLOUR      colour behind transparent pixels, RRGGBB or RRRRGGGGBBBB in hex\n"
    L"                 (default ffffff)\n"
    L"  -p PIXELS      the picture to write: a PGM, PPM or PAM file, or a JPEG file\n"
    L"                 (default: TEMPLATE's own pixels)\n"
    L"  -s NAME=VALUE  an Exif value to set; NAME is a property name (\"Make\", \"Date Time\")\n"
    L"                 or a tag number with its tag space (0x10f, 0x30001); may be repeated\n"
    L"  -h, --help     this text\n"
    L"  --version      the version\n"
    L"OUTPUT is replaced only when the rewrite succeeds. Exit status: 0 written, 1 failed,\n"
    L"2 usage error.\n";

// The thumbnail's name inside the private directory is fixed by the rewriter; this is the
// output's.
const wchar_t* const kTempOutputName = L"output.jpg";
const wchar_t* const kTempThumbnailName = L"tempthumb.jpg";

struct Options {
  Background background;
  const wchar_t* pixels = nullptr;
  std::vector<OverrideRequest> overrides;
  const wchar_t* template_name = nullptr;
  const wchar_t* output = nullptr;
};

int UsageError(const wchar_t* problem, const wchar_t* detail) {
  StdOut().Flush();
  OutStream& err = StdErr();
  Print(err, L"corvi-merge: ");
  Print(err, problem, detail);
  Print(err, L"\n%s", kUsage);
  return kExitUsage;
}

int HexDigit(wchar_t c) {
  if (c >= L'0' && c <= L'9') {
    return c - L'0';
  }
  if (c >= L'a' && c <= L'f') {
    return c - L'a' + 10;
  }
  if (c >= L'A' && c <= L'F') {
    return c - L'A' + 10;
  }
  return -1;
}

// RRGGBB (each channel × 257) or RRRRGGGGBBBB.
bool ParseColour(const wchar_t* text, Background& background) {
  const size_t n = std::wcslen(text);
  if (n != 6 && n != 12) {
    return false;
  }
  const size_t digits = n / 3;
  uint32_t channel[3] = {};
  for (size_t i = 0; i < n; ++i) {
    int d = HexDigit(text[i]);
    if (d < 0) {
      return false;
    }
    channel[i / digits] = channel[i / digits] * 16 + static_cast<uint32_t>(d);
  }
  const uint32_t scale = digits == 2 ? 257 : 1;
  background.red = static_cast<uint16_t>(channel[0] * scale);
  background.green = static_cast<uint16_t>(channel[1] * scale);
  background.blue = static_cast<uint16_t>(channel[2] * scale);
  return true;
}

// Reads the options and the two operands; returns kContinue, or the exit status of a run that
// ends here (help, version, usage error).
int ParseArguments(int argc, wchar_t** argv, Options& options) {
  std::vector<const wchar_t*> operands;
  bool options_ended = false;
  for (int i = 1; i < argc; ++i) {
    const wchar_t* argument = argv[i];
    // The first operand ends the options, as "--" does.
    if (options_ended || argument[0] != L'-' || argument[1] == 0) {
      operands.push_back(argument);
      options_ended = true;
      continue;
    }
    if (std::wcscmp(argument, L"--") == 0) {
      options_ended = true;
      continue;
    }
    if (std::wcscmp(argument, L"-h") == 0 || std::wcscmp(argument, L"--help") == 0) {
      OutStream& out = StdOut();
      Print(out, L"%s%s", kUsage, kHelp);
      out.Flush();
      return 0;
    }
    if (std::wcscmp(argument, L"--version") == 0) {
      OutStream& out = StdOut();
      Print(out, L"corvi-merge 0.1\n");
      out.Flush();
      return 0;
    }
    const wchar_t letter = argument[1];
    if (argument[1] == L'-' || (letter != L'b' && letter != L'p' && letter != L's')) {
      return UsageError(L"unknown option %s", argument);
    }
    const wchar_t* value = argument + 2;  // attached: -bffffff
    if (*value == 0) {
      if (i + 1 >= argc) {
        return UsageError(L"option %s needs an argument", argument);
      }
      value = argv[++i];
    }
    if (letter == L'b') {
      if (!ParseColour(value, options.background)) {
        return UsageError(L"colour \"%s\" is not 6 or 12 hex digits", value);
      }
    } else if (letter == L'p') {
      options.pixels = value;
    } else {
      if (std::wcschr(value, L'=') == nullptr) {
        return UsageError(L"-s takes NAME=VALUE, not \"%s\"", value);
      }
      OverrideRequest request;
      if (!ParseOverride(value, request)) {
        return UsageError(L"\"%s\": NAME is neither a property name nor a tag number", value);
      }
      options.overrides.push_back(std::move(request));
    }
  }
  if (operands.size() != 2) {
    return UsageError(L"%s", L"expected two operands, TEMPLATE and OUTPUT");
  }
  options.template_name = operands[0];
  options.output = operands[1];
  return kContinue;
}

void DecodeLayer(const MarkerList& markers, RawLayer& layer) {
  auto state = std::make_unique<DecodeState>();
  DecodeImage(markers, *state, layer, false);
}

// The picture to write: a netpbm image, or any other file decoded as a JPEG.
void ReadPixels(const wchar_t* name, RawLayer& layer) {
  JPEGReader reader(name);
  if (IsNetpbm(reader.view, reader.length)) {
    ReadNetpbm(reader.view, reader.length, layer);
    return;
  }
  reader.Scan();
  DecodeLayer(*reader.markers, layer);
}

// The run's private directory beside OUTPUT; its destruction removes what the run left in it
// (the temporary output after a failure, a thumbnail file after a failed regeneration) and the
// directory itself.
class TempDirectory {
 public:
  explicit TempDirectory(const wchar_t* near) : path(PlatformMakeTempDirectory(near)) {
    if (path.empty()) {
      ThrowPlatformError(near, L"CreateDirectory", LastPlatformError());
    }
  }
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;
  ~TempDirectory() {
    PlatformDeleteFile(File(kTempOutputName).c_str());
    PlatformDeleteFile(File(kTempThumbnailName).c_str());
    PlatformRemoveDirectory(path.c_str());
  }

  std::wstring File(const wchar_t* name) const { return path + L"/" + name; }

  const std::wstring path;
};

// Merges into a new file of the private directory and renames it over OUTPUT once complete;
// returns its size.
uint32_t WriteOutput(const Options& options, const RawLayer& layer, const MarkerList& markers,
                     const PropertyList& overrides) {
  TempDirectory directory(options.output);
  const std::wstring temp_output = directory.File(kTempOutputName);
  uint32_t size = 0;
  {
    OutputFile file(temp_output.c_str());
    Merge(file, layer, markers, overrides, options.background, directory.path.c_str());
    size = file.size;
  }  // closed before the rename
  if (!PlatformRenameFile(temp_output.c_str(), options.output)) {
    ThrowPlatformError(options.output, L"MoveFile", LastPlatformError());
  }
  return size;
}

void Run(const Options& options) {
  JPEGReader template_file(options.template_name);
  template_file.Scan();

  PropertyList overrides;
  const std::vector<std::wstring> warnings =
      ApplyOverrides(*template_file.markers, options.overrides, overrides);
  for (const std::wstring& warning : warnings) {
    Print(StdErr(), L"corvi-merge: warning: %s\n", warning.c_str());
  }

  auto layer = std::make_unique<RawLayer>();
  if (options.pixels != nullptr) {
    ReadPixels(options.pixels, *layer);
  } else {
    DecodeLayer(*template_file.markers, *layer);
  }
  if (layer->pixels == nullptr || layer->width == 0 || layer->height == 0) {
    throw RawLayerException(L"The picture has no pixels");
  }

  const uint32_t size = WriteOutput(options, *layer, *template_file.markers, overrides);
  OutStream& out = StdOut();
  Print(out, L"Wrote %s (%u bytes)\n", options.output, size);
  out.Flush();
}

void ReportFailure(const wchar_t* output, const wchar_t* message) {
  StdOut().Flush();
  Print(StdErr(), L"Failed on %s: %s\n", output, message != nullptr ? message : L"");
}

}  // namespace

int RunMerge(int argc, wchar_t** argv) {
  Options options;
  const int status = ParseArguments(argc, argv, options);
  if (status != kContinue) {
    return status;
  }
  try {
    Run(options);
    return 0;
  } catch (const RawLayerException& e) {
    ReportFailure(options.output, e.message);
  } catch (const std::bad_alloc&) {
    ReportFailure(options.output, L"Out of memory");
  }
  return kExitFailure;
}

}  // namespace corvi
