#include "tools/viewer/shown.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "extra/reason.h"
#include "picture/jpg.h"
#include "picture/png.h"
#include "picture/spr.h"
#include "picture/tif.h"
#include "tools/common/text.h"
#include "tools/viewer/exif.h"

static BYTES_BUFFER input;  // contents of standard input

std::string Viewer_KeepInput()
{
    constexpr size_t step = 1 << 16;
    size_t got = 0;
    do {
        const size_t size = input.size();
        if (size > Bytes_MaxFile)
            return "it is larger than 1 GiB";
        input.resize(size + step);
        got = std::fread(input.data() + size, 1, step, stdin);
        input.resize(size + got);
    } while (got == step);
    return std::ferror(stdin) ? std::strerror(errno) : "";
}

std::string Viewer_Size(uint32_t width, uint32_t height)
{
    return std::to_string(width) + "x" + std::to_string(height);
}

std::string Viewer_Facts(const VIEWER_FILE &file)
{
    return std::string(Picture_FormatName(file.Format)) + ", " +
           Viewer_Size(file.Width, file.Height) + ", " + std::to_string(file.Bits) +
           (file.Bits == 1 ? " bit" : " bits");
}

std::string Viewer_FrameReason(uint32_t frames)
{
    return frames == 1 ? "it has one frame, number 0"
                       : "it has " + std::to_string(frames) + " frames, counted from 0";
}

VIEWER_PIXELS Viewer_Pixels(const VIEWER_FILE &file)
{
    const Picture &p = *file.Record;
    return {p.Width, p.Height, p.BufferWidth, p.Pixels};
}

VIEWER_PIXELS Viewer_Pixels(const VIEWER_IMAGE &image)
{
    return {image.Width, image.Height, image.Width, image.Pixels.data()};
}

VIEWER_IMAGE Viewer_Copy(const VIEWER_PIXELS &pixels)
{
    VIEWER_IMAGE image;
    if (!pixels.Pixels)
        return image;
    image.Width = pixels.Width;
    image.Height = pixels.Height;
    const size_t row = size_t{pixels.Width} * 4;
    image.Pixels.resize(row * pixels.Height);
    for (size_t y = 0; y < pixels.Height; y++)
        std::memcpy(image.Pixels.data() + y * row, pixels.Pixels + y * pixels.Stride * 4, row);
    return image;
}

VIEWER_IMAGE Viewer_Halve(const VIEWER_PIXELS &pixels)
{
    VIEWER_IMAGE half;
    half.Width = (pixels.Width + 1) / 2;
    half.Height = (pixels.Height + 1) / 2;
    half.Pixels.resize(size_t{half.Width} * half.Height * 4);
    uint8_t *out = half.Pixels.data();
    for (size_t y = 0; y < half.Height; y++) {
        const uint8_t *upper = pixels.Pixels + 2 * y * pixels.Stride * 4;
        const uint8_t *lower =
            2 * y + 1 < pixels.Height ? upper + size_t{pixels.Stride} * 4 : upper;
        for (size_t x = 0; x < half.Width; x++, out += 4) {
            const size_t left = 8 * x, right = 2 * x + 1 < pixels.Width ? left + 4 : left;
            const std::array<const uint8_t *, 4> four = {upper + left, upper + right, lower + left,
                                                         lower + right};
            const uint32_t alpha = four[0][3] + four[1][3] + four[2][3] + four[3][3];
            for (size_t c = 0; c < 3; c++)
                if (alpha == 4 * 255) {
                    out[c] = static_cast<uint8_t>(
                        (four[0][c] + four[1][c] + four[2][c] + four[3][c] + 2) / 4);
                } else {
                    uint32_t sum = 0;
                    for (const uint8_t *pixel : four)
                        sum += uint32_t{pixel[c]} * pixel[3];
                    out[c] = static_cast<uint8_t>(alpha == 0 ? 0 : (sum + alpha / 2) / alpha);
                }
            out[3] = static_cast<uint8_t>((alpha + 2) / 4);
        }
    }
    return half;
}

