// Pictures written to files.
#pragma once

#include <cstdint>
#include <string>

/// Writes frame `frame` of picture file `in` as `out`, by its ending: .ham6 and .ham8, with runs if
/// `compress`, or .pam (RGBA). The first two hold a multiple of 8 columns: what is narrower than 8
/// is refused, and columns left out are told on standard error. Returns why it did not, or "".
/// `wrong` is whose fault that was.
std::string Viewer_Convert(const std::string &in, const std::string &out, uint32_t frame,
                           bool compress, std::string &wrong);

/// Whether the ending is one of those.
bool Viewer_CanWrite(const std::string &out);
