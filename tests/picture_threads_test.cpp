#include "picture/png.h"
#include "tests/pictures.h"
#include "tests/threads.h"

TEST(PictureThreads, FourAsOne)
{
    const auto load = [](const REAL_FILE &file, bool fromMemory, uint8_t rules) {
        Picture_Rules = rules;
        PNG_Header = {};  // the framework's rules keep the previous file's palette
        const Picture picture = fromMemory ? Picture_LoadBytes(file.Bytes, 0, 0)
                                           : Picture_Load(file.Path.c_str(), 0, 0);
        return std::pair(picture, std::string(Picture_Reason()));
    };
    const auto finish = [](const std::pair<Picture, std::string> &loaded) {
        const Picture &p = loaded.first;
        const size_t thumb = p.ThumbPixels ? size_t{p.ThumbBufferWidth} * p.ThumbHeight * 4 : 0;
        std::ostringstream text;
        text << int{p.Format} << ' ' << p.Width << 'x' << p.Height << ' ' << int{p.Bits} << ' '
             << Digest(Cropped(p)) << ' ' << p.ThumbWidth << 'x' << p.ThumbHeight << ' '
             << Digest({p.ThumbPixels, thumb}) << ' ' << loaded.second;
        Picture_UnLoad(p);
        return text.str();
    };
    const auto known = [](const BYTES &file) {
        return Picture_CheckBytes(file, 0) != PICTURE_UNKNOWN;
    };
    ExpectFourAsOne(FilesKnown(known), load, finish);
    std::thread([] { EXPECT_EQ(Picture_Rules, PICTURE_RULES_FRAMEWORK); }).join();
}