VIEWER_IMAGE Viewer_Fit(const VIEWER_PIXELS &pixels, uint32_t side)
{
    const uint64_t longer = std::max(pixels.Width, pixels.Height);
    if (longer <= side)
        return Viewer_Copy(pixels);
    const auto shorten = [&](uint64_t length) {
        return static_cast<uint32_t>(std::max<uint64_t>((length * side + longer / 2) / longer, 1));
    };
    VIEWER_IMAGE image{shorten(pixels.Width), shorten(pixels.Height), {}};
    image.Pixels.resize(size_t{image.Width} * image.Height * 4);
    // How much of `pixel`, which is `to` long, the new pixel n covers, which is `from` long.
    const auto covered = [](uint64_t pixel, uint64_t n, uint64_t from, uint64_t to) {
        return std::min((pixel + 1) * to, (n + 1) * from) - std::max(pixel * to, n * from);
    };
    uint8_t *out = image.Pixels.data();
    for (uint64_t y = 0; y < image.Height; y++)
        for (uint64_t x = 0; x < image.Width; x++, out += 4) {
            std::array<uint64_t, 4> sums{};
            uint64_t area = 0;
            for (uint64_t v = y * pixels.Height / image.Height;
                 v * image.Height < (y + 1) * pixels.Height; v++)
                for (uint64_t u = x * pixels.Width / image.Width;
                     u * image.Width < (x + 1) * pixels.Width; u++) {
                    const uint64_t part = covered(u, x, pixels.Width, image.Width) *
                                          covered(v, y, pixels.Height, image.Height);
                    const uint8_t *pixel = pixels.Pixels + (v * pixels.Stride + u) * 4;
                    area += part;
                    sums[3] += part * pixel[3];
                    for (size_t c = 0; c < 3; c++)
                        sums[c] += part * pixel[3] * pixel[c];
                }
            for (size_t c = 0; c < 3; c++)
                out[c] = static_cast<uint8_t>(sums[3] == 0 ? 0 : (sums[c] + sums[3] / 2) / sums[3]);
            out[3] = static_cast<uint8_t>((sums[3] + area / 2) / area);
        }
    return image;
}

// Exif 2.3, 4.6.4 A: where row 0 and column 0 of the file's picture belong.
VIEWER_IMAGE Viewer_Upright(const VIEWER_PIXELS &pixels, int orientation)
{
    if (orientation < 2 || orientation > 8)
        return Viewer_Copy(pixels);
    const bool turned = orientation >= 5;
    const bool right = orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8;
    const bool bottom =
        orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
    VIEWER_IMAGE upright{pixels.Width, pixels.Height, {}};
    if (turned)
        std::swap(upright.Width, upright.Height);
    upright.Pixels.resize(size_t{upright.Width} * upright.Height * 4);
    for (uint32_t y = 0; y < upright.Height; y++)
        for (uint32_t x = 0; x < upright.Width; x++) {
            uint32_t column = turned ? y : x, row = turned ? x : y;
            column = right ? pixels.Width - 1 - column : column;
            row = bottom ? pixels.Height - 1 - row : row;
            std::memcpy(upright.Pixels.data() + 4 * (size_t{y} * upright.Width + x),
                        pixels.Pixels + 4 * (size_t{row} * pixels.Stride + column), 4);
        }
    return upright;
}

// For a GIF the record's bits are another field; for a TIFF, those of one sample.
static uint32_t BitsOf(const Picture &picture)
{
    if (picture.Format == PICTURE_TIFF)
        return uint32_t{picture.Bits} * TIF_Header.Samples;
    if (picture.Format != PICTURE_GIF)
        return picture.Bits;
    unsigned colours = GIF_Header.HasGlobalPalette ? GIF_Header.GlobalColors : 2;
    for (const GIF_FRAME &frame : GIF_Frames)
        if (frame.HasLocalPalette)
            colours = std::max<unsigned>(colours, frame.LocalColors);
    return static_cast<uint32_t>(std::bit_width(colours - 1));
}

static void AddText(VIEWER_FILE &file, std::string name, std::string text)
{
    if (!text.empty())
        file.Texts.push_back({std::move(name), std::move(text)});
}

