// For tests of decoders: files put together from bytes, loaded for as long as a scope lasts.
#pragma once

#include <algorithm>
#include <array>

#include "picture/picture.h"
#include "tests/files.h"

// A file of the running test's own.
inline std::string OwnFile(const BYTES &file)
{
    return WriteTemp(testing::UnitTest::GetInstance()->current_test_info()->test_suite_name(),
                     file);
}

struct LOADED {
    Picture Record;
    explicit LOADED(const BYTES &file, uint16_t hint = 0, uint8_t rawPlanes = 0)
        : Record(Picture_Load(OwnFile(file).c_str(), hint, rawPlanes))
    {
    }
    ~LOADED()
    {
        Picture_UnLoad(Record);
    }
};

// The picture's own pixels, without what its buffer has beyond them.
inline BYTES Cropped(const Picture &picture)
{
    BYTES pixels;
    for (size_t y = 0; picture.Pixels && y < picture.Height; y++) {
        const uint8_t *row = picture.Pixels + y * picture.BufferWidth * 4;
        pixels.insert(pixels.end(), row, row + picture.Width * size_t{4});
    }
    return pixels;
}

// The samples of a binary PGM or PPM picture, each grey thrice.
inline BYTES SamplesOfPNM(const std::string &path)
{
    const BYTES file = ReadFile(path);
    std::istringstream text(std::string(file.begin(), file.end()));
    std::string magic;
    int width = 0, height = 0, most = 0;
    text >> magic >> width >> height >> most;
    BYTES samples;
    for (auto i = static_cast<size_t>(text.tellg()) + 1; i < file.size(); i++)
        samples.insert(samples.end(), magic == "P5" ? 3 : 1, file[i]);
    return samples;
}

// A file of tests/data against the digest of its pixels, cropped to the picture. Then every
// `step`th of its prefixes, whose pixels must be the same, or `missing`, or nothing at all.
inline void CheckFile(const std::string &name, uint64_t digest, size_t step,
                      std::array<uint8_t, 4> missing = {})
{
    const BYTES file = ReadFile(TEST_DATA + name);
    const BYTES whole = Cropped(LOADED(file).Record);
    EXPECT_EQ(Digest(whole), digest) << name;
    for (size_t length = 0; length < file.size(); length += step) {
        const BYTES cut = Cropped(LOADED(Prefix(file, length)).Record);
        for (size_t i = 0; cut.size() == whole.size() && i < cut.size(); i += 4)
            ASSERT_TRUE(std::equal(&cut[i], &cut[i] + 4, &whole[i]) ||
                        std::equal(missing.begin(), missing.end(), &cut[i]))
                << name << " cut to " << length;
    }
}
