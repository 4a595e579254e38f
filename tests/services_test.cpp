// Sorts, colour spaces and numerals.
#include <algorithm>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "extra/colour.h"
#include "extra/heap.h"
#include "extra/numeral.h"
#include "extra/sort.h"
#include "tests/files.h"

static const struct SORT {
    const char *Name;
    void (*Sort)(int32_t *a, uint16_t n);
    uint16_t Max;  // elements that it sorts quickly enough
} sorts[] = {
    {"selection", Extra_SelectionSort, 4000}, {"insertion", Extra_InsertSort, 4000},
    {"heap", Extra_HeapSort, 65535},          {"bubble", Extra_BubbleSort, 3000},
    {"merge", Extra_MergeSort, 65535},        {"quick", Extra_QuickSort, 12000},
    {"cruiser", Extra_CruiserSort, 200},
};

// Sorts a copy followed by a maximum, which must stay there.
static void ExpectSorts(const SORT &sort, std::vector<int32_t> values, const char *what)
{
    std::vector<int32_t> expected = values;
    std::ranges::sort(expected);
    expected.push_back(INT32_MAX);
    values.push_back(INT32_MAX);
    sort.Sort(values.data(), static_cast<uint16_t>(values.size() - 1));
    EXPECT_TRUE(values == expected) << sort.Name << ", " << values.size() - 1 << ' ' << what;
}

TEST(Sorts, GiveWhatTheStandardLibraryGives)
{
    std::mt19937 random(1);
    rlimit stack;  // too small for recursion as deep as n
    getrlimit(RLIMIT_STACK, &stack);
    stack.rlim_cur = 1 << 18;
    setrlimit(RLIMIT_STACK, &stack);
    for (const SORT &sort : sorts) {
        ExpectSorts(sort, {INT32_MAX, INT32_MIN, 0, INT32_MIN, -1, INT32_MAX, 1}, "extremes");
        for (const int n : {0, 1, 2, 3, 4, 5, 9, 64, 199, int{sort.Max}}) {
            std::vector<int32_t> values(static_cast<size_t>(n));
            ExpectSorts(sort, values, "equal");
            std::ranges::generate(values, random);
            ExpectSorts(sort, values, "random");
            for (int32_t &value : values)
                value %= 7;
            ExpectSorts(sort, values, "with repetitions");
            std::iota(values.begin(), values.end(), -1000);
            ExpectSorts(sort, values, "sorted");
            std::ranges::reverse(values);
            ExpectSorts(sort, values, "reversed");
        }
    }
}

TEST(Sorts, LeaveBehind)
{
    std::vector<int32_t> values = {5, 9, 7, 1};
    Extra_BubbleSort(values.data(), 3);
    EXPECT_EQ(values, (std::vector<int32_t>{1, 5, 7, 9})) << "takes in the slot after the array";
    values = {5, 1, 0};
    Extra_BubbleSort(values.data(), 1);
    EXPECT_EQ(values, (std::vector<int32_t>{1, 5, 0})) << "one element and its neighbour";
    Extra_CreateHeap(255, 4);
    Extra_PushDWord(0xFFFFFFFF);  // not mistaken for a segment of the array
    ExpectSorts({"merge", Extra_MergeSort, 3}, {3, 1, 2}, "beside a heap 255");
    EXPECT_EQ(Extra_Heap[255], nullptr);
    EXPECT_EQ(Extra_Pointer, 255);
    EXPECT_EQ(Extra_LIFOorFIFO, 0);
}

// The hash (FNV-1a) over a grid of colours comes from the formulas in Python.
TEST(Colours, BothWays)
{
    BYTES results;
    const auto convert = [&](size_t first, size_t second, size_t third) {
        const auto a = static_cast<uint8_t>(first), b = static_cast<uint8_t>(second),
                   c = static_cast<uint8_t>(third);
        Extra_RGBtoYCbCr(a, b, c);
        Extra_YCbCrtoRGB(a, b, c);
        results.insert(results.end(), {Extra_GetYluma(), Extra_GetChromaBlue(),
                                       Extra_GetChromaRed(), Extra_Red, Extra_Green, Extra_Blue});
    };
    for (size_t i = 0; i < 52 * 52 * 52; i++)
        convert(i / 52 / 52 * 5, i / 52 % 52 * 5, i % 52 * 5);
    EXPECT_EQ(Digest(results), 0xE8EE7EAD69094DD5u);
    convert(255, 255, 255);
    EXPECT_EQ(Extra_ChromaRed, 127) << "a hair short";
    convert(255, 128, 255);
    EXPECT_EQ(Extra_Red, 177) << "wraps";
}

static std::string Convert(int from, int to, const std::string &source)
{
    std::vector<char> destination(40, '~');
    Extra_Convert(static_cast<uint8_t>(from), static_cast<uint8_t>(to), source.c_str(),
                  destination.data());
    return destination.data();
}

TEST(Numerals, Texts)
{
    const struct {
        const char *what;
        int from, to;
        std::string source, result;
    } rows[] = {
        {"capitals", 16, 10, "FF", "255"},
        {"a capital A is worth 17", 16, 10, "AA", "289"},
        {"a small a is worth 42", 16, 10, "a", "42"},
        {"other small letters are worth what they should", 16, 10, "bf", "191"},
        {"a minus sign is worth its code", 10, 10, "-1", "451"},
        {"nothing has none", 10, 2, "", ""},
        {"wraps at 32 bits", 10, 10, "4294967297", "1"},
        {"more digits than doubles reach", 10, 10, "1" + std::string(400, '0') + "7", "7"},
        {"base 1 has no digits", 10, 1, "5", ""},
        {"from Roman", 0, 10, "MMXXIV", "2024"},
        {"a lesser before a greater", 0, 10, "IM", "1001"},
        {"reading stops at no numeral", 0, 10, "XX?V", "20"},
        {"no nought in Rome", 10, 0, "0", ""},
        {"4000 to 9999 lose their thousands", 10, 0, "5008", "VIII"},
        {"ten thousands are units", 10, 0, "10012", "IXII"},
        {"the longest", 10, 0, "3888883888", "IIIVIIIVIIIVIIIVIIIVIIIMMMDCCCLXXXVIII"},
        {"Roman as it should be", 0, 0, "IIIII", "V"},
    };
    for (const auto &r : rows)
        EXPECT_EQ(Convert(r.from, r.to, r.source), r.result) << r.what;
}

TEST(Numerals, RoundTrips)
{
    for (int value = 1; value < 4000; value++) {
        const std::string decimal = std::to_string(value);
        EXPECT_EQ(Convert(0, 10, Convert(10, 0, decimal)), decimal);
    }
    // From base 11 on only texts without an A survive.
    for (int base = 2; base <= 36; base++)
        for (uint64_t value = 0; value <= 0xFFFFFFFF; value = value * 9 / 8 + 1) {
            const std::string decimal = std::to_string(value), text = Convert(10, base, decimal);
            EXPECT_EQ(Convert(base, 10, text) == decimal, text.find('A') == std::string::npos)
                << text;
        }
}
