// Files that are replaced as a whole, or unchanged.
#include "extra/replace.h"

#include <cerrno>
#include <filesystem>
#include <functional>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/files.h"

namespace fs = std::filesystem;

// A folder that contains "old", checked to be as the last test had to leave it.
class Replace : public testing::Test
{
protected:
    fs::path folder = TempPath("replace");
    std::string path = folder / "old";

    void SetUp() override
    {
        fs::create_directory(folder);
        std::ofstream(path) << "old";
    }
    void TearDown() override
    {
        fs::remove_all(folder);
    }
    static std::string Read(const std::string &file)
    {
        const BYTES bytes = ReadFile(file);
        return {bytes.begin(), bytes.end()};
    }
    // Replaces the file with so many letters; returns the result of Replace_Open or Replace_Commit.
    static int Write(const std::string &file, size_t letters)
    {
        REPLACE replace;
        const int error = Replace_Open(replace, file);
        if (error != 0)
            return error;
        for (size_t i = 0; i < letters; i++)
            std::fputc('n', replace.File);
        return Replace_Commit(replace);
    }
    size_t Files()
    {
        return static_cast<size_t>(std::distance(fs::directory_iterator(folder), {}));
    }
};

static mode_t Mode(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST_F(Replace, TargetsTakenAndRefused)
{
    const std::string link = folder / "link";
    const auto linkTo = [&](const char *to) { return [=] { fs::create_symlink(to, link); }; };
    const struct {
        const char *what;
        std::function<void()> prepare;
        std::string target;
        int error;
        std::string written;  // the file that then holds the new text
    } rows[] = {
        {"a file", [] {}, path, 0, "old"},
        {"a new file", [] {}, folder / "new", 0, "new"},
        {"a name as long as names may be", [] {}, folder / std::string(255, 'x'), 0,
         std::string(255, 'x')},
        {"a link", linkTo("old"), link, 0, "old"},
        {"a link to nothing yet", linkTo("new"), link, 0, "new"},
        {"a link to itself", linkTo("link"), link, ELOOP, ""},
        {"a link to a folder", linkTo("."), link, EISDIR, ""},
        {"read-only", [&] { fs::permissions(path, fs::perms{0444}); }, path, EACCES, ""},
        {"a pipe", [&] { ASSERT_EQ(mkfifo(link.c_str(), 0600), 0); }, link, ENOTSUP, ""},
        {"no such folder", [] {}, folder / "none" / "new", ENOENT, ""},
    };
    for (const auto &r : rows) {
        TearDown();
        SetUp();
        r.prepare();
        const bool linked = fs::is_symlink(link);
        EXPECT_EQ(Write(r.target, 3), r.error) << r.what;
        EXPECT_EQ(Read(folder / (r.error == 0 ? r.written : "old")), r.error == 0 ? "nnn" : "old")
            << r.what;
        EXPECT_EQ(fs::is_symlink(link), linked) << r.what;
        const size_t expected =
            1u + (r.written != "" && r.written != "old") + fs::exists(fs::symlink_status(link));
        EXPECT_EQ(Files(), expected) << r.what;
    }
}

TEST_F(Replace, ModesAreKept)
{
    for (const mode_t mode : {0600u, 0640u, 0666u, 0755u}) {
        fs::permissions(path, fs::perms{mode});
        EXPECT_EQ(Write(path, 3), 0);
        EXPECT_EQ(Mode(path), mode);
    }
    const mode_t mask = umask(027);
    EXPECT_EQ(Write(folder / "new", 3), 0);
    umask(mask);
    EXPECT_EQ(Mode(folder / "new"), 0640u);
}

TEST_F(Replace, WritersDoNotMeet)
{
    const int free = dup(0);
    close(free);
    {
        REPLACE first, second, dropped;
        ASSERT_EQ(Replace_Open(first, path), 0);
        ASSERT_EQ(Replace_Open(second, path), 0);
        std::string left = second.Beside;  // what a killed writer leaves under the next name
        const size_t at = left.rfind('-') + 1;
        left.replace(at, left.rfind('.') - at, std::to_string(std::stoi(left.substr(at)) + 1));
        std::ofstream(left) << "left";
        ASSERT_EQ(Replace_Open(dropped, path), 0);
        EXPECT_EQ(Read(left), "left");
        fs::remove(left);
        std::fputs("1", first.File);
        std::fputs("2", second.File);
        EXPECT_EQ(Replace_Commit(second), 0);
        EXPECT_EQ(Read(path), "2");
        EXPECT_EQ(Replace_Commit(first), 0);
        EXPECT_EQ(Replace_Commit(first), EBADF) << "once";
    }
    EXPECT_EQ(Read(path), "1");
    EXPECT_EQ(Files(), 1u);
    EXPECT_EQ(dup(0), free) << "all descriptors are closed";
    close(free);
}
