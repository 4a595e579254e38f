#include "game/hiscore.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <random>
#include <sstream>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "game/minefield.h"
#include "game/moves.h"
#include "game/session.h"
#include "tests/faults.h"
#include "tests/files.h"

// Tables of an 8 by 9 field with 10 mines, in a folder of their own.
class Hiscore : public testing::Test
{
protected:
    std::string folder = TempPath("folder");
    std::filesystem::path before = std::filesystem::current_path();

    void SetUp() override
    {
        std::filesystem::create_directories(folder + "/datas");
        std::filesystem::current_path(folder);
        xDim = 8, yDim = 9, nMines = 10;
        NameHiscoreFile();
    }
    void TearDown() override
    {
        std::filesystem::current_path(before);
        std::filesystem::remove_all(folder);
    }
    static void WriteText(const std::string &text)
    {
        std::ofstream(fnHiscore.data(), std::ios::binary) << text;
    }
    static std::string ReadText()
    {
        const BYTES text = ReadFile(fnHiscore.data());
        return {text.begin(), text.end()};
    }
};

constexpr char defaultEntry[] = "NoName\n59:59:59:1000, 10000\n";

TEST_F(Hiscore, WhatTheFileLacksIsDefault)
{
    const std::string good = "Anna 2\n00:00:12:0340, 00013\n", empty = "\n00:01:00:0000, 00020\n";
    const std::tuple<const char *, std::string, std::string> rows[] = {
        {"as the game writes it", good + empty + Repeat(defaultEntry, 8),
         good + empty + Repeat(defaultEntry, 8)},
        {"empty", "", Repeat(defaultEntry, 10)},
        {"cut in a record", good + "Bob\n00:00:1", good + Repeat(defaultEntry, 9)},
        {"carriage returns, no last line feed", "Bob\r\n00:00:12:0340, 00013",
         "Bob\n00:00:12:0340, 00013\n" + Repeat(defaultEntry, 9)},
        {"a name too long", std::string(300, 'x') + "\n00:00:12:0340, 00013\n",
         std::string(19, 'x') + "\n00:00:12:0340, 00013\n" + Repeat(defaultEntry, 9)},
        {"an invalid record", "Bob\nfast\n" + good, defaultEntry + good + Repeat(defaultEntry, 8)},
        {"a hundred hours and steps", "Bob\n255:59:59:0990, 123456\n",
         "Bob\n255:59:59:0990, 123456\n" + Repeat(defaultEntry, 9)},
        {"more than ten", Repeat(good, 12), Repeat(good, 10)},
    };
    for (const auto &[what, file, table] : rows) {
        WriteText(file);
        ReadHiscore();
        WriteHiscore();
        EXPECT_EQ(ReadText(), table) << what;
    }
}

TEST_F(Hiscore, ResultsFindTheirPlaceInTheFileAsItIs)
{
    const auto save = [](const char *record, const char *name, const char *instead) {
        const HISCORE_SAVED saved = SaveHiscore(record, name, instead);
        EXPECT_EQ(saved.ReadError | saved.WriteError, 0) << record;
        return saved.Place;
    };
    constexpr char quick[] = "00:00:10:0000, 00009", slow[] = "00:01:00:0000, 00020",
                   endless[] = "60:00:00:0000, 00001";
    EXPECT_EQ(SaveHiscore(endless, "Eva", nullptr).Place, NoPlace);
    EXPECT_EQ(ReadText(), Repeat(defaultEntry, 10)) << "made all the same";
    EXPECT_EQ(save(slow, "??????", nullptr), 0u);
    EXPECT_EQ(save(quick, "Bob", nullptr), 0u) << "another game, meanwhile";
    EXPECT_EQ(save(slow, "Bea", nullptr), 1u) << "above an equal one";
    EXPECT_EQ(save(slow, "Anna", "??????"), 1u) << "its name is known";
    const std::string three = std::string("Bob\n") + quick + "\nAnna\n" + slow + "\nBea\n" + slow;
    EXPECT_EQ(ReadText(), three + '\n' + Repeat(defaultEntry, 7));
    WriteText(Repeat(std::string("Bob\n") + quick + '\n', 10));
    EXPECT_EQ(save(slow, "Anna", "??????"), NoPlace) << "ten were better, meanwhile";
    EXPECT_EQ(save(quick, "Zoe", nullptr), 0u);
}

