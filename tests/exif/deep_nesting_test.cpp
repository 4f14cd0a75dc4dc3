// Nesting as deep as a segment allows: thumbnails in thumbnails, sub-directory chains and maker
// notes in maker notes. Scan, dump, header decode and the end of the objects run on a thread
// with half the 1 MB stack they must fit in (more under the address sanitizer, whose frames are
// several times larger); the depth is checked in the dump.
#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <string>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "platform/format.h"
#include "tests/support/tiff_builder.h"

namespace corvi {
namespace {

using test::Bytes;

#if defined(__SANITIZE_ADDRESS__)
constexpr size_t kStackBytes = size_t{16} << 20;
#else
constexpr size_t kStackBytes = size_t{512} << 10;  // half the 1 MB asked for: a margin
#endif

// Runs `work` on a thread with a stack of kStackBytes; a stack overflow kills the test binary.
void RunOnSmallStack(const std::function<void()>& work) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, kStackBytes), 0);
  pthread_t thread;
  auto* copy = new std::function<void()>(work);
  auto entry = [](void* argument) -> void* {
    auto* job = static_cast<std::function<void()>*>(argument);
    (*job)();
    delete job;
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, entry, copy), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

// A file whose APP1 holds a thumbnail that holds an APP1 with a thumbnail, `levels` files in
// all, alternating byte orders. Every level has a frame and a scan header, so that the headers
// decode at every level; the innermost is TinyGrayJpeg, and the outermost has its tables.
Bytes NestedThumbnails(int levels) {
  const Bytes tiny = test::TinyGrayJpeg();
  Bytes inner = tiny;
  for (int i = 1; i < levels; ++i) {
    test::TiffBuilder t(i % 2 == 0);
    t.Directory({{0x201, 4, 1, {}, 38}, {0x202, 4, 1, {}, static_cast<uint32_t>(inner.size())}});
    t.Append(inner);
    test::JpegBuilder b;
    b.Soi().Segment(0xE1, t.ExifPayload());
    if (i + 1 == levels) {
      b.Raw(Bytes(tiny.begin() + 2, tiny.end()));  // the file's own tables, so its pixels decode
    } else {
      b.Sof(0xC0, 8, 8, 8, {{1, 0x11, 0}}).Sos({{1, 0x00}}).Eoi();
    }
    inner = b.bytes();
  }
  return inner;
}

// A file with Intel TIFF data: IFD0 with a Make "Canon" when `canon`, then `levels` directories
// of one entry each, every one opening the next with `tag` (an Exif pointer, or a maker note of
// 5 bytes) right behind the entry: a directory's next link is not read.
Bytes DirectoryChain(int levels, uint16_t tag, bool canon) {
  test::TiffBuilder t(false);
  if (canon) {
    t.Directory({{0x10F, 2, 6, test::TiffBuilder::Ascii("Canon")}, {tag, 7, 5, {}, 44}});
  }
  const bool note = tag == 0x927C;
  for (int i = canon ? 1 : 0; i < levels; ++i) {
    const uint32_t next = t.Here() + 14;
    for (const Bytes& part :
         {t.Short(1), t.Short(tag), t.Short(note ? 7 : 4), t.Long(note ? 5 : 1), t.Long(next)}) {
      t.Append(part);
    }
  }
  t.Append(Bytes(6, 0));
  return test::JpegWithApp1(t.ExifPayload());
}

size_t Count(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
    ++n;
  }
  return n;
}

TEST(DeepNesting, ScansDumpsAndDecodesWithinASmallStack) {
  const struct {
    const char* name;
    Bytes file;
    const char* level_line;  // a dump line that each level prints once
    size_t levels;
  } cases[] = {
      {"thumbnails", NestedThumbnails(860), "Thumbnail:", 859},
      {"Exif sub-directories", DirectoryChain(4600, 0x8769, false), "ExifOffset", 4600},
      {"Canon maker notes", DirectoryChain(4600, 0x927C, true), "MakerNote", 4600},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_LE(c.file.size(), 65535u + 200u);
    std::string dump;
    std::wstring error;
    RunOnSmallStack([&]() {
      test::ScanResult scan = test::ScanBytes(c.file);
      if (!scan.error.empty()) {
        error = scan.error;
        return;
      }
      dump = test::DumpText(scan, c.file);
      DecodeState state;
      state.limits = Limits::None();
      state.keep_pixels = false;
      RawLayer layer;
      try {
        DecodeImage(*scan.markers, state, layer, false);
      } catch (const RawLayerException& e) {
        error = e.message;
      }
    });
    EXPECT_EQ(error, L"");
    EXPECT_EQ(Count(dump, c.level_line), c.levels);
  }
}

// A library caller's limits end the whole scan, also from inside a thumbnail or a maker note,
// whose own failures are dropped silently.
TEST(DeepNesting, LimitsRefuseDeepNestingByName) {
  const struct {
    const char* name;
    Bytes file;
    const wchar_t* error;
  } cases[] = {
      {"thumbnails", NestedThumbnails(18), L"Thumbnails nested too deep (17, limit 16)"},
      {"thumbnails within the limit", NestedThumbnails(17), L""},
      {"directories", DirectoryChain(300, 0x8769, false),
       L"Directories nested too deep (257, limit 256)"},
      {"maker notes", DirectoryChain(300, 0x927C, true),
       L"Directories nested too deep (257, limit 256)"},
      {"directories within the limit", DirectoryChain(256, 0x8769, false), L""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(test::ScanBytes(c.file, Limits()).error, c.error);
    EXPECT_EQ(test::ScanBytes(c.file).error, L"");  // no limits
  }
}

}  // namespace
}  // namespace corvi
