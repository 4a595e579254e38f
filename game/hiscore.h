// The end of the game: the top-ten table of this field size and number of mines, in a text file of
// 20 lines, and the release of everything.
#pragma once

#include <array>
#include <cstdint>
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
extern std::array<char, 32> tmpStr;     // the player's result

/// Writes the text and a line feed to fhHiscore.
void mine_fputs(const char *text);

/// Reads a line of fhHiscore into `buffer` without its line feed and any carriage return; what does
/// not fit is cut. False when the file had ended before it.
bool mine_fgets(std::span<char> buffer);

/// Sets fnHiscore to the file of this field and mine count.
void NameHiscoreFile();

/// Fills HiScore from the file. A place that it lacks, or whose record is none, gets the default.
/// Gives 0, ENOENT without a file, or after a line on standard error another value of errno: a file
/// is there but cannot be read, and must not be replaced.
int ReadHiscore();

/// Writes HiScore beside the file and then puts it in its place; says so on standard error when it
/// cannot, and the old file stays.
void WriteHiscore();

/// Stops clock and music, says goodbye, shows the table, enters a won game's result and asks for
/// the player's name, and releases everything.
void Destroy();
