// Encoders of pictures. Each returns why the file could not be written, or ""; the caller opens and
// closes it.
#pragma once

#include <cstdio>
#include <string>

#include "tools/viewer/shown.h"

/// PAM (Netpbm's P7): RGB_ALPHA of 8 bits.
std::string Encode_PAM(const VIEWER_PIXELS &pixels, FILE *file);

/// PNG (ISO/IEC 15948) of 8 bits: grey or RGB, with alpha unless all is opaque. Each row uses the
/// filter whose bytes have the least sum, as suggested in 12.8; compressed by zlib.
std::string Encode_PNG(const VIEWER_PIXELS &pixels, FILE *file);

/// BMP, bottom row first: 24 bits, or 32 with the masks of a version 4 header unless all is opaque.
std::string Encode_BMP(const VIEWER_PIXELS &pixels, FILE *file);
