// System utilities: texts, numbers in texts, little-endian byte groups, the 16-bit random
// generator, file probes and a short sleep. Texts are NUL-terminated bytes; positions in them are
// passed by address and moved on. The narrow widths are part of what these functions do.
#pragma once

#include <array>
#include <cstdint>
#include <span>

/// State of the random generator.
extern uint16_t System_RND, System_RND2;

/// Weights of decimal and hexadecimal places, lowest first.
constexpr std::array<uint32_t, 7> Pow10 = {1, 10, 100, 1000, 10000, 100000, 1000000};
constexpr std::array<uint16_t, 4> Pow16 = {1, 16, 256, 4096};
constexpr char HexTable[] = "0123456789ABCDEF";

/// Bytes before the NUL, modulo 65536.
uint16_t System_StrLen(const char *s);

/// Copies `src` with its NUL to `dst`, or after the text there; `dst` must have room for it.
void System_StrCpy(char *dst, const char *src);
void System_StrCat(char *dst, const char *src);

/// Finds `pattern` in `text` from `*pos` on: 1 with `*pos` at the match, or 0 with `*pos`
/// unchanged. A text character matches a pattern character that equals it, or equals it once
/// `offset` has been added to the pattern's (-32 lets a lower-case pattern find capitals, 32 the
/// reverse). An empty pattern is found wherever the text has not ended.
uint8_t System_StrSearch(const char *text, const char *pattern, uint32_t *pos, int8_t offset);

/// Moves `*pos` over blanks (the space character only).
void System_StrSkipSpace(const char *text, uint32_t *pos);

/// Decimal text of `value`, at most 10 digits and a NUL.
void System_IntToStr(uint32_t value, char *dst);

/// Number of a decimal text after leading blanks and zeros. Any character counts as its code
/// minus 48 at its place: a minus sign is worth -3 there. Wraps at 32 bits.
uint32_t System_StrToInt(const char *s);

/// Signed decimal text of `value`, at most 11 characters and a NUL; returns `dst`. The base is
/// ignored on purpose.
char *System_itoa(int32_t value, char *dst, int32_t base);

/// Decimal field of at most 7 characters, ended by a space, line feed or carriage return, which is
/// consumed too (after 7 characters the eighth is, whatever it is). A NUL does not end it: `text`
/// must reach 8 bytes past `*pos`.
uint32_t System_ReadNumber(const char *text, uint32_t *pos);

/// Hexadecimal number of exactly `digits` (at most 4) characters. Unknown characters count 0;
/// "P" to "Y" count 0 to 9, on purpose.
uint16_t System_ReadHexNumber(const char *text, uint32_t *pos, uint8_t digits);

/// Smaller of two; and v cut to low..high, the upper bound tested first.
int32_t System_min(int32_t a, int32_t b);
int32_t System_Clamp(int32_t v, int32_t low, int32_t high);

/// Toward zero and modulo 2^32; what no 64-bit integer holds is 0.
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

/// Next number, 0 to n - 1; `n` must not be 0.
uint16_t System_RaNDom(uint16_t n);

/// 1 when the file can be opened for reading, or the directory for listing; else 0.
uint8_t System_FileExists(const char *path);
uint8_t System_DirectoryExists(const char *path);

/// Reads a text file and a NUL into `buffer`; what does not fit is cut. Files of 65536 bytes and
/// more are read modulo 65536. Returns 0; a file that cannot be opened leaves `buffer` as it was.
int32_t System_LoadTextFile(const char *path, std::span<char> buffer);

/// Sleeps for the low 16 bits of `microseconds`.
void System_Sleep(uint32_t microseconds);
