#include "game/hiscore.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <regex>
#include <string>
#include <string_view>

#include <unistd.h>

#include "audio/audio.h"
#include "extra/heap.h"
#include "game/board.h"
#include "game/frame.h"
#include "game/minefield.h"
#include "game/moves.h"
#include "platform/system.h"
#include "platform/timer.h"

std::array<HISCORE, 10> HiScore;
std::array<char, 32> fnHiscore;
FILE *fhHiscore;
std::array<char, 32> tmpStr;

constexpr size_t NoPlace = 255;

// The clock never shows 1000 milliseconds, so every game of under 60 hours is better.
static HISCORE DefaultEntry()
{
    HISCORE entry{};
    std::strcpy(entry.Name.data(), "NoName");
    std::strcpy(entry.Record.data(), "59:59:59:1000, 10000");
    return entry;
}

void mine_fputs(const char *text)
{
    for (; *text; text++)
        std::fputc(*text, fhHiscore);
    std::fputc('\n', fhHiscore);
}

bool mine_fgets(std::span<char> buffer)
{
    size_t length = 0;
    int c = std::fgetc(fhHiscore);
    const bool there = c != EOF;
    for (; c != EOF && c != '\n'; c = std::fgetc(fhHiscore))
        if (c != '\r' && length + 1 < buffer.size())
            buffer[length++] = static_cast<char>(c);
    buffer[length] = 0;
    return there;
}

void NameHiscoreFile()
{
    std::array<char, 11> number;
    const auto append = [&number](uint32_t value, const char *text) {
        System_IntToStr(value, number.data());
        System_StrCat(fnHiscore.data(), number.data());
        System_StrCat(fnHiscore.data(), text);
    };
    System_StrCpy(fnHiscore.data(), "datas/topten_");
    append(xDim, "x");
    append(yDim, "_");
    append(nMines, ".txt");
}

// Whether the text is a result as the game writes it.
static bool IsRecord(const char *text)
{
    static const std::regex form("[0-9]{2,3}:[0-9]{2}:[0-9]{2}:[0-9]{4}, [0-9]{5,}");
    return std::regex_match(text, form);
}

int ReadHiscore()
{
    fhHiscore = std::fopen(fnHiscore.data(), "rb");
    for (HISCORE &entry : HiScore)
        if (!fhHiscore || !mine_fgets(entry.Name) || !mine_fgets(entry.Record) ||
            !IsRecord(entry.Record.data()))
            entry = DefaultEntry();
    const int error = !fhHiscore || std::ferror(fhHiscore) ? errno : 0;
    if (fhHiscore)
        std::fclose(fhHiscore);
    fhHiscore = nullptr;
    if (error != 0 && error != ENOENT)
        std::fprintf(stderr, "%s: cannot be read: %s\n", fnHiscore.data(), std::strerror(error));
    return error;
}

// Writes all of HiScore to a new file; false, with errno set, when any of it did not reach the
// disk.
static bool WriteFile(const char *path)
{
    fhHiscore = std::fopen(path, "wb");
    if (!fhHiscore)
        return false;
    for (const HISCORE &entry : HiScore) {
        mine_fputs(entry.Name.data());
        mine_fputs(entry.Record.data());
    }
    const bool written =
        !std::ferror(fhHiscore) && std::fflush(fhHiscore) == 0 && fsync(fileno(fhHiscore)) == 0;
    const int error = errno;
    const bool closed = std::fclose(fhHiscore) == 0;
    fhHiscore = nullptr;
    if (!written)
        errno = error;
    return written && closed;
}

void WriteHiscore()
{
    const std::string beside = std::string(fnHiscore.data()) + ".new";
    if (WriteFile(beside.c_str()) && std::rename(beside.c_str(), fnHiscore.data()) == 0)
        return;
    std::fprintf(stderr, "%s: cannot be written: %s\n", fnHiscore.data(), std::strerror(errno));
    std::remove(beside.c_str());
}

static void PrintHiscore()
{
    std::printf("TopTen (%dx%d-%d)\n", xDim, yDim, nMines);
    for (size_t i = 0; i < HiScore.size(); i++)
        std::printf("%2d.: %16s [%s steps]\n", static_cast<int>(i + 1), HiScore[i].Name.data(),
                    HiScore[i].Record.data());
}

// Puts the result into its place, a newer one above an equal older one; NoPlace when all are
// better.
static size_t EnterResult(const char *result)
{
    const auto place = std::find_if(HiScore.begin(), HiScore.end(), [result](const HISCORE &entry) {
        return std::strcmp(entry.Record.data(), result) >= 0;
    });
    if (place == HiScore.end())
        return NoPlace;
    std::move_backward(place, HiScore.end() - 1, HiScore.end());
    *place = {};
    std::strcpy(place->Name.data(), "??????");
    std::string_view(result).copy(place->Record.data(), place->Record.size() - 1);
    return static_cast<size_t>(place - HiScore.begin());
}

static void AskName(HISCORE &entry)
{
    entry.Name.fill(0);
    std::printf("What is your name? ");
    std::fflush(stdout);
    // An answer that starts with another character leaves the name empty. A name whose seventeenth
    // character is an s lets the line feed behind it wait for one more character: meant so.
    (void)!std::scanf("%16[0-9a-zA-Z ]s\n", entry.Name.data());
    std::printf("Have a good day dear %s!\n\n", entry.Name.data());
}

static void ShowLost()
{
    NameHiscoreFile();
    if (ReadHiscore() != 0)
        return;
    PrintHiscore();
    std::printf("\n");
}

static void ShowWon()
{
    std::printf("WoW! You may be managed to climb up to the hiscore table...\n");
    NameHiscoreFile();
    const int error = ReadHiscore();
    if (error == ENOENT)
        WriteHiscore();
    // `step` is the next step's number, one more than were made: results are kept that way.
    std::snprintf(tmpStr.data(), tmpStr.size(), "%02d:%02d:%02d:%04d, %05d", timeH, timeM, timeS,
                  timeMS * 10, static_cast<int>(step));
    const size_t place = EnterResult(tmpStr.data());
    PrintHiscore();
    if (place == NoPlace) {
        std::printf("It does not seem like that, sorry.\n\n");
        return;
    }
    AskName(HiScore[place]);
    if (error == 0 || error == ENOENT)
        WriteHiscore();
}

void Destroy()
{
    Timer_Destroy();
    Audio_Stop();
    std::printf("\nThank you for the playing. See U next time!\n\n");
    if (mb == GAME_WON)
        ShowWon();
    else
        ShowLost();
    Audio_SetMode(1);
    Audio_UnLoad(music);
    Extra_DestroyHeap(0);
    DestroyBoard();
}
