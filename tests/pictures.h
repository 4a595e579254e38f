// For tests of decoders: files built from bytes, loaded for the duration of a scope.
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

// Restores the framework's rules at the end of a test.
struct RULES {
    explicit RULES(uint8_t rules)
    {
        Picture_Rules = rules;
    }
    ~RULES()
    {
        Picture_Rules = PICTURE_RULES_FRAMEWORK;
    }
};

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

// The picture's own pixels, without its buffer's padding.
inline BYTES Cropped(const Picture &picture)
{
    BYTES pixels;
    for (size_t y = 0; picture.Pixels && y < picture.Height; y++) {
        const uint8_t *row = picture.Pixels + y * picture.BufferWidth * 4;
        pixels.insert(pixels.end(), row, row + picture.Width * size_t{4});
    }
    return pixels;
}

inline BYTES PixelsOf(const BYTES &file)
{
    return Cropped(LOADED(file).Record);
}

// The samples of a binary PGM or PPM picture, greys repeated three times.
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

// Tests every `step`th prefix of a file from `head` bytes on: it is refused, or at most `slack` of
// its pixels differ from the whole picture's without being `missing`.
inline void ExpectPrefixesHold(const BYTES &file, size_t head, size_t slack, size_t step = 1,
                               std::array<uint8_t, 4> missing = {})
{
    const BYTES whole = PixelsOf(file);
    size_t shown = 0;
    for (size_t size = head; size < file.size(); size += step) {
        const BYTES part = PixelsOf(Prefix(file, size));
        if (part.size() != whole.size())
            continue;
        shown++;
        size_t wrong = 0;
        for (size_t i = 0; i < part.size(); i += 4)
            wrong += !std::equal(&part[i], &part[i] + 4, &whole[i]) &&
                     !std::equal(missing.begin(), missing.end(), &part[i]);
        ASSERT_LE(wrong, slack) << "prefix of " << size;
    }
    EXPECT_GT(shown, 0u) << "no prefix shows anything";
}

// Tests a file of tests/data against the digest of its pixels, and its prefixes.
inline void CheckFile(const std::string &name, uint64_t digest, size_t step,
                      std::array<uint8_t, 4> missing = {}, size_t slack = 0)
{
    SCOPED_TRACE(name);
    const BYTES file = ReadFile(TEST_DATA + name);
    EXPECT_EQ(Digest(PixelsOf(file)), digest);
    ExpectPrefixesHold(file, 0, slack, step, missing);
}