TEST_F(Hiscore, ADamagedFileIsKeptOnce)
{
    const std::string bad = std::string(fnHiscore.data()) + ".bad";
    const std::string good = Repeat("Anna\r\n00:00:12:0340, 00013\r\n", 10);
    for (const std::string &file : {std::string(), good, good.substr(0, good.size() - 1)}) {
        WriteText(file);
        SaveHiscore("00:00:01:0000, 00002", "Bob", nullptr);
        EXPECT_FALSE(std::filesystem::exists(bad)) << "nothing is lost of it";
    }
    for (const char *damage : {"Anna\n00:00:1", "another"}) {
        WriteText(damage);
        SaveHiscore("00:00:01:0000, 00002", "Bob", nullptr);
        EXPECT_EQ(ReadText(), "Bob\n00:00:01:0000, 00002\n" + Repeat(defaultEntry, 9));
        EXPECT_EQ(ReadFile(bad), Text("Anna\n00:00:1")) << damage;
    }
}

// Memory, each read, and each step of writing fail in turn, alone or with all after it.
TEST_F(Hiscore, AFailingCallLosesNothing)
{
    const std::string added = "Bob\n00:00:01:0000, 00002\n", table = Repeat(defaultEntry, 10);
    const std::string bad = std::string(fnHiscore.data()) + ".bad";
    const auto save = [&](FAULT &fault, long left) {
        fault = {left, fault.Lasting};
        const HISCORE_SAVED saved = SaveHiscore("00:00:01:0000, 00002", "Bob", nullptr);
        fault.Left = -1;
        return (saved.ReadError | saved.WriteError) != 0;
    };
    for (const std::string &old : {table, std::string("Anna\n00:00:1")})
        for (FAULT *fault : {&Faults_Memory, &Faults_Reads, &Faults_Files})
            for (const bool lasting : {false, true}) {
                fault->Lasting = lasting;
                long n = -1, live = 0;
                for (bool struck = true; struck; struck = n++ == -1 || fault->Struck) {
                    SCOPED_TRACE(old + std::to_string(fault - &Faults_Memory) + ' ' +
                                 std::to_string(n));
                    std::filesystem::remove(bad);
                    WriteText(old);
                    live = Faults_Live();
                    const bool failed = save(*fault, n);
                    EXPECT_TRUE(n < 1 || Faults_Live() == live);
                    const std::string text = ReadText();
                    EXPECT_EQ(text, failed ? old : added + Repeat(defaultEntry, 9));
                    EXPECT_TRUE(failed || old == table ||
                                ReadFile(bad) == BYTES(old.begin(), old.end()));
                    EXPECT_LE(std::distance(std::filesystem::directory_iterator("datas"), {}), 3);
                }
            }
}

// What a won or a lost game prints on standard error.
static std::string End(uint8_t end)
{
    mb = end;
    testing::internal::CaptureStderr();
    Destroy();
    return testing::internal::GetCapturedStderr();
}

TEST_F(Hiscore, FilesThatCannotBeReplacedStay)
{
    const std::string name = fnHiscore.data();
    ASSERT_TRUE(std::freopen("/dev/null", "r", stdin));
    WriteText("old");
    std::filesystem::permissions(name, std::filesystem::perms{0444});
    EXPECT_EQ(End(GAME_WON), name + ": cannot be written: Permission denied\n");
    EXPECT_EQ(ReadText(), "old");
    std::filesystem::remove(name);
    std::filesystem::create_directory(name);
    EXPECT_EQ(End(GAME_WON), name + ": cannot be read: Is a directory\n");
    std::filesystem::remove(name);
    std::filesystem::create_symlink("topten_8x9_10.txt", name);  // to itself
    const std::string refusal = name + ": cannot be read: Too many levels of symbolic links\n";
    EXPECT_EQ(End(GAME_WON), refusal);
    EXPECT_EQ(End(GAME_SPINNING), "") << "the same error is not reported again";
}

