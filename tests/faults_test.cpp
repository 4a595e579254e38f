// Pictures out of memory and on failing disks: nothing or less, with a reason, and no leaks.
#include "tests/faults.h"

#include "picture/gif.h"
#include "picture/ham68.h"
#include "tests/pictures.h"

// One small file of each kind, and a missing one.
static std::vector<std::string> Files()
{
    std::vector<std::string> files;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(TEST_DATA))
        if (entry.is_regular_file() && entry.file_size() < 6000 &&
            Picture_Check(entry.path().c_str(), 0) != PICTURE_UNKNOWN)
            files.push_back(entry.path());
    const BYTES grey(32 * 8 * 4, 99);
    files.push_back(TempPath("a.ham8"));
    HAM68_Encoding(grey.data(), 32, 8, files.back().c_str(), 8 << 8);
    files.push_back(WriteTemp("a.spr", Text("SPR1.0\0\2\2\2") + BYTES(24)));
    files.push_back(
        WriteTemp("a.pam", Text("P7\nWIDTH 1\nHEIGHT 1\nDEPTH 4\nMAXVAL 9\nENDHDR\n1234")));
    return files;
}

// The pixels of a file loaded while the fault is armed, a GIF's last frame composed, and the
// reason.
static std::pair<BYTES, std::string> LoadWith(const std::string &path, FAULT &fault, long left)
{
    fault = {left, fault.Lasting};
    const Picture picture = Picture_Load(path.c_str(), 0, 0);
    GIF_CANVAS canvas;
    if (picture.Pixels && picture.Format == PICTURE_GIF && Picture_Rules == PICTURE_RULES_FORMAT)
        GIF_Compose(GIF_PictureOf(picture.Pixels), GIF_Header.FrameCount - 1u, canvas);
    fault.Left = -1;
    const std::string reason = Picture_Reason();
    const BYTES pixels = Cropped(picture) + BYTES(canvas.Screen.begin(), canvas.Screen.end());
    Picture_UnLoad(picture);
    return {pixels, reason};
}

static long LiveAfterLoad(const std::string &path)
{
    LoadWith(path, Faults_Memory, -1);
    return Faults_Live();
}

class Faults : public testing::TestWithParam<uint8_t>
{
};

TEST_P(Faults, NoMemoryIsAReasonAndNoLeak)
{
    const RULES rules(GetParam());
    LiveAfterLoad(TEST_DATA "tiff/white_packbits.tif");  // directories outlive the load
    for (const std::string &path : Files()) {
        const long before = Faults_Live();
        EXPECT_EQ(LiveAfterLoad(path), before) << path;
        const BYTES whole = LoadWith(path, Faults_Memory, -1).first;
        const long live = Faults_Live();
        for (long n = 0; n == 0 || Faults_Memory.Struck; n++) {
            const auto [pixels, reason] = LoadWith(path, Faults_Memory, n);
            const bool refused = Faults_Memory.Struck && reason == "out of memory" &&
                                 (pixels.empty() || path.ends_with(".gif"));  // its last frame
            EXPECT_TRUE(refused || pixels == whole) << path << n << reason;
            ASSERT_LT(n, 10000) << path;
        }
        EXPECT_EQ(LiveAfterLoad(path), live) << path;
    }
}

TEST_P(Faults, AFailedReadIsNoShorterFile)
{
    const RULES rules(GetParam());
    Faults_Reads.Lasting = true;
    for (const std::string &path : Files())
        for (long n = 0; n == 0 || Faults_Reads.Struck; n++) {
            const auto [pixels, reason] = LoadWith(path, Faults_Reads, n);
            if (Faults_Reads.Struck) {
                EXPECT_EQ(reason, "cannot be read: Input/output error") << path << n;
                EXPECT_TRUE(pixels.empty()) << path << ", read " << n;
            }
            ASSERT_LT(n, 100) << path;
        }
}

INSTANTIATE_TEST_SUITE_P(Rules, Faults,
                         testing::Values(PICTURE_RULES_FRAMEWORK, PICTURE_RULES_FORMAT));
