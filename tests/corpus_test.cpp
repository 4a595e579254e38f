// Every picture of a folder of real files against other decoders' results, under the framework's
// rules and each format's own. The environment variable CORPUS names the folder; its expected.tsv
// lists file, kind, size and digests. Photos need djpeg.
#include <cctype>

#include <sys/wait.h>

#include "picture/gif.h"
#include "picture/jpg.h"
#include "tests/pictures.h"
#include "tests/sha256.h"

using ROW = std::vector<std::string>;
enum COLUMN { File, Kind, Width, Height, Sha, ShaWithoutTransparent, Features = 8, Note };

// Whether a file's result differs from the other decoders' on purpose.
static bool Deviates(const std::string &file, const std::string &rules)
{
    static const auto deviations = ReadTable(TEST_DATA "deviations.tsv");
    return std::ranges::any_of(deviations,
                               [&](const ROW &row) { return row[0] == file && row[1] == rules; });
}

static std::string Folder()
{
    const char *folder = std::getenv("CORPUS");
    return folder ? std::string(folder) + "/" : "";
}

// The rows of a table, padded to the same number of fields.
static std::vector<ROW> Table(const std::string &name)
{
    auto rows = ReadTable(Folder() + name);
    for (auto &row : rows)
        row.resize(10);
    return rows;
}

static BYTES WithoutTransparent(BYTES pixels)
{
    for (size_t i = 0; i < pixels.size(); i += 4)
        if (pixels[i + 3] == 0)
            std::fill_n(pixels.begin() + static_cast<ptrdiff_t>(i), 3, uint8_t{0});
    return pixels;
}

// Within 2 levels, and 45 dB on the whole.
static bool IsClose(const BYTES &rgba, const BYTES &rgb)
{
    if (rgba.size() / 4 != rgb.size() / 3)
        return false;
    int greatest = 0;
    double squares = 0;
    for (size_t i = 0; i < rgb.size(); i++) {
        const int d = std::abs(rgba[i / 3 * 4 + i % 3] - rgb[i]);
        greatest = std::max(greatest, d);
        squares += d * d;
    }
    return greatest <= 2 && squares <= 2.056 * static_cast<double>(rgb.size());
}

static BYTES RunDjpeg(const std::string &options, const std::string &path)
{
    const std::string out = TempPath("djpeg.pnm");
    const std::string command = "djpeg -dct float " + options + " -pnm '" + path + "' > " + out;
    const int status = std::system(command.c_str());
    return status == 0 || WEXITSTATUS(status) == 2 ? SamplesOfPNM(out) : BYTES{};  // 2: warnings
}

static bool ContainsAny(const std::string &text, std::initializer_list<const char *> words)
{
    return std::ranges::any_of(
        words, [&](const char *word) { return text.find(word) != std::string::npos; });
}

// Files that exercise the formats' own rules beyond the framework's: named after their collections,
// or made for the purpose.
static bool IsBeyondFramework(const std::string &file)
{
    return ContainsAny(file, {"__", "/gen-"});
}

// TIFF files of floating point, of 32-bit samples, or compressed by zstd or WebP.
static bool IsLeftOut(const ROW &row)
{
    return row[File].starts_with("tiff/") &&
           (ContainsAny(row[File], {"-fp16-"}) ||
            ContainsAny(row[Features], {"bps=32", "bps=64", "comp=50000 ", "comp=50001 "}));
}

// Damaged files show what is left, for which there is no digest.
static bool IsDamaged(const std::string &file)
{
    return ContainsAny(file, {"crashtest", "cut", "truncated", "scan00", "missing"});
}

// Whether pixels match the other decoders' result.
static bool Matches(const ROW &row, const BYTES &pixels)
{
    const std::string digest = Sha256(pixels);
    return digest == row[Sha] || Sha256(WithoutTransparent(pixels)) == row[ShaWithoutTransparent] ||
           (row[Kind] == "split" && row[Note].find(digest) != std::string::npos);
}

