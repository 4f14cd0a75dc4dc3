// A small deterministic colour JPEG made by a minimal baseline encoder, for runs and golden tests.
#pragma once

#include "tests/support/jpeg_builder.h"

namespace corvi::test {

// 64x48, baseline 4:2:0 (luma 2x2), quality 75 tables of T.81 Annex K, the Annex K Huffman
// tables, restart interval 4 (12 MCUs, markers RST0 and RST1). Segments in order: SOI, JFIF APP0,
// Exif APP1 (Intel TIFF: Make "corvi", Model "sample", Orientation 1, XResolution 72/1, DateTime
// and an Exif sub-directory with DateTimeOriginal, all "2026:11:22 12:00:00"), COM "corvi
// sample", DQT, SOF0, DHT, DRI, SOS, the entropy-coded data, EOI.
Bytes MakeSampleJpeg();

// The RGB pixels that MakeSampleJpeg encodes, 3 bytes per pixel, row by row.
Bytes SampleJpegPixels();

constexpr int kSampleJpegWidth = 64;
constexpr int kSampleJpegHeight = 48;

}  // namespace corvi::test
