// For tests of decoders: files put together from bytes, loaded for as long as a scope lasts.
#pragma once

#include <algorithm>

#include "picture/picture.h"
#include "tests/files.h"

using BYTES = std::vector<uint8_t>;

inline BYTES operator+(BYTES a, const BYTES &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// A file of the running test's own.
inline std::string OwnFile(const BYTES &file)
{
    return WriteTemp(testing::UnitTest::GetInstance()->current_test_info()->test_suite_name(),
                     file);
}

struct LOADED {
    Picture Record;
    explicit LOADED(const BYTES &file, uint16_t hint = 0)
        : Record(Picture_Load(OwnFile(file).c_str(), hint, 0))
    {
    }
    ~LOADED()
    {
        Picture_UnLoad(Record);
    }
};

// A file of tests/data against the digest of its pixels, cropped to the picture. Then every
// `step`th of its prefixes, whose pixels must be the same, or `missing`, or nothing at all.
inline void CheckFile(const std::string &name, uint64_t digest, size_t step,
                      std::array<uint8_t, 4> missing = {})
{
    const BYTES file = Bytes_LoadFile((TEST_DATA + name).c_str());
    const auto cropped = [](const Picture &p) {
        BYTES pixels;
        for (size_t y = 0; p.Pixels && y < p.Height; y++) {
            const uint8_t *row = p.Pixels + y * p.BufferWidth * 4;
            pixels.insert(pixels.end(), row, row + size_t{p.Width} * 4);
        }
        return pixels;
    };
    const LOADED loaded(file);
    const BYTES whole = cropped(loaded.Record);
    EXPECT_EQ(Digest(whole), digest) << name;
    for (size_t length = 0; length < file.size(); length += step) {
        const BYTES cut = cropped(
            LOADED(BYTES(file.begin(), file.begin() + static_cast<ptrdiff_t>(length))).Record);
        for (size_t i = 0; cut.size() == whole.size() && i < cut.size(); i += 4)
            ASSERT_TRUE(std::equal(&cut[i], &cut[i] + 4, &whole[i]) ||
                        std::equal(missing.begin(), missing.end(), &cut[i]))
                << name << " cut to " << length;
    }
}
