// Every picture of a folder of real files against the results of other decoders. The folder is
// named by the environment variable CORPUS; its expected.tsv tells file, kind, size and digests.
// Photos need djpeg.
#include <cmath>
#include <cstdlib>
#include <map>

#include "tests/pictures.h"
#include "tests/sha256.h"

// Files whose result differs from the other decoders' by a rule of ours, and which rule.
static const std::map<std::string, const char *> deviations = {
    {"jpeg/odd-restart.jpg", "extended sequential files are passed over"},
    {"png/tbrn2c08.png", "the transparent colour of RGB is stored, not applied"},
};

using ROW = std::vector<std::string>;

static std::string Folder()
{
    const char *folder = std::getenv("CORPUS");
    return folder ? std::string(folder) + "/" : "";
}

static std::vector<ROW> Rows()
{
    return ReadTable(Folder() + "expected.tsv");
}

static BYTES WithoutTransparent(BYTES pixels)
{
    for (size_t i = 0; i < pixels.size(); i += 4)
        if (pixels[i + 3] == 0)
            std::fill_n(pixels.begin() + static_cast<ptrdiff_t>(i), 3, uint8_t{0});
    return pixels;
}

struct DIFFERENCE {
    double PSNR; // dB
    int Greatest;
};

static DIFFERENCE Compare(const BYTES &rgba, const BYTES &rgb)
{
    if (rgba.size() / 4 != rgb.size() / 3)
        return {0, 255};
    double squares = 0;
    int greatest = 0;
    for (size_t i = 0; i < rgb.size(); i++) {
        const int d = std::abs(rgba[i / 3 * 4 + i % 3] - rgb[i]);
        squares += d * d;
        greatest = std::max(greatest, d);
    }
    const double mean = squares / static_cast<double>(rgb.size());
    return {mean == 0 ? 99 : 10 * std::log10(255 * 255 / mean), greatest};
}

static BYTES RunDjpeg(const std::string &options, const std::string &path)
{
    const std::string out = TempPath("djpeg.pnm");
    const std::string command = "djpeg -dct float " + options + " -pnm '" + path + "' > " + out;
    if (std::system(command.c_str()) != 0)
        return {};
    return SamplesOfPNM(out);
}

class Corpus : public testing::TestWithParam<ROW>
{
};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(Corpus);

TEST_P(Corpus, Matches)
{
    const ROW &row = GetParam();
    SCOPED_TRACE(row[0]);
    ASSERT_EQ(row.size(), 10u);
    const std::string &kind = row[1], path = Folder() + row[0];
    testing::internal::CaptureStdout(); // some decoders talk
    const Picture picture = Picture_Load(path.c_str(), 0, 0);
    testing::internal::GetCapturedStdout();
    const auto deviation = deviations.find(row[0]);
    if (kind == "reject" || (kind == "psnr" && deviation != deviations.end())) {
        EXPECT_EQ(picture.Pixels, nullptr);
        return;
    }
    ASSERT_NE(picture.Pixels, nullptr);
    EXPECT_EQ(std::to_string(picture.Width), row[2]);
    EXPECT_EQ(std::to_string(picture.Height), row[3]);
    const BYTES pixels = Cropped(picture);
    Picture_UnLoad(picture);
    if (kind == "psnr") {
        const DIFFERENCE smooth = Compare(pixels, RunDjpeg("", path));
        const DIFFERENCE plain = Compare(pixels, RunDjpeg("-nosmooth", path));
        EXPECT_GE(std::max(smooth.PSNR, plain.PSNR), 45);
        EXPECT_LE(std::min(smooth.Greatest, plain.Greatest), 2);
        return;
    }
    const std::string digest = Sha256(pixels);
    const bool matches = digest == row[4] || Sha256(WithoutTransparent(pixels)) == row[5] ||
                         (kind == "split" && row[9].find(digest) != std::string::npos);
    EXPECT_EQ(matches, deviation == deviations.end())
        << (deviation == deviations.end() ? "" : deviation->second);
}

INSTANTIATE_TEST_SUITE_P(Files, Corpus, testing::ValuesIn(Rows()));

TEST(Corpus, IsNamed)
{
    if (Rows().empty())
        GTEST_SKIP() << "the environment variable CORPUS names no folder with an expected.tsv";
}
