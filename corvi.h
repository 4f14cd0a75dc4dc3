// corvi's library in one include: map and scan a JPEG file, walk its segments and Exif entries,
// decode it to a RawLayer, and rewrite it with Merge.
//
//   corvi::JPEGReader reader(L"photo.jpg");  // maps the file; throws RawLayerException
//   reader.Scan();                            // cuts it into segments, claiming every byte
//   corvi::DecodeState state;
//   corvi::RawLayer layer;
//   corvi::DecodeImage(*reader.markers, state, layer, false);  // 16-bit RGBA in layer.pixels
#pragma once

#include "base/byte_coverage.h"
#include "base/byte_order.h"
#include "base/limits.h"
#include "base/property.h"
#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "base/sampling.h"
#include "decode/decode_state.h"
#include "exif/tag_names.h"
#include "exif/tiff_entry.h"
#include "jpeg/jpeg_reader.h"
#include "jpeg/markers.h"
#include "merge/merge.h"
#include "platform/format.h"
