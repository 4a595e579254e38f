// The top-ten table for this field size and number of mines, and its text file of 20 lines.
#pragma once

#include <array>
#include <cstddef>
#include <cstdio>
#include <span>

/// One place of the table, best first.
struct HISCORE {
    std::array<char, 20> Name;    // NUL-terminated, at most 16 characters when typed in
    std::array<char, 24> Record;  // NUL-terminated: hours:minutes:seconds:milliseconds, steps
};
extern std::array<HISCORE, 10> HiScore;

extern std::array<char, 32> fnHiscore;  // the table's file
extern FILE *fhHiscore;                 // that file, while open

/// The place of a result that is not better than any of the ten.
constexpr size_t NoPlace = 255;

/// Writes the text and a line feed to fhHiscore.
void mine_fputs(const char *text);

/// Reads a line of fhHiscore into `buffer` without its line feed and any carriage return; what does
/// not fit is truncated. False at the end of the file.
bool mine_fgets(std::span<char> buffer);

/// Sets fnHiscore to the file name for this field and mine count.
void NameHiscoreFile();

/// Fills HiScore from the file. A place that is missing, or whose record is malformed, gets the
/// default. Returns 0, ENOENT without a file, or another errno: the file exists but cannot be read
/// and must not be overwritten.
int ReadHiscore();

/// Replaces the file by HiScore (extra/replace.h). The first damaged file is kept under its name
/// plus ".bad". Returns 0 or an errno; on an error the old file stays.
int WriteHiscore();

/// Prints HiScore with a heading.
void PrintHiscore();

/// The result of SaveHiscore; errors are errnos, 0 for none.
struct HISCORE_SAVED {
    size_t Place;  // of the result, or NoPlace
    int ReadError;
    int WriteError;
};

/// Enters a result in the file, safely while other games do the same. Under a lock (the file's name
/// plus ".lock") it reads the table anew, removes the entry with this record and the name `before`,
/// if any, and inserts the result above the first entry that is not better. Then the file is
/// replaced; a result that gets no place is written only if no file exists. HiScore is the new
/// table, even if writing fails. `before` may be null.
HISCORE_SAVED SaveHiscore(const char *record, const char *name, const char *before);
