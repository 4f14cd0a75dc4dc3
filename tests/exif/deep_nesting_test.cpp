// Nesting as deep as a segment allows: thumbnails inside thumbnails, sub-directory chains and
// maker notes inside maker notes. The scan, the dump, the decode of the headers and the end of
// the objects all run on a thread with a stack of 512 KB, half of the 1 MB they must fit in
// (more under the address sanitizer, whose frames are several times larger), and the depth is
// checked in the dump.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstring>
#include <functional>
#include <string>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "platform/format.h"
#include "tests/support/jpeg_builder.h"

namespace corvi {
namespace {

using test::Bytes;
using test::JpegBuilder;

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

void Put16(Bytes& b, uint16_t v) {
  b.push_back(static_cast<uint8_t>(v));
  b.push_back(static_cast<uint8_t>(v >> 8));
}
void Put32(Bytes& b, uint32_t v) {
  Put16(b, static_cast<uint16_t>(v));
  Put16(b, static_cast<uint16_t>(v >> 16));
}
void PutEntry(Bytes& b, uint16_t tag, uint16_t type, uint32_t count, uint32_t value) {
  Put16(b, tag);
  Put16(b, type);
  Put32(b, count);
  Put32(b, value);
}

// Intel TIFF data: IFD0 with a Make "Canon" when `canon`, then `levels` directories of one entry
// each, every one opening the next with `tag` (an Exif pointer, or a maker note of 5 bytes).
Bytes DirectoryChain(int levels, uint16_t tag, bool canon) {
  Bytes t = {'I', 'I', 42, 0};
  Put32(t, 8);
  uint32_t pos = 8;
  if (canon) {
    // IFD0: Make (out of line, behind the directory) and the first note.
    Put16(t, 2);
    PutEntry(t, 0x10F, 2, 6, pos + 2 + 24 + 4);
    PutEntry(t, tag, 7, 5, pos + 2 + 24 + 4 + 6);
    Put32(t, 0);
    t.insert(t.end(), {'C', 'a', 'n', 'o', 'n', 0});
    pos = static_cast<uint32_t>(t.size());
  }
  for (int i = canon ? 1 : 0; i < levels; ++i) {
    Put16(t, 1);
    PutEntry(t, tag, tag == 0x927C ? 7 : 4, tag == 0x927C ? 5 : 1, pos + 14);
    pos += 14;
  }
  Put16(t, 0);
  Put32(t, 0);
  Bytes payload = {'E', 'x', 'i', 'f', 0, 0};
  payload.insert(payload.end(), t.begin(), t.end());
  return payload;
}

// A file whose APP1 holds a thumbnail that holds an APP1 with a thumbnail, `levels` deep.
Bytes NestedThumbnails(int levels) {
  Bytes inner = test::TinyGrayJpeg();
  for (int i = 1; i < levels; ++i) {
    Bytes t = {'I', 'I', 42, 0};
    Put32(t, 8);
    Put16(t, 2);
    PutEntry(t, 0x201, 4, 1, 8 + 2 + 24 + 4);
    PutEntry(t, 0x202, 4, 1, static_cast<uint32_t>(inner.size()));
    Put32(t, 0);
    t.insert(t.end(), inner.begin(), inner.end());
    Bytes payload = {'E', 'x', 'i', 'f', 0, 0};
    payload.insert(payload.end(), t.begin(), t.end());
    // Each level has a frame and a scan header, so that the headers decode at every level.
    // The file itself has its tables, so that its pixels decode too.
    JpegBuilder b;
    b.Soi().Segment(0xE1, payload);
    if (i + 1 == levels) {
      const Bytes tiny = test::TinyGrayJpeg();
      b.Raw(Bytes(tiny.begin() + 2, tiny.end()));
    } else {
      b.Sof(0xC0, 8, 8, 8, {{1, 0x11, 0}}).Sos({{1, 0x00}}).Eoi();
    }
    inner = b.bytes();
  }
  return inner;
}

// A tiny grey file with `payload` as its APP1.
Bytes WithApp1(const Bytes& payload) {
  const Bytes tiny = test::TinyGrayJpeg();
  JpegBuilder b;
  b.Soi().Segment(0xE1, payload).Raw(Bytes(tiny.begin() + 2, tiny.end()));
  return b.bytes();
}

size_t Count(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
    ++n;
  }
  return n;
}

struct DeepCase {
  const char* name;
  Bytes file;
  const char* level_line;  // a dump line that each level prints once
  size_t levels;
};

TEST(DeepNesting, ScansDumpsAndDecodesWithinASmallStack) {
  const DeepCase cases[] = {
      {"thumbnails", NestedThumbnails(860), "Thumbnail:", 859},
      {"Exif sub-directories", WithApp1(DirectoryChain(4600, 0x8769, false)), "ExifOffset", 4600},
      {"Canon maker notes", WithApp1(DirectoryChain(4600, 0x927C, true)), "MakerNote", 4600},
  };
  for (const DeepCase& c : cases) {
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
      {"thumbnails", NestedThumbnails(40), L"Thumbnails nested too deep (17, limit 16)"},
      {"thumbnails within the limit", NestedThumbnails(17), L""},
      {"directories", WithApp1(DirectoryChain(300, 0x8769, false)),
       L"Directories nested too deep (257, limit 256)"},
      {"maker notes", WithApp1(DirectoryChain(300, 0x927C, true)),
       L"Directories nested too deep (257, limit 256)"},
      {"directories within the limit", WithApp1(DirectoryChain(256, 0x8769, false)), L""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(test::ScanBytes(c.file, Limits()).error, c.error);
    EXPECT_EQ(test::ScanBytes(c.file).error, L"");  // no limits
  }
}

}  // namespace
}  // namespace corvi
