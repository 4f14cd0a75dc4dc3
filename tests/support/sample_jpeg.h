// A small deterministic colour JPEG made by the rewriter, for runs and golden tests.
#pragma once

#include "tests/support/jpeg_builder.h"

namespace corvi::test {

// 64x48, baseline 4:2:0 (luma 2x2), quality 75 tables of T.81 Annex K, Huffman tables optimised
// for the picture. Segments in order: SOI, JFIF APP0, Exif APP1 (Intel TIFF: Make "corvi", Model
// "sample", Orientation 1, XResolution 72/1, DateTime and an Exif sub-directory with
// DateTimeOriginal, all "2026:11:22 12:00:00"; IFD1 with a 16x12 thumbnail of the picture), COM
// "corvi sample", DQT, SOF0, four DHT, SOS, the entropy-coded data, EOI. Empty on a failure.
Bytes MakeSampleJpeg();

// The template that MakeSampleJpeg hands to the rewriter: the same segments, a dummy thumbnail
// and one byte of scan data.
Bytes MakeSampleTemplate();

// The RGB pixels that MakeSampleJpeg encodes, 3 bytes per pixel, row by row.
Bytes SampleJpegPixels();

constexpr int kSampleJpegWidth = 64;
constexpr int kSampleJpegHeight = 48;

}  // namespace corvi::test
