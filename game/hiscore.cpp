#include "game/hiscore.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <regex>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "extra/bytes.h"
#include "extra/replace.h"
#include "game/minefield.h"
#include "platform/system.h"

std::array<HISCORE, 10> HiScore;
std::array<char, 32> fnHiscore;
FILE *fhHiscore;

static bool damaged;  // the file read last is not as the game writes it

// Returns what `body` returns, or ENOMEM.
template <typename Body>
static int WithMemory(const Body &body)
{
    try {
        return body();
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    }
}

// Excludes other games that save to the same table. Without the lock (a read-only folder, a file
// system without locks) saving is tried all the same.
namespace
{
class LOCK
{
public:
    LOCK()
    {
        WithMemory([this] { return Take(fnHiscore.data()); });
    }
    ~LOCK()
    {
        if (file >= 0)
            close(file);
    }
    LOCK(const LOCK &) = delete;
    LOCK &operator=(const LOCK &) = delete;

private:
    int Take(std::string path)
    {
        const int error = Replace_Resolve(path);
        if (error != 0)
            return error;
        file = open((path + ".lock").c_str(), O_RDONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0666);
        while (file >= 0 && flock(file, LOCK_EX) != 0 && errno == EINTR)
            continue;
        return 0;
    }

    int file = -1;
};
}  // namespace

static HISCORE Entry(std::string_view name, std::string_view record)
{
    HISCORE entry{};
    name.copy(entry.Name.data(), entry.Name.size() - 1);
    record.copy(entry.Record.data(), entry.Record.size() - 1);
    return entry;
}

// The clock never shows 1000 milliseconds, so every game under 60 hours is better.
static HISCORE DefaultEntry()
{
    return Entry("NoName", "59:59:59:1000, 10000");
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

// Whether the text is a record as the game writes it.
static bool IsRecord(const char *text)
{
    static const std::regex form("[0-9]{2,3}:[0-9]{2}:[0-9]{2}:[0-9]{4}, [0-9]{5,}");
    return std::regex_match(text, form);
}

// Whether writing HiScore, just read from the open file, would lose more than line endings.
static bool IsDamaged()
{
    std::string file, table;
    for (const HISCORE &entry : HiScore)
        table += std::string(entry.Name.data()) + '\n' + entry.Record.data() + '\n';
    std::fseek(fhHiscore, 0, SEEK_SET);
    for (int c; file.size() <= table.size() && (c = std::fgetc(fhHiscore)) != EOF;)
        if (c != '\r')
            file += static_cast<char>(c);
    if (!file.empty() && file.back() != '\n')
        file += '\n';
    return !file.empty() && file != table;
}

static int ReadOpened()
{
    for (HISCORE &entry : HiScore)
        if (!fhHiscore || !mine_fgets(entry.Name) || !mine_fgets(entry.Record) ||
            !IsRecord(entry.Record.data()))
            entry = DefaultEntry();
    damaged = fhHiscore && IsDamaged();
    return fhHiscore && !std::ferror(fhHiscore) ? 0 : errno != 0 ? errno : EIO;
}

int ReadHiscore()
{
    fhHiscore = std::fopen(fnHiscore.data(), "rb");
    const int error = WithMemory(ReadOpened);
    if (fhHiscore)
        std::fclose(fhHiscore);
    fhHiscore = nullptr;
    return error;
}

// Copies the file to its name plus ".bad", unless that exists.
static int KeepDamaged()
{
    std::string bad = fnHiscore.data();
    const int error = Replace_Resolve(bad);
    bad += ".bad";
    struct stat status;
    if (error != 0 || lstat(bad.c_str(), &status) == 0)
        return error;
    REPLACE copy;
    if (const int refused = Replace_Open(copy, bad))
        return refused;
    const BYTES_BUFFER bytes = Bytes_LoadFile(fnHiscore.data());
    if (bytes.empty())  // which a damaged file is not
        return EIO;
    std::fwrite(bytes.data(), 1, bytes.size(), copy.File);
    return Replace_Commit(copy);
}

static int Write()
{
    REPLACE file;
    int error = Replace_Open(file, fnHiscore.data());
    if (error == 0 && damaged)
        error = KeepDamaged();
    if (error != 0)
        return error;
    fhHiscore = file.File;
    for (const HISCORE &entry : HiScore) {
        mine_fputs(entry.Name.data());
        mine_fputs(entry.Record.data());
    }
    fhHiscore = nullptr;
    return Replace_Commit(file);
}

int WriteHiscore()
{
    return WithMemory(Write);
}

void PrintHiscore()
{
    std::printf("TopTen (%dx%d-%d)\n", xDim, yDim, nMines);
    for (size_t i = 0; i < HiScore.size(); i++)
        std::printf("%2d.: %16s [%s steps]\n", static_cast<int>(i + 1), HiScore[i].Name.data(),
                    HiScore[i].Record.data());
}

static void TakeOut(const char *record, const char *name)
{
    const auto entry = std::find_if(HiScore.begin(), HiScore.end(), [&](const HISCORE &e) {
        return std::strcmp(e.Record.data(), record) == 0 && std::strcmp(e.Name.data(), name) == 0;
    });
    if (entry == HiScore.end())
        return;
    std::move(entry + 1, HiScore.end(), entry);
    HiScore.back() = DefaultEntry();
}

// Inserts the result, above an equal older one.
static size_t PutIn(const char *record, const char *name)
{
    const auto place = std::find_if(HiScore.begin(), HiScore.end(), [record](const HISCORE &entry) {
        return std::strcmp(entry.Record.data(), record) >= 0;
    });
    if (place == HiScore.end())
        return NoPlace;
    std::move_backward(place, HiScore.end() - 1, HiScore.end());
    *place = Entry(name, record);
    return static_cast<size_t>(place - HiScore.begin());
}

HISCORE_SAVED SaveHiscore(const char *record, const char *name, const char *before)
{
    const LOCK lock;
    HISCORE_SAVED saved{};
    const int error = ReadHiscore();
    if (before)
        TakeOut(record, before);
    saved.Place = PutIn(record, name);
    if (error != 0 && error != ENOENT)
        saved.ReadError = error;
    else if (saved.Place != NoPlace || error == ENOENT)
        saved.WriteError = WriteHiscore();
    return saved;
}