static void ReadPNG(VIEWER_FILE &file)
{
    const PNG_HEADER &h = PNG_Header;
    AddText(file, "colour", PNG_ColorType[h.ColorType < PNG_ColorType.size() ? h.ColorType : 1]);
    AddText(file, "interlacing", PNG_Interlace[h.Interlace == 1 ? 1 : 0]);
    for (size_t i = 0; i < h.TextCount; i++)
        AddText(file, Text_FromLatin1(h.Texts[i].Keyword.data()),
                Text_FromLatin1(h.Texts[i].Text.data()));
    for (size_t i = 0; i < h.InternationalTextCount; i++)
        AddText(file, Text_FromLatin1(h.InternationalTexts[i].Keyword.data()),
                h.InternationalTexts[i].Text.data());
    std::array<char, 32> changed;
    std::snprintf(changed.data(), changed.size(), "%04d-%02d-%02d", h.Year, h.Month, h.Day);
    AddText(file, "changed", h.Year != 0 ? changed.data() : "");
}

static void ReadJPEG(VIEWER_FILE &file, const BYTES_OPEN &from)
{
    AddText(file, "identifier", Text_FromLatin1(JPG_Header.Identifier.data()));
    AddText(file, "comment", Text_FromEither(JPG_Header.Comment.data()));
    AddText(file, "description", Text_FromEither(JPG_Exif.Description.data()));
    file.Orientation = Exif_Orientation();
    file.Camera = Exif_Camera(from);
    const Picture &p = *file.Record;
    file.Thumbnail = Viewer_Copy({p.ThumbWidth, p.ThumbHeight, p.ThumbBufferWidth, p.ThumbPixels});
}

// Delays below two hundredths count as a tenth of a second, as is customary.
static void ReadGIF(VIEWER_FILE &file)
{
    file.Frames = std::max<uint32_t>(GIF_Header.FrameCount, 1);
    double end = 0;
    for (const GIF_FRAME &frame : GIF_Frames) {
        end += frame.Delay < 2 ? 0.1 : frame.Delay / 100.0;
        file.Ends.push_back(end);
    }
    // The extension counts repetitions; without it the animation runs once.
    file.Rounds = !GIF_Header.HasLoopCount    ? 1
                  : GIF_Header.LoopCount == 0 ? 0
                                              : GIF_Header.LoopCount + 1u;
    AddText(file, "comment", Text_FromEither(GIF_Header.Comment.data()));
}

// A truncated file has fewer images than it promises.
static void ReadSprites(VIEWER_FILE &file)
{
    const auto end = std::ranges::find(SPR_Header.Images, nullptr);
    file.Sprites.assign(SPR_Header.Images.begin(), end);
    file.Frames = static_cast<uint32_t>(file.Sprites.size());
}

static void ReadHeader(VIEWER_FILE &file, const BYTES_OPEN &from)
{
    switch (file.Format) {
    case PICTURE_PNG:
        ReadPNG(file);
        break;
    case PICTURE_JPEG:
        ReadJPEG(file, from);
        break;
    case PICTURE_GIF:
        ReadGIF(file);
        break;
    case PICTURE_TIFF:
        file.Frames = std::max(TIF_PageCount, 1u);
        if (TIF_Header.Orientation >= 1 && TIF_Header.Orientation <= 8)
            file.Orientation = TIF_Header.Orientation;
        AddText(file, "document", Text_FromEither(TIF_Header.DocumentName.data()));
        break;
    case PICTURE_SPRITES:
        ReadSprites(file);
        break;
    }
}

// Keeps a picture with the facts that are in the decoders' globals now.
static void Keep(VIEWER_FILE &file, std::shared_ptr<const Picture> picture, const BYTES_OPEN &from)
{
    file.Width = picture->Width;
    file.Height = picture->Height;
    file.Bits = BitsOf(*picture);
    file.Record = std::move(picture);
    ReadHeader(file, from);
}

static void Prepare(VIEWER_FILE &file, VIEWER_DEPTH depth)
{
    // Up to twice the size, a small copy is made.
    const uint32_t enough = depth == VIEWER_SMALL ? 2 * Viewer_SmallSide : 256;
    VIEWER_PIXELS last = Viewer_Pixels(file);
    while (std::max(last.Width, last.Height) > enough) {
        VIEWER_IMAGE half = Viewer_Halve(last);
        if (depth == VIEWER_SMALL)
            file.Halves.clear();
        file.Halves.push_back(std::move(half));
        last = Viewer_Pixels(file.Halves.back());
    }
    if (depth != VIEWER_SMALL)
        return;
    file.Thumbnail =
        Viewer_Upright(Viewer_Pixels(Viewer_Fit(last, Viewer_SmallSide)), file.Orientation);
    file.Halves.clear();
    file.Record.reset();
    file.Sprites.clear();
}

