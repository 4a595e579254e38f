// For targets that compare with another library's decoder. What the peer accepts without complaint
// must be accepted here, too, with equal pixels or samples; deviations on purpose are named in the
// targets.
#pragma once

#include <cstdio>
#include <cstdlib>

#include "fuzz/fuzz.h"
#include "picture/picture.h"

/// Ends the run with what differs, at which index, and both values.
[[noreturn]] inline void Differ(const char *what, size_t at = 0, long ours = 0, long theirs = 0)
{
    std::fprintf(stderr, "differs: %s at %zu: ours %ld, the peer's %ld\n", what, at, ours, theirs);
    std::abort();
}

/// A picture in memory, loaded by its format's rules.
struct PEER_PICTURE {
    Picture It;

    PEER_PICTURE(const uint8_t *data, size_t size)
    {
        Picture_MaxBytes = 1 << 22;
        Picture_Rules = PICTURE_RULES_FORMAT;
        It = Picture_LoadBytes({data, size}, 0, 0);
    }
    PEER_PICTURE(const PEER_PICTURE &) = delete;
    PEER_PICTURE &operator=(const PEER_PICTURE &) = delete;
    ~PEER_PICTURE()
    {
        Picture_UnLoad(It);
    }

    /// Fails unless it has this size and these R G B A bytes, within the tolerance.
    void Compare(uint32_t width, uint32_t height, const uint8_t *theirs, int tolerance = 0) const
    {
        if (!It.Pixels)
            Differ(Picture_Reason());
        if (It.BufferWidth != width || It.BufferHeight != height)
            Differ("the size", 0, It.BufferWidth, width);
        for (size_t i = 0; i < size_t{4} * width * height; i++)
            if (std::abs(It.Pixels[i] - theirs[i]) > tolerance &&
                (i % 4 == 3 || theirs[i | 3] != 0 || It.Pixels[i | 3] != 0))
                Differ("a pixel's byte", i, It.Pixels[i], theirs[i]);
    }
};
