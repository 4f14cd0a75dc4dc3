// A small deterministic colour JPEG made by the rewriter, for runs and golden tests.
#pragma once

#include "tests/support/jpeg_builder.h"

namespace corvi::test {

// 64x48, baseline 4:2:0, the quality 75 tables of T.81 Annex K, Huffman tables optimised for the
// picture. Segments: SOI, JFIF APP0, Exif APP1 (Intel; Make "corvi", Model "sample", Orientation
// 1, XResolution 72/1, DateTime and DateTimeOriginal "2026:11:22 12:00:00", IFD1 with a 16x12
// thumbnail), COM "corvi sample", DQT, SOF0, four DHT, SOS, the scan, EOI. Empty on a failure.
Bytes MakeSampleJpeg();

}  // namespace corvi::test
