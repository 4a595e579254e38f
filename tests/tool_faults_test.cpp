// A tool out of memory and on failing disks: what is missing is reported, and files are whole or as
// they were.
#include <algorithm>
#include <array>
#include <functional>
#include <iterator>

#include <unistd.h>

#include "tests/faults.h"
#include "tests/files.h"

int Tool_Main(int argc, char **argv);

namespace
{

struct RESULT {
    int Status;
    std::string Printed, Errors;
    BYTES Written;
    long Leaked;  // allocations
};

}  // namespace

static const BYTES Old = Text("old");

// Runs the tool in the test's folder, where OUT is an older file, while the fault is armed.
static RESULT Run(const std::string &words, FAULT &fault, long left)
{
    std::istringstream list("tool " + words);
    std::vector<std::string> all(std::istream_iterator<std::string>(list), {});
    std::vector<char *> arguments;
    for (std::string &word : all)
        arguments.push_back(word.data());
    const std::string out = all.back();
    if (out.starts_with("out."))
        WriteTemp(out, Old);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    RESULT result;
    const long live = Faults_Live();
    fault = {left, fault.Lasting};
    result.Status = Tool_Main(static_cast<int>(arguments.size()), arguments.data());
    fault.Left = -1;
    result.Leaked = Faults_Live() - live;
    std::fflush(stdout);
    result.Printed = testing::internal::GetCapturedStdout();
    result.Errors = testing::internal::GetCapturedStderr();
    if (out.starts_with("out."))
        result.Written = ReadFile(out);
    return result;
}

static ptrdiff_t Count(const char *folder)
{
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

// Every call of a kind fails in turn, alone or with all after it.
static void FailAll(const std::string &words, FAULT &fault, const char *kind)
{
    const RESULT whole = Run(words, fault, -1);
    const ptrdiff_t open = Count("/proc/self/fd"), files = Count(".");
    long leaked = 0;  // some decoders keep what they have until the next load
    for (const bool lasting : {false, true}) {
        fault.Lasting = lasting;
        for (long n = 0; n == 0 || fault.Struck; n++) {
            const RESULT part = Run(words, fault, n);
            SCOPED_TRACE(words + ", " + kind + " " + std::to_string(n) + ": " + part.Errors +
                         part.Printed);
            EXPECT_TRUE(part.Written == whole.Written || (part.Status == 1 && part.Written == Old));
            EXPECT_TRUE(part.Printed == whole.Printed || part.Status == 1);
            EXPECT_TRUE(part.Status == whole.Status || part.Status == 1) << part.Status;
            EXPECT_EQ(part.Status == 1, part.Errors.ends_with("\n"));
            leaked += part.Leaked;
            ASSERT_EQ(Count("/proc/self/fd"), open);
            ASSERT_EQ(Count("."), files);
            ASSERT_LT(n, 20000);
        }
    }
    const RESULT again = Run(words, fault, -1);
    EXPECT_EQ(again.Printed, whole.Printed) << words;
    EXPECT_EQ(again.Written, whole.Written) << words;
    EXPECT_EQ(leaked + again.Leaked, 0) << words << kind;
}

TEST(ToolFaults, NothingIsMissingInSilence)
{
    const std::pair<std::string, std::string> rows[] = {
        {"tessview", "--info small.gif folder"},
        {"tessview", "--info --json -r folder"},
        {"tessview", "--convert small.png out.png"},
        {"tessview", "--convert --upright small.gif out.bmp"},
        {"tessview", "--convert --compose --frame 1 small.gif out.pam"},
        {"tessview", "--convert --compress small.png out.ham8"},
        {"tessplay", "--info small.au list.m3u"},
        {"tessplay", "--info --json folder"},
        {"tessplay", "--convert small.au out.wav"},
        {"tessplay", "--convert --bits float --rate 22050 small.mp3 out.wav"},
        {"tessplay", "--convert --loop 2 small.au out.raw"},
    };
    const std::string files[][2] = {{"small.gif", "gif/animated-red-blue.gif"},
                                    {"small.png", "png/basi6a08.png"},
                                    {"small.au", "sounds/au/gen-s16-long-note.au"},
                                    {"small.mp3", "mp3_short.mp3"}};
    std::filesystem::create_directory(TempPath("folder"));
    std::filesystem::current_path(TempPath(""));
    WriteTemp("list.m3u", Text("small.au\nfolder/small.mp3\n"));
    for (const auto &[name, from] : files)
        for (const char *folder : {"", "folder/"})
            std::filesystem::copy(TEST_DATA + from, folder + name);
    for (const auto &[tool, words] : rows) {
        if (tool != TOOL)
            continue;
        if (!words.ends_with("folder"))  // libstdc++'s iterators end the program
            FailAll(words, Faults_Memory, "allocation");
        FailAll(words, Faults_Reads, "read");
        FailAll(words, Faults_Files, "call");
    }
}

// One line names the option, and nothing is done.
TEST(ToolFaults, WordsThatMakeNoSenseAreRefused)
{
    const std::pair<std::string, std::vector<std::string>> rows[] = {
        {"tessplay --raw",
         {"24,1,8000 x", "8,0,8000 x", "8,33,8000 x", "8,1,0 x", "8,1,768001 x", "16,2 x",
          "8,1,1,1 x"}},
        {"tessplay --start",
         {"1:2:3:4 x", "1::2 x", "1x x", "1:2.5:3 x", "1..5 x", "0000000000001 x"}},
        {"tessplay --length", {"-1 x"}},
        {"tessplay --convert", {"x", "x y.wav z.wav", "x y.mp3"}},
        {"tessplay --loop", {"0 --convert x y.wav"}},
        {"tessview --frame", {"-1 x", "one x", "all x"}},
        {"tessview --convert", {"x", "x y.png z.png", "x y.gif", "--to .gif x ."}},
        {"tessview --files", {"-"}},
    };
    for (const auto &[option, values] : rows)
        for (const std::string &value : values) {
            if (!option.starts_with(TOOL))
                continue;
            const RESULT result = ::Run(option.substr(9) + ' ' + value, Faults_Memory, -1);
            EXPECT_EQ(result.Status, 2) << value;
            EXPECT_EQ(result.Printed, "") << value;
            EXPECT_TRUE(result.Errors.starts_with(TOOL ": " + option.substr(9) + ": "))
                << value << result.Errors;
            EXPECT_EQ(std::ranges::count(result.Errors, '\n'), 1) << value;
        }
}
