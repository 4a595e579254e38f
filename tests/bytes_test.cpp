#include "extra/bytes.h"

#include <cstdio>
#include <fstream>

#include <gtest/gtest.h>

TEST(Bytes, NumbersReadZeroPastTheEnd)
{
    const uint8_t file[] = {0x12, 0x34, 0x56};
    size_t position = 1;
    EXPECT_EQ(Bytes_GetBig(file, position, 4), 0x34560000u);
    EXPECT_EQ(position, 5u);
    position = 1;
    EXPECT_EQ(Bytes_GetLittle(file, position, 3), 0x5634u);
    EXPECT_EQ(position, 4u);
    EXPECT_EQ(Bytes_GetByte(file, position), 0);
    EXPECT_EQ(Bytes_GetSpan(file, 1).size(), 2u);
    EXPECT_EQ(Bytes_GetSpan(file, 1, 1)[0], 0x34);
    EXPECT_TRUE(Bytes_GetSpan(file, 4, 1).empty());
}

TEST(Bytes, OnlyRegularFilesLoad)
{
    const std::string path = testing::TempDir() + "bytes_test.bin";
    std::ofstream(path) << "abc";
    EXPECT_EQ(Bytes_LoadFile(path.c_str()), (BYTES_BUFFER{'a', 'b', 'c'}));
    std::remove(path.c_str());
    for (const std::string &none : {path, testing::TempDir(), std::string("/dev/zero")})
        EXPECT_TRUE(Bytes_LoadFile(none.c_str()).empty()) << none;
}
