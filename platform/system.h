// System utilities: texts, numbers in texts, little-endian byte groups, the 16-bit random
// generator, file probes and a short sleep. Texts are NUL-terminated bytes; a position in one is
// passed by address and advanced. The narrow integer widths are part of the behaviour.
#pragma once

#include <array>
#include <cstdint>
#include <span>

/// State of the random generator.
extern uint16_t System_RND, System_RND2;

/// Place values of decimal and hexadecimal digits, lowest first.
constexpr std::array<uint32_t, 7> Pow10 = {1, 10, 100, 1000, 10000, 100000, 1000000};
constexpr std::array<uint16_t, 4> Pow16 = {1, 16, 256, 4096};
constexpr char HexTable[] = "0123456789ABCDEF";

/// Length without the NUL, modulo 65536.
uint16_t System_StrLen(const char *s);

/// Copies `src` with its NUL to `dst`, or appends it to the text in `dst`, which must have room for
/// it.
void System_StrCpy(char *dst, const char *src);
void System_StrCat(char *dst, const char *src);

/// Finds `pattern` in `text` from `*pos` on. Returns 1 with `*pos` at the match, or 0 with `*pos`
/// unchanged. A text character matches a pattern character that equals it, or equals it once
/// `offset` has been added to the pattern's (-32 lets a lower-case pattern match capitals, 32 the
/// reverse). An empty pattern matches anywhere before the end of the text.
uint8_t System_StrSearch(const char *text, const char *pattern, uint32_t *pos, int8_t offset);

/// Advances `*pos` past blanks (the space character only).
void System_StrSkipSpace(const char *text, uint32_t *pos);

/// Decimal text of `value`, at most 10 digits and a NUL.
void System_IntToStr(uint32_t value, char *dst);

/// Number of a decimal text after leading blanks and zeros. Any character counts as its code minus
/// 48 at its place: a minus sign counts -3. Wraps at 32 bits.
uint32_t System_StrToInt(const char *s);

/// Signed decimal text of `value`, at most 11 characters and a NUL; returns `dst`. On purpose, the
/// base is ignored.
char *System_itoa(int32_t value, char *dst, int32_t base);

/// Decimal field of at most 7 characters, ended by a space, line feed or carriage return, which is
/// consumed too. After 7 characters the eighth is consumed, whatever it is. A NUL does not end the
/// field: `text` must extend 8 bytes past `*pos`.
uint32_t System_ReadNumber(const char *text, uint32_t *pos);

/// Hexadecimal number of exactly `digits` (at most 4) characters. Unknown characters count 0; on
/// purpose, "P" to "Y" count 0 to 9.
uint16_t System_ReadHexNumber(const char *text, uint32_t *pos, uint8_t digits);

/// The smaller of two; and v clamped to low..high, the upper bound tested first.
int32_t System_min(int32_t a, int32_t b);
int32_t System_Clamp(int32_t v, int32_t low, int32_t high);

/// Truncates toward zero, modulo 2^32; a value that no 64-bit integer can hold gives 0.
uint32_t System_TruncateToUDWord(double value);

/// Little-endian pairs and quads from the low bytes of the arguments, first byte lowest.
constexpr uint16_t System_MakeUWord(uint32_t lo, uint32_t hi)
{
    return static_cast<uint16_t>((hi & 0xFF) << 8 | (lo & 0xFF));
}
constexpr int16_t System_MakeWord(uint32_t lo, uint32_t hi)
{
    return static_cast<int16_t>(System_MakeUWord(lo, hi));
}
constexpr uint32_t System_MakeUDWord(uint32_t b0, uint32_t b1, uint32_t b2, uint32_t b3)
{
    return static_cast<uint32_t>(System_MakeUWord(b2, b3)) << 16 | System_MakeUWord(b0, b1);
}

/// Seeds the generator from the time of day in seconds.
void System_RaNDomize();

/// Next random number, 0 to n - 1; `n` must not be 0.
uint16_t System_RaNDom(uint16_t n);

/// 1 if the file or directory can be opened for reading, else 0.
uint8_t System_FileExists(const char *path);
uint8_t System_DirectoryExists(const char *path);

/// Reads a text file and a NUL into `buffer`; what does not fit is truncated. The size of a file
/// counts modulo 65536. Returns 0; if the file cannot be opened `buffer` is unchanged.
int32_t System_LoadTextFile(const char *path, std::span<char> buffer);

/// Sleeps for `microseconds` modulo 65536.
void System_Sleep(uint32_t microseconds);