static void Check(const ROW &row, bool byFormat)
{
    const RULES rules(byFormat ? PICTURE_RULES_FORMAT : PICTURE_RULES_FRAMEWORK);
    const std::string path = Folder() + row[File];
    const Picture picture = Picture_Load(path.c_str(), 0, 0);
    const std::string reason = Picture_Reason();
    const BYTES pixels = Cropped(picture);
    Picture_UnLoad(picture);
    EXPECT_TRUE(!pixels.empty() || reason != "");
    if (!byFormat && IsBeyondFramework(row[File]))
        return;
    const bool deviates = Deviates(row[File], byFormat ? "format" : "framework");
    if (row[Kind] == "reject" || (byFormat ? IsLeftOut(row) : pixels.empty() && deviates)) {
        EXPECT_TRUE(byFormat ? reason != "" : pixels.empty());
        return;
    }
    ASSERT_FALSE(pixels.empty()) << reason;
    if (byFormat && IsDamaged(row[File]))
        return;
    EXPECT_EQ(std::to_string(picture.Width), row[Width]);
    EXPECT_EQ(std::to_string(picture.Height), row[Height]);
    if (row[Kind] == "psnr")
        EXPECT_TRUE(IsClose(pixels, RunDjpeg("", path)) ||
                    IsClose(pixels, RunDjpeg("-nosmooth", path)));
    else
        EXPECT_NE(Matches(row, pixels), deviates) << reason;
}

class Corpus : public testing::TestWithParam<ROW>
{
};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(Corpus);

TEST_P(Corpus, BothRules)
{
    for (const bool byFormat : {false, true}) {
        SCOPED_TRACE(byFormat ? "the format's rules" : "the framework's rules");
        Check(GetParam(), byFormat);
    }
}

INSTANTIATE_TEST_SUITE_P(Files, Corpus, testing::ValuesIn(Table("expected.tsv")),
                         [](const auto &test) {
                             std::string name =
                                 test.param[File];  // so that a filter can select a format
                             std::replace_if(
                                 name.begin(), name.end(),
                                 [](unsigned char c) { return !std::isalnum(c); }, '_');
                             return name;
                         });

TEST(Corpus, Thumbnails)
{
    for (const auto &f : Table("expected_thumbs.tsv")) {
        const std::string path = Folder() + f[0];
        const Picture picture = Picture_Load(path.c_str(), 0, 0);
        EXPECT_EQ(std::to_string(picture.ThumbWidth), f[2]) << f[0];
        EXPECT_EQ(std::to_string(picture.ThumbHeight), f[3]) << f[0];
        if (picture.ThumbPixels && f[1] == "jfif") {
            const size_t size = size_t{picture.ThumbWidth} * picture.ThumbHeight * 4;
            EXPECT_EQ(Sha256({picture.ThumbPixels, picture.ThumbPixels + size}), f[4]) << f[0];
        } else if (f[1] == "exif") {
            const BYTES file = ReadFile(path);
            const auto stream = Bytes_GetSpan(file, JPG_Exif.ThumbOffset, JPG_Exif.ThumbLength);
            EXPECT_NE(picture.ThumbPixels, nullptr) << f[0];
            EXPECT_EQ(Sha256({stream.begin(), stream.end()}), f[4]) << f[0];
        }
        Picture_UnLoad(picture);
    }
}

TEST(Corpus, GIFFrames)
{
    const RULES rules(PICTURE_RULES_FORMAT);
    for (const auto &f : Table("expected_gif_frames.tsv")) {
        const Picture picture = Picture_Load((Folder() + f[0]).c_str(), 0, 0);
        const std::string what = f[0] + " " + f[1];
        const auto i = static_cast<size_t>(std::stoul(f[1]));
        GIF_CANVAS canvas;
        ASSERT_TRUE(GIF_Compose(GIF_PictureOf(picture.Pixels), i, canvas)) << what;
        EXPECT_EQ(std::to_string(GIF_Frames[i].Delay), f[2]) << what;
        EXPECT_EQ(std::to_string(GIF_Frames[i].Disposal), f[3]) << what;
        const BYTES screen(canvas.Screen.begin(), canvas.Screen.end());
        EXPECT_TRUE(f[4] == "-" || Sha256(screen) == f[4]) << what;
        Picture_UnLoad(picture);
    }
}

TEST(Corpus, IsNamed)
{
    if (Table("expected.tsv").empty())
        GTEST_SKIP() << "the environment variable CORPUS names no folder with an expected.tsv";
}
