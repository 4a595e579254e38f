// The top-ten table of this field size and number of mines, and its text file of 20 lines.
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
extern FILE *fhHiscore;                 // while it is open

/// The place of a result that all ten are better than.
constexpr size_t NoPlace = 255;

/// Writes the text and a line feed to fhHiscore.
void mine_fputs(const char *text);

/// Reads a line of fhHiscore into `buffer` without its line feed and any carriage return; what does
/// not fit is cut. False when the file had ended before it.
bool mine_fgets(std::span<char> buffer);

/// Sets fnHiscore to the file of this field and mine count.
void NameHiscoreFile();

/// Fills HiScore from the file. A place that it lacks, or whose record is none, gets the default.
/// Returns 0, ENOENT without a file, or another errno: the file exists but cannot be read and must
/// not be overwritten.
int ReadHiscore();

/// Replaces the file by HiScore (extra/replace.h). The first damaged file is kept: with ".bad"
/// after its name. Returns 0 or an errno; then the old file stays.
int WriteHiscore();

/// Prints HiScore with a heading.
void PrintHiscore();

/// What SaveHiscore did; the errors are errnos, 0 for none.
struct HISCORE_SAVED {
    size_t Place;  // of the result, or NoPlace
    int ReadError;
    int WriteError;
};

/// Enters a result in the file, also while other games do: under a lock (the file's name and
/// ".lock") the table is read anew, the entry of this record under the name `before`, if there is
/// one, is taken out, and the result is put above the first entry that is not better. Then the file
/// is replaced; a result without a place only makes one where no file exists. HiScore is the new
/// table, also where it cannot be written. `before` may be null.
HISCORE_SAVED SaveHiscore(const char *record, const char *name, const char *before);