static void Load(VIEWER_FILE &file, const BYTES_OPEN &from, VIEWER_DEPTH depth)
{
    TIF_Page = file.Page;
    // Owned before there is anything to lose.
    const std::shared_ptr<Picture> owned(new Picture{}, [](const Picture *p) {
        Picture_UnLoad(*p);
        delete p;
    });
    Picture &picture = *owned;
    picture = from.IsMemory ? Picture_LoadBytes(from.Memory, 0, 0) : Picture_Load(from.Path, 0, 0);
    file.Format = picture.Format;
    file.Reason = Picture_Reason();
    if (!picture.Pixels) {
        if (file.Format != PICTURE_UNKNOWN)
            file.Reason = Picture_FormatName(file.Format) + std::string(": ") + file.Reason;
        return;
    }
    if (picture.Format == PICTURE_JPEG && JPG_Decoder.Embedded) {
        JPG_Load(from.Path);  // the headers are as its thumbnail has left them
        JPG_UnLoad();
    }
    Keep(file, owned, from);
    if (depth != VIEWER_PLAIN)
        Prepare(file, depth);
}

std::shared_ptr<const VIEWER_FILE> Viewer_Open(const std::string &path, VIEWER_DEPTH depth,
                                               uint32_t page)
{
    const auto file = std::make_shared<VIEWER_FILE>();
    static std::atomic<uint64_t> serial;
    file->Serial = ++serial;
    file->Path = path;
    file->Page = page;
    try {
        if (path == "-") {
            Load(*file, BYTES_OPEN(std::span<const uint8_t>(input)), depth);
        } else {
            // A leading '*' would have a special meaning for JPG_Load.
            const std::string name = path.starts_with('*') ? "./" + path : path;
            Load(*file, BYTES_OPEN(name.c_str()), depth);
        }
    } catch (const std::bad_alloc &) {
        file->Record.reset();
        file->Thumbnail = {};
        file->Reason = "out of memory";
    }
    return file;
}

static VIEWER_PIXELS Composed(const GIF_PICTURE &gif, uint32_t n, GIF_CANVAS &canvas)
{
    if (!GIF_Compose(gif, n, canvas))
        return {};
    return {gif.Header.Width, gif.Header.Height, gif.Header.Width, canvas.Screen.data()};
}

VIEWER_PIXELS Viewer_Frame(const VIEWER_FILE &file, uint32_t n, GIF_CANVAS &canvas)
{
    VIEWER_PIXELS pixels = Viewer_Pixels(file);
    if (file.Format == PICTURE_SPRITES) {
        pixels.Pixels = file.Sprites[n];
    } else if (file.Format == PICTURE_GIF) {
        const GIF_PICTURE &gif = GIF_PictureOf(pixels.Pixels);
        if (!gif.Codes.empty()) {
            if (canvas.Laid == 0)
                canvas = GIF_CanvasOf(pixels.Pixels);
            return Composed(gif, n, canvas);
        }
        pixels.Pixels = gif.Frames[n].Data;  // by the framework's rules each frame is a picture
    }
    return pixels;
}

VIEWER_PIXELS Viewer_LoneFrame(const VIEWER_FILE &file, uint32_t n, GIF_CANVAS &canvas)
{
    if (file.Format != PICTURE_GIF || GIF_PictureOf(file.Record->Pixels).Codes.empty())
        return Viewer_Frame(file, n, canvas);
    const GIF_PICTURE &gif = GIF_PictureOf(file.Record->Pixels);
    const GIF_FRAME &frame = gif.Frames[n];
    const VIEWER_PIXELS pixels = Composed({gif.Header, {frame}, BYTES_BUFFER(1)}, 0, canvas);
    // An empty frame that only states the rules. Around the frame is the background, which this
    // frame did not draw.
    for (uint32_t y = 0; y < pixels.Height; y++)
        for (uint32_t x = 0; x < pixels.Width; x++)
            if (x < frame.Left || y < frame.Top || x - frame.Left >= frame.Width ||
                y - frame.Top >= frame.Height)
                std::memset(canvas.Screen.data() + 4 * (size_t{y} * pixels.Width + x), 0, 4);
    return pixels;
}