// Progress of each result that several games save: 0, 1 without its name, 2 with it.
using SAVED = std::array<std::atomic<uint8_t>, 8>;

static std::string RecordOf(size_t i)
{
    return "00:00:0" + std::to_string(i * 5 % 8) + ":0000, 00002";
}

[[noreturn]] static void SaveResults(SAVED &saved, size_t first, size_t count)
{
    for (size_t i = first; i < first + count; i++)
        for (const std::string &name : {std::string("??????"), "name " + std::to_string(i)}) {
            const char *instead = saved[i] == 0 ? nullptr : "??????";
            if (SaveHiscore(RecordOf(i).c_str(), name.c_str(), instead).WriteError != 0)
                _exit(1);
            saved[i]++;
        }
    _exit(0);
}

// Whether the file is one that the game writes, or missing: 20 lines, ordered.
static bool IsWhole(const std::string &text)
{
    std::istringstream lines(text);
    std::string name, record, before;
    int count = 0;
    for (; std::getline(lines, name) && std::getline(lines, record); before = record, count++)
        if (record.size() < 20 || record < before)
            return false;
    return text.empty() || (count == 10 && text.back() == '\n');
}

// Games killed at any moment: the table is always whole and holds every saved result.
// TESSARUVINEL_ROUNDS sets the number of rounds, for two and for four games each.
TEST_F(Hiscore, KilledGamesLoseNothingThatWasSaved)
{
    const char *setting = std::getenv("TESSARUVINEL_ROUNDS");
    const int rounds = setting ? std::atoi(setting) : 25;
    void *shared =
        mmap(nullptr, sizeof(SAVED), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    std::mt19937 random(1);
    int kills = 0;
    Faults_FileTime = 100;
    for (const size_t games : {2u, 4u}) {
        std::chrono::microseconds whole{};  // about the time of an undisturbed game
        for (int round = 0; round <= rounds; round++) {
            const auto saved = new (shared) SAVED{};
            std::filesystem::remove_all("datas");
            std::filesystem::create_directory("datas");
            const auto start = std::chrono::steady_clock::now();
            std::vector<pid_t> running;
            for (size_t i = 0; i < games; i++) {
                const pid_t game = fork();
                ASSERT_GE(game, 0);
                if (game == 0)
                    SaveResults(*saved, 8 / games * i, 8 / games);
                running.push_back(game);
            }
            for (const pid_t game : running) {
                if (round != 0) {
                    std::this_thread::sleep_for(whole * (random() % 1000) / 1000 / games);
                    kill(game, SIGKILL);
                    ASSERT_TRUE(IsWhole(ReadText())) << round << ReadText();
                }
                int status;
                ASSERT_EQ(waitpid(game, &status, 0), game);
                whole += whole / (WIFSIGNALED(status) ? 10 : -10);  // so that half are killed
                ASSERT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0) << "round " << round;
                kills += WIFSIGNALED(status);
            }
            if (round == 0)
                whole = std::chrono::duration_cast<std::chrono::microseconds>(
                    std::chrono::steady_clock::now() - start);
            ASSERT_TRUE(IsWhole(ReadText())) << round << ReadText();
            ReadHiscore();
            for (size_t i = 0; i < saved->size(); i++) {
                const std::string record = RecordOf(i);
                const auto is = [&](const HISCORE &entry) { return entry.Record.data() == record; };
                const int steps = (*saved)[i];
                ASSERT_LE(std::ranges::count_if(HiScore, is), 1) << "round " << round;
                const auto entry = std::ranges::find_if(HiScore, is);
                ASSERT_TRUE(steps == 0 || entry != HiScore.end()) << "lost in round " << round;
                ASSERT_TRUE(steps < 2 || std::string("??????") != entry->Name.data()) << round;
            }
        }
    }
    Faults_FileTime = 0;
    munmap(shared, sizeof(SAVED));
    EXPECT_GT(kills, rounds) << "the games were too fast to be killed";
}
