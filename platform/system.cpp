#include "platform/system.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <dirent.h>
#include <unistd.h>

uint16_t System_RND, System_RND2;

uint16_t System_StrLen(const char *s)
{
    return static_cast<uint16_t>(std::strlen(s));
}

void System_StrCpy(char *dst, const char *src)
{
    std::strcpy(dst, src);  // NOLINT(clang-analyzer-security.insecureAPI.strcpy): the caller counts
}

void System_StrCat(char *dst, const char *src)
{
    std::strcat(dst, src);  // NOLINT(clang-analyzer-security.insecureAPI.strcpy): the same
}

static bool MatchesAt(const char *text, const char *pattern, int8_t offset)
{
    for (; *pattern != 0; text++, pattern++)
        if (*text == 0 || (*text != *pattern && *text != static_cast<char>(*pattern + offset)))
            return false;
    return true;
}

uint8_t System_StrSearch(const char *text, const char *pattern, uint32_t *pos, int8_t offset)
{
    const char first[] = {*pattern, static_cast<char>(*pattern + offset), 0};
    const char *at = text + *pos;
    // Skips to the next possible first character; strpbrk compares many at a time.
    for (; *at != 0; at++) {
        if (*pattern != 0 && !(at = std::strpbrk(at, first)))
            return 0;
        if (MatchesAt(at, pattern, offset)) {
            *pos = static_cast<uint32_t>(at - text);
            return 1;
        }
    }
    return 0;
}

void System_StrSkipSpace(const char *text, uint32_t *pos)
{
    while (text[*pos] == ' ')
        ++*pos;
}

void System_IntToStr(uint32_t value, char *dst)
{
    std::sprintf(dst, "%u", value);
}

uint32_t System_StrToInt(const char *s)
{
    while (*s == ' ' || *s == '0')
        s++;
    uint32_t value = 0;
    double place = 0;
    // NOLINTNEXTLINE(cert-flp30-c): whole numbers
    for (size_t i = std::strlen(s); i-- > 0; place++) {
        const int digit = static_cast<uint8_t>(s[i]) - '0';
        value = System_TruncateToUDWord(value + digit * std::pow(10.0, place));
    }
    return value;
}

char *System_itoa(int32_t value, char *dst, int32_t)
{
    std::sprintf(dst, "%d", value);
    return dst;
}

uint32_t System_ReadNumber(const char *text, uint32_t *pos)
{
    std::array<uint8_t, Pow10.size()> digits;
    uint32_t count = 0;
    while (count < digits.size()) {
        const char c = text[*pos + count];
        if (c == ' ' || c == '\n' || c == '\r')
            break;
        digits[count++] = static_cast<uint8_t>(c - '0');
    }
    *pos += count + 1;
    uint32_t value = 0;
    for (uint32_t i = 0; i < count; i++)
        value += digits[i] * Pow10[count - 1 - i];
    return value;
}

uint16_t System_ReadHexNumber(const char *text, uint32_t *pos, uint8_t digits)
{
    uint32_t value = 0;
    for (uint32_t i = 0; i < digits; i++) {
        const char c = text[(*pos)++];
        const uint32_t place = digits - 1u - i;
        for (uint32_t k = 0; k < 16; k++)
            if (place < Pow16.size() && (c == HexTable[k] || c == HexTable[k] + 32))
                value += k * Pow16[place];
    }
    return static_cast<uint16_t>(value);
}

int32_t System_min(int32_t a, int32_t b)
{
    return a < b ? a : b;
}

int32_t System_Clamp(int32_t v, int32_t low, int32_t high)
{
    return v > high ? high : v < low ? low : v;
}

uint32_t System_TruncateToUDWord(double value)
{
    constexpr double limit = 9223372036854775808.0;  // 2^63
    return std::fabs(value) < limit ? static_cast<uint32_t>(static_cast<int64_t>(value)) : 0;
}

void System_RaNDomize()
{
    // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): dice of a game
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    const auto draw = [] {
        // NOLINTNEXTLINE(cert-msc30-c,cert-msc50-cpp): the same
        const int first = std::rand() % 32767, second = std::rand() % 32767;
        return static_cast<uint16_t>(first + second);
    };
    System_RND = draw();
    System_RND2 = draw();
}

uint16_t System_RaNDom(uint16_t n)
{
    const uint32_t a = System_RND2, b = System_RND;
    uint32_t A = (a & 0xFF) << 8 | b >> 8;
    uint32_t B = (a & 0xFF00) | (b & 0xFF);
    A = A >> 1 | A << 15;
    B = B << 1 | B >> 15;
    System_RND = static_cast<uint16_t>(B + b + 0x1276);
    System_RND2 = static_cast<uint16_t>(A + a + 0x5643);
    return static_cast<uint16_t>(System_RND2 % n);
}

uint8_t System_FileExists(const char *path)
{
    FILE *file = std::fopen(path, "r");
    if (!file)
        return 0;
    std::fclose(file);
    return 1;
}

uint8_t System_DirectoryExists(const char *path)
{
    DIR *directory = opendir(path);
    if (!directory)
        return 0;
    closedir(directory);
    return 1;
}

int32_t System_LoadTextFile(const char *path, std::span<char> buffer)
{
    FILE *file = std::fopen(path, "r");
    if (!file)
        return 0;
    std::fseek(file, 0, SEEK_END);
    const auto size = static_cast<uint16_t>(std::ftell(file));
    std::rewind(file);
    if (!buffer.empty()) {
        const size_t room = std::min<size_t>(size, buffer.size() - 1);
        buffer[std::fread(buffer.data(), 1, room, file)] = 0;
    }
    return std::fclose(file);
}

void System_Sleep(uint32_t microseconds)
{
    usleep(microseconds & 0xFFFF);
}
