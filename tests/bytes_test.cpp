#include "extra/bytes.h"

#include <array>
#include <charconv>
#include <fstream>

#include <sys/mman.h>

#include "extra/pages.h"
#include "extra/reason.h"
#include "tests/files.h"

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
    const std::string path = WriteTemp("file", Text("abc"));
    EXPECT_EQ(ReadFile(path), Text("abc"));
    const std::string large = WriteTemp("large", {}), absent = TempPath("absent");
    std::filesystem::resize_file(large, Bytes_MaxFile + 1);
    const std::pair<std::string, const char *> rows[] = {
        {absent, "cannot be opened: No such file or directory"},
        {testing::TempDir(), "a directory"},
        {"/dev/zero", "not a regular file"},
        {large, "more than 1024 MiB"}};
    for (const auto &[none, reason] : rows) {
        Reason_Clear();
        EXPECT_TRUE(Bytes_LoadFile(none.c_str()).empty()) << none;
        EXPECT_STREQ(Reason_Get(), reason);
    }
    EXPECT_FALSE(Bytes_GetSize(BYTES_OPEN(absent.c_str())));
}

// What Linux notes of the mapping that holds this address.
static std::string FlagsOf(const void *place)
{
    std::ifstream mappings("/proc/self/smaps");
    const auto wanted = reinterpret_cast<uintptr_t>(place);
    bool here = false;
    for (std::string line; std::getline(mappings, line);) {
        const char *const end = line.data() + line.size();
        uintptr_t from, to;
        const auto [dash, error] = std::from_chars(line.data(), end, from, 16);
        if (error == std::errc{} && *dash == '-' &&
            std::from_chars(dash + 1, end, to, 16).ec == std::errc{})
            here = from <= wanted && wanted < to;
        else if (here && line.starts_with("VmFlags:"))
            return line + ' ';
    }
    return "";
}

TEST(Bytes, LargeBuffersHaveHugePages)
{
    constexpr size_t size = size_t{8} << 20;
    const auto noted = [](const void *place) {
        return FlagsOf(place).find(" hg ") != std::string::npos;
    };
    void *plain = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (madvise(plain, size, MADV_HUGEPAGE) != 0 || !noted(plain))
        GTEST_SKIP() << "not here";  // an emulator, or a kernel without them
    munmap(plain, size);
    errno = ENOENT;
    Pages_Advise(plain, size);
    EXPECT_EQ(errno, ENOENT) << "a refusal leaves no trace";
    const BYTES_BUFFER large(size);
    EXPECT_TRUE(noted(large.data() + size / 2));
}

TEST(Bytes, AnOpenFileStaysTheSame)
{
    const std::string path = WriteTemp("file", Text("before"));
    std::array<uint8_t, 99> head;
    const int descriptor = dup(0);
    close(descriptor);
    {
        const BYTES_OPEN open(path.c_str());
        std::filesystem::rename(WriteTemp("other", Text("now")), path);
        EXPECT_EQ(ReadFile(WriteTemp("other", Text("third"))), Text("third"));
        EXPECT_EQ(ReadFile(path), Text("before"));
        EXPECT_EQ(Bytes_LoadHead(path.c_str(), head), 6u);
    }
    EXPECT_EQ(ReadFile(path), Text("now"));
    const int again = dup(0);
    close(again);
    EXPECT_EQ(again, descriptor) << "the file is closed";
}
