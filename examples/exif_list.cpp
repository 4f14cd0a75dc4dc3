// Lists every Exif entry of a JPEG file, one a line: exif_list IN.jpg
//   IFD TAG NAME: VALUES
#include <corvi/corvi.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

// Prints the entries of a directory chain, and of the directories nested in it.
void List(const corvi::TIFFDirectory& directory, corvi::OutStream& out) {
  for (uint32_t i = 0; i < directory.count; ++i) {
    const corvi::TIFFEntry& entry = *directory.items[i];
    corvi::Print(out, L"%u 0x%x %s:", entry.ifd, entry.tag, corvi::TIFFTagName(entry.tag));
    corvi::PrintTypedValues(out, entry.type, entry.count, entry.value, directory.byte_order);
    corvi::Print(out, L"\n");
    if (const auto* nested = dynamic_cast<const corvi::TIFFNestedDir*>(&entry)) {
      if (nested->directory != nullptr) {
        List(*nested->directory, out);
      }
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: exif_list IN.jpg\n");
    return 2;
  }
  corvi::OutStream& out = corvi::StdOut();
  try {
    const std::wstring name = corvi::DecodeUtf8(argv[1], std::strlen(argv[1]));
    corvi::JPEGReader reader(name.c_str());
    reader.Scan();
    for (uint32_t i = 0; i < reader.markers->count; ++i) {
      const auto* app1 = dynamic_cast<const corvi::APP1Marker*>(reader.markers->items[i]);
      if (app1 != nullptr && app1->directory != nullptr) {
        List(*app1->directory, out);
      }
    }
  } catch (const corvi::RawLayerException& e) {
    out.Flush();
    std::fprintf(stderr, "%s: %s\n", argv[1], corvi::EncodeUtf8(e.message).c_str());
    return 1;
  }
  out.Flush();
  return 0;
}
