// Every picture of tests/data (and of the folder named by CORPUS) decoded by four threads at once
// under different rules, and used and unloaded on another thread: the same as on one thread.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <thread>

#include "tests/pictures.h"

namespace
{

using FILES = std::vector<std::pair<std::string, BYTES>>;

struct LOADED_FILE {
    size_t File = 0;
    uint8_t Rules = 0;
    Picture Record{};
    std::string Reason;
};

}  // namespace

static FILES PictureFiles()
{
    FILES files;
    std::vector<std::string> folders = {TEST_DATA};
    if (const char *corpus = std::getenv("CORPUS"))
        folders.push_back(corpus);
    for (const std::string &folder : folders)
        for (const auto &entry : std::filesystem::recursive_directory_iterator(folder))
            if (entry.is_regular_file()) {
                BYTES bytes = ReadFile(entry.path());
                if (Picture_CheckBytes(bytes, 0) != PICTURE_UNKNOWN)
                    files.emplace_back(entry.path(), std::move(bytes));
            }
    return files;
}

// A load's complete result, as text.
static std::string Summary(const LOADED_FILE &file)
{
    const Picture &p = file.Record;
    const size_t thumb = p.ThumbPixels ? size_t{p.ThumbBufferWidth} * p.ThumbHeight * 4 : 0;
    std::array<char, 200> text;
    std::snprintf(text.data(), text.size(),
                  "%d %dx%d %d bits %016llx thumbnail %dx%d %016llx: ", p.Format, p.Width, p.Height,
                  p.Bits, static_cast<unsigned long long>(Digest(Cropped(p))), p.ThumbWidth,
                  p.ThumbHeight, static_cast<unsigned long long>(Digest({p.ThumbPixels, thumb})));
    return text.data() + file.Reason;
}

static LOADED_FILE Load(const FILES &files, size_t i, uint8_t rules, bool fromMemory)
{
    Picture_Rules = rules;
    const auto &[path, bytes] = files[i];
    LOADED_FILE file{i, rules, {}, {}};
    file.Record = fromMemory ? Picture_LoadBytes(bytes, 0, 0) : Picture_Load(path.c_str(), 0, 0);
    file.Reason = Picture_Reason();
    return file;
}

// One thread's result for every file under both rules; from memory the same as from its path.
static std::array<std::vector<std::string>, 2> ExpectedOf(const FILES &files,
                                                          std::map<std::string, std::string> &wrong)
{
    std::array<std::vector<std::string>, 2> expected;
    for (const uint8_t rules : {uint8_t{0}, uint8_t{1}})
        for (size_t i = 0; i < files.size(); i++)
            for (const bool fromMemory : {false, true}) {
                const LOADED_FILE file = Load(files, i, rules, fromMemory);
                const std::string summary = Summary(file);
                Picture_UnLoad(file.Record);
                if (!fromMemory)
                    expected[rules].push_back(summary);
                else if (summary != expected[rules].back())
                    wrong[files[i].first] = "from memory " + summary;
            }
    Picture_Rules = PICTURE_RULES_FRAMEWORK;
    return expected;
}

static std::map<std::string, std::string> DecodeAll(const FILES &files)
{
    std::map<std::string, std::string> wrong;
    const auto expected = ExpectedOf(files, wrong);
    std::mutex lock;
    const auto check = [&](const LOADED_FILE &file) {
        const std::string summary = Summary(file);
        Picture_UnLoad(file.Record);
        const std::lock_guard guard(lock);
        if (summary != expected[file.Rules][file.File])
            wrong[files[file.File].first] = summary + ", not " + expected[file.Rules][file.File];
    };
    // Each thread takes the picture that another has left, and leaves its own.
    LOADED_FILE left = Load(files, 0, PICTURE_RULES_FRAMEWORK, true);
    std::array<std::thread, 4> threads;
    for (size_t t = 0; t < threads.size(); t++)
        threads[t] = std::thread([&, t] {
            for (size_t n = 0; n < files.size(); n++) {
                const size_t i = (n + t * files.size() / threads.size()) % files.size();
                LOADED_FILE file = Load(files, i, static_cast<uint8_t>(t % 2), t < 2);
                {
                    const std::lock_guard guard(lock);
                    std::swap(file, left);
                }
                check(file);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    check(left);
    return wrong;
}

TEST(PictureThreads, DecodeAsOneThreadDoes)
{
    const FILES files = PictureFiles();
    ASSERT_GT(files.size(), 30u);
    testing::internal::CaptureStdout();  // decoders trace
    const auto wrong = DecodeAll(files);
    testing::internal::GetCapturedStdout();
    for (const auto &[path, summary] : wrong)
        ADD_FAILURE() << path << ": " << summary;
}
