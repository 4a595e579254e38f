// A file whose reads behave as real ones do at bad times.
#pragma once

#include <cerrno>
#include <utility>

#include "audio/audio.h"
#include "tests/files.h"

struct COOKIE {
    BYTES Bytes;
    size_t Position = 0;
    size_t FailAt = SIZE_MAX;  // reads from there on fail
    bool ReStarts = false;     // a restart happens during the first read
};

inline SOUND_STREAM OpenCookie(COOKIE &cookie)
{
    const auto read = [](void *from, char *out, size_t size) -> ssize_t {
        COOKIE &c = *static_cast<COOKIE *>(from);
        if (std::exchange(c.ReStarts, false))
            Audio_ReStart();
        if (c.Position >= c.FailAt) {
            errno = EIO;
            return -1;
        }
        size = std::min(size, std::min(c.Bytes.size(), c.FailAt) - c.Position);
        std::copy_n(c.Bytes.data() + c.Position, size, out);
        c.Position += size;
        return static_cast<ssize_t>(size);
    };
    const auto seek = [](void *from, off64_t *offset, int whence) {
        COOKIE &c = *static_cast<COOKIE *>(from);
        c.Position = static_cast<size_t>(*offset) + (whence == SEEK_CUR ? c.Position : 0);
        *offset = static_cast<off64_t>(c.Position);
        return 0;
    };
    SOUND_STREAM stream(fopencookie(&cookie, "rb", {read, nullptr, seek, nullptr}));
    std::setvbuf(stream.get(), nullptr, _IONBF, 0);
    return stream;
}
