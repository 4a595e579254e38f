#include "picture/gif.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "extra/bytes.h"
#include "extra/heap.h"
#include "extra/local.h"
#include "extra/pages.h"
#include "extra/reason.h"
#include "picture/pixels.h"

constinit thread_local GIF_HEADER GIF_Header{};
constinit thread_local std::span<GIF_FRAME> GIF_Frames{};
constinit thread_local BYTES_BUFFER GIF_File{};
constinit thread_local size_t GIF_Position{};

// GIF89a, appendix E: row step and first row of each pass of an interlaced frame.
constexpr std::array<std::array<uint8_t, 2>, 4> GIF_Interlace = {{{8, 0}, {8, 4}, {4, 2}, {2, 1}}};
static_assert(
    [] {
        std::array<int, 8> visits{};
        for (const auto &[step, first] : GIF_Interlace)
            for (size_t row = first; row < visits.size(); row += step)
                visits[row]++;
        return visits == std::array<int, 8>{1, 1, 1, 1, 1, 1, 1, 1};
    }(),
    "the passes visit every row once");

constexpr uint8_t GIF_Trailer = ';', GIF_Extension = '!', GIF_Image = ',';
constexpr uint8_t GIF_PlainText = 1, GIF_GraphicControl = 249, GIF_Comment = 254,
                  GIF_Application = 255;

constexpr uint8_t GIF_DisposeClear = 2, GIF_DisposeRestore = 3;

constexpr unsigned GIF_MaxCodeSize = 12;
constexpr size_t GIF_MaxCodes = 1 << GIF_MaxCodeSize;
constexpr size_t GIF_Chunk = 16;  // strings are copied in chunks of this many bytes

// A frame of which nothing has been read, with an opaque black palette.
constexpr GIF_FRAME GIF_NewFrame = [] {
    GIF_FRAME frame{};
    frame.LocalPalette.fill({0, 0, 0, 255});
    return frame;
}();

// Bytes of a header before its last field: 4 KiB, of which most files need the first number.
constexpr size_t GIF_FixedHeader = offsetof(GIF_HEADER, DataSize);

// Pixels that one byte of a file may stand for. Times Picture_MinShare it is twice LZW's best ratio
// (4096 pixels in 12 bits), since screens may be larger than their frames. A file counts as
// GIF_MinFile bytes at least, since even a tiny one may have a large screen.
constexpr uint64_t GIF_PixelsPerByte = 683, GIF_MinFile = 512;

namespace
{

// The Graphic Control Extension before a frame.
struct GIF_CONTROL {
    uint8_t HasTransparency, UserInput, Disposal;
    uint16_t Delay;
    uint8_t TransparentIndex;
};

// A loaded file. It owns its frames' Data, from FirstOwned on.
struct GIF_OWNER : GIF_PICTURE {
    size_t FirstOwned = 0;

    GIF_OWNER() = default;
    GIF_OWNER(const GIF_OWNER &) = delete;
    GIF_OWNER &operator=(const GIF_OWNER &) = delete;
    ~GIF_OWNER()
    {
        for (size_t i = FirstOwned; i < Frames.size(); i++)
            std::free(Frames[i].Data);
    }
};

// Precedes the first frame's picture in the same allocation.
struct alignas(16) GIF_FRONT {
    GIF_OWNER *Owner;
};

}  // namespace

// Where in the output each code's string starts. A new code's string is the one written last plus
// the byte that follows it, so it needs no copy, and its last byte is the first one of the next new
// code's string. Literals follow each other without such an overlap. The last entry receives the
// strings that a full dictionary cannot take.
static constinit thread_local std::array<uint32_t, GIF_MaxCodes + 2> GIF_DictionaryTree{};

// Loaded, but not yet handed over as a picture.
static constinit thread_local std::unique_ptr<GIF_OWNER> GIF_Loaded{};

static uint8_t GIF_GetByte()
{
    return Bytes_GetByte(GIF_File, GIF_Position);
}

static uint16_t GIF_GetWord()
{
    return static_cast<uint16_t>(Bytes_GetLittle(GIF_File, GIF_Position, 2));
}

static void GIF_GetPalette(PIXELS_PALETTE &palette, size_t colours)
{
    const auto stored = Bytes_GetSpan(GIF_File, GIF_Position, 3 * colours);
    for (size_t i = 0, at = 0; i < colours; i++)
        for (size_t c = 0; c < 3; c++)
            palette[i][c] = Bytes_GetByte(stored, at);
    GIF_Position += 3 * colours;
}

static void ReadHeader()
{
    GIF_HEADER &h = Extra_Local(GIF_Header);
    std::memset(&h, 0, GIF_FixedHeader);
    h.GlobalPalette = GIF_NewFrame.LocalPalette;
    GIF_Position = 4;
    h.Version = GIF_GetByte();
    GIF_Position++;
    h.Width = GIF_GetWord();
    h.Height = GIF_GetWord();
    h.Size = static_cast<uint32_t>(uint64_t{h.Width} * h.Height * 4);
    const uint8_t packed = GIF_GetByte();
    h.GlobalColors = static_cast<uint16_t>(2 << (packed & 7));
    h.GlobalSorted = packed >> 3 & 1;
    h.ColorResolution = h.Bits = static_cast<uint8_t>((packed >> 4 & 7) - 1);
    h.HasGlobalPalette = packed >> 7;
    h.Background = GIF_GetByte();
    h.AspectRatio = GIF_GetByte();
    if (h.HasGlobalPalette)
        GIF_GetPalette(h.GlobalPalette, h.GlobalColors);
    h.BlockOffset = static_cast<uint32_t>(GIF_Position);
}

// Moves the data of the sub-blocks, up to the empty one that ends them, together at `to`. `to` is
// at least four bytes before them, so that the decoder can read four bytes past the data.
static std::span<uint8_t> GatherSubBlocks(size_t to)
{
    const std::span file(GIF_File);
    size_t position = GIF_Position, end = to;
    while (const uint8_t size = Bytes_GetByte(file, position)) {
        const auto block = Bytes_GetSpan(file, position, size);
        if (!block.empty())
            std::memmove(file.data() + end, block.data(), block.size());
        end += block.size();
        position += size;
    }
    GIF_Position = position;
    return file.subspan(to, end - to);
}

static void SkipSubBlocks()
{
    while (const uint8_t size = GIF_GetByte())
        GIF_Position += size;
}

static void ReadGraphicControl(GIF_CONTROL &next)
{
    const uint8_t packed = GIF_GetByte();
    next.HasTransparency = packed & 1;
    next.UserInput = packed >> 1 & 1;
    next.Disposal = packed >> 2 & 7;
    next.Delay = GIF_GetWord();
    next.TransparentIndex = GIF_GetByte();
}

static void KeepComment(std::span<const uint8_t> text)
{
    auto &comment = GIF_Header.Comment;
    comment = {};
    std::copy_n(text.begin(), std::min(text.size(), comment.size() - 1), comment.begin());
}

// Framework: a comment is everything up to the next zero byte, including the lengths of further
// sub-blocks. Format: it is the text of its sub-blocks, the first of which has `size` bytes.
static void ReadComment(uint8_t size)
{
    if (Picture_Rules == PICTURE_RULES_FORMAT) {
        std::vector<uint8_t> text;
        for (; size != 0; size = GIF_GetByte()) {
            const auto block = Bytes_GetSpan(GIF_File, GIF_Position, size);
            if (text.size() < GIF_Header.Comment.size())
                text.insert(text.end(), block.begin(), block.end());
            GIF_Position += size;
        }
        KeepComment(text);
        return;
    }
    const auto rest = Bytes_GetSpan(GIF_File, GIF_Position);
    const auto length = static_cast<size_t>(std::ranges::find(rest, 0) - rest.begin());
    KeepComment(rest.first(length));
    GIF_Position += length + 1;
}

// The application's name has `size` bytes. A sub-block that begins with 1 holds the loop count.
static void ReadApplication(uint8_t size)
{
    const auto name = Bytes_GetSpan(GIF_File, GIF_Position, size);
    const std::string_view text(reinterpret_cast<const char *>(name.data()), name.size());
    GIF_Position += size;
    size_t loop = GIF_Position;
    if ((text == "NETSCAPE2.0" || text == "ANIMEXTS1.0") &&
        Bytes_GetLittle(GIF_File, loop, 2) == 0x103) {
        GIF_Header.HasLoopCount = 1;
        GIF_Header.LoopCount = static_cast<uint16_t>(Bytes_GetLittle(GIF_File, loop, 2));
    }
    SkipSubBlocks();
}

// Format: the remaining sub-blocks are skipped here. Framework: the caller skips what is left byte
// by byte.
static void ReadExtension(GIF_CONTROL &next)
{
    const bool skips = Picture_Rules == PICTURE_RULES_FORMAT;
    const uint8_t label = GIF_GetByte();
    const uint8_t size = GIF_GetByte();
    const size_t end = GIF_Position + size;
    switch (label) {
    case GIF_Comment:
        return ReadComment(size);
    case GIF_Application:
        return ReadApplication(size);
    case GIF_PlainText:
        GIF_Position += 12;
        break;
    case GIF_GraphicControl:
        ReadGraphicControl(next);
        break;
    }
    if (skips) {
        GIF_Position = end;
        if (size != 0)
            SkipSubBlocks();
    }
}

static void ReadImageDescriptor(GIF_FRAME &frame)
{
    frame.Left = GIF_GetWord();
    frame.Top = GIF_GetWord();
    frame.Width = GIF_GetWord();
    frame.Height = GIF_GetWord();
    const uint8_t packed = GIF_GetByte();
    frame.LocalColors = static_cast<uint16_t>(2 << (packed & 7));
    frame.Sorted = packed >> 5 & 1;
    frame.Interlaced = packed >> 6 & 1;
    frame.HasLocalPalette = packed >> 7;
    if (frame.HasLocalPalette)
        GIF_GetPalette(frame.LocalPalette, frame.LocalColors);
    frame.MinimumCodeSize = GIF_GetByte();
}

namespace
{

// Bit reader for codes: `End` bits at `Data`; 4 bytes past them are readable.
struct GIF_DECODER {
    const uint8_t *Data;
    size_t Position, End;  // in bits
};

}  // namespace

// The next `size` bits, at most 25, lowest first; `mask` has as many ones.
static size_t GIF_ReadBits(GIF_DECODER &decoder, unsigned size, size_t mask)
{
    const uint8_t *p = decoder.Data + decoder.Position / 8;
    const uint32_t word = p[0] | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
    const size_t bits = word >> (decoder.Position % 8) & mask;
    decoder.Position += size;
    return bits;
}

static bool IsCodeSize(uint8_t minimum)
{
    return minimum >= 1 && minimum < GIF_MaxCodeSize;
}

// Bytes that GIF_LZW_Decompress needs after its output: the excess of a copy in chunks, and the
// strings of one byte.
static size_t OutputPadding(uint8_t minimumCodeSize)
{
    return IsCodeSize(minimumCodeSize) ? GIF_Chunk + (size_t{1} << minimumCodeSize) + GIF_Chunk : 1;
}

// Copies a string to the end of the output, from where it may overlap that end by one byte. Chunks
// write up to GIF_Chunk - 1 bytes too many.
static void CopyString(const uint8_t *from, uint8_t *to, size_t length)
{
    size_t i = 0;
    do {
        std::array<uint8_t, GIF_Chunk> chunk;
        std::memcpy(chunk.data(), from + i, GIF_Chunk);
        std::memcpy(to + i, chunk.data(), GIF_Chunk);
        i += GIF_Chunk;
    } while (i < length);
}

// Decompresses a frame to at most `count` bytes at `out`; returns how many. Stops at the end code,
// at the end of the data, and at an undefined code. A full dictionary stays as it is until a clear
// code, which the encoder may defer.
static size_t GIF_LZW_Decompress(const GIF_FRAME &frame, std::span<const uint8_t> data,
                                 uint8_t *out, size_t count)
{
    const uint8_t minimumCodeSize = frame.MinimumCodeSize;
    if (!IsCodeSize(minimumCodeSize))
        return 0;
    GIF_DECODER decoder{data.data(), 0, data.size() * 8};
    uint32_t *const tree = Extra_Local(GIF_DictionaryTree).data();
    const size_t clear = size_t{1} << minimumCodeSize, end = clear + 1;
    const size_t literals = count + GIF_Chunk;
    for (size_t i = 0; i <= clear; i++) {
        out[literals + i] = static_cast<uint8_t>(i);
        tree[i] = static_cast<uint32_t>(literals + i);
    }
    size_t at = 0;
    for (size_t code = clear; code == clear;) {
        unsigned size = minimumCodeSize + 1u;
        size_t grows = size_t{1} << size, mask = grows - 1;  // grows: the code from which size does
        if (decoder.Position + size > decoder.End || at == count)
            break;
        code = GIF_ReadBits(decoder, size, mask);
        if (code >= clear)
            continue;
        // As lengths, those of the clear code and the end code exceed any output, which has less
        // than 1 << 30 bytes, so that only strings that do not fit need a look at the code.
        tree[end] = static_cast<uint32_t>(at) + (3u << 30);
        tree[end + 1] = static_cast<uint32_t>(at);
        size_t previous = at;
        out[at++] = static_cast<uint8_t>(code);
        for (size_t next = end;;) {
            if (++next == grows) [[unlikely]] {
                if (size < GIF_MaxCodeSize) {
                    size++;
                    grows <<= 1;
                    mask = grows - 1;
                } else {  // full
                    next = GIF_MaxCodes;
                    grows = GIF_MaxCodes + 1;
                }
            }
            if (decoder.Position + size > decoder.End)
                return at;
            code = GIF_ReadBits(decoder, size, mask);
            if (code > next)
                return at;
            tree[next + 1] = static_cast<uint32_t>(at);
            const int64_t start = tree[code], stop = tree[code + 1] + int64_t{code > end};
            const auto length = static_cast<size_t>(stop - start);
            if (length > count - at) [[unlikely]] {
                if (code == clear)
                    break;
                if (code != end)
                    for (auto i = start; at < count; at++, i++)
                        out[at] = out[i];
                return at;
            }
            out[at] = out[previous];  // the string just added ends here, if it is that one
            CopyString(out + start, out + at, length);
            previous = at;
            at += length;
        }
    }
    return at;
}

static uint64_t HeldPixels()
{
    return std::max<uint64_t>(GIF_File.size(), GIF_MinFile) * GIF_PixelsPerByte;
}

// Bytes of pixels that a file of this size is allowed; GIF_HEADER::Size can hold them.
static uint64_t BelievedBytes()
{
    const uint64_t memory = Picture_FreeMemory + GIF_File.size() * Picture_MemoryPerByte;
    return std::min<uint64_t>(
        {4 * Picture_MinShare * HeldPixels(), memory, Picture_MaxBytes, UINT32_MAX});
}

// Whether a frame fits into `left` bytes, at 4 a pixel. Framework: `left` is reduced by the frame's
// picture, which has the frame's size or the screen's, whichever is larger. Under both rules its
// indexes must fit beside one picture of the screen.
static bool Fits(uint64_t framePixels, uint64_t &left)
{
    const uint64_t screen = uint64_t{GIF_Header.Width} * GIF_Header.Height;
    const bool keeps = Picture_Rules != PICTURE_RULES_FORMAT;
    const uint64_t size = 4 * (keeps ? std::max(framePixels, screen) : framePixels);
    if (size > left || 4 * screen + framePixels > BelievedBytes())
        return false;
    if (keeps)
        left -= size;
    return true;
}

// Expands the frame's data to indexes that it owns.
static void Decompress(GIF_FRAME &frame, std::span<const uint8_t> data, size_t number)
{
    const size_t count = size_t{frame.Width} * frame.Height;
    auto *indexes =
        static_cast<uint8_t *>(std::calloc(count + OutputPadding(frame.MinimumCodeSize), 1));
    if (!indexes)
        throw std::bad_alloc();
    const size_t made = GIF_LZW_Decompress(frame, data, indexes, count);
    std::memset(indexes + made, 0, std::min<size_t>(GIF_Chunk, count - made));
    if (made < count)
        Reason_Set("frame %zu ends after %zu of %zu pixels", number, made, count);
    frame.Data = indexes;
}

// Adds the frame after an image separator. False, with a reason and no frame added, if the file
// ends in the descriptor or the frame does not fit.
static bool LoadFrame(GIF_OWNER &gif, const GIF_CONTROL &control, uint64_t &left)
{
    const size_t from = GIF_Position - 1;
    GIF_FRAME &frame = gif.Frames.emplace_back(GIF_NewFrame);
    const size_t number = gif.Frames.size();
    frame.HasTransparency = control.HasTransparency;
    frame.UserInput = control.UserInput;
    frame.Disposal = control.Disposal;
    frame.Delay = control.Delay;
    frame.TransparentIndex = control.TransparentIndex;
    ReadImageDescriptor(frame);
    const bool cut = GIF_Position > GIF_File.size();
    if (cut || !Fits(uint64_t{frame.Width} * frame.Height, left)) {
        if (cut)
            Reason_Set("cut in frame %zu", number);
        else
            Reason_Set("frame %zu and on: more pixels than are believed of %zu bytes", number,
                       GIF_File.size());
        gif.Frames.pop_back();
        return false;
    }
    const std::span data = GatherSubBlocks(from);
    if (GIF_Position > GIF_File.size())
        Reason_Set("cut in frame %zu", number);
    frame.DataSize = static_cast<uint32_t>(data.size());
    if (number <= GIF_MaxFrames)
        GIF_Header.DataSize[number - 1] = frame.DataSize;
    if (Picture_Rules == PICTURE_RULES_FORMAT)
        frame.Data = data.data();
    else
        Decompress(frame, data, number);
    return true;
}

// Format: a screen without a size takes that of the first frame, whose separator comes next.
static void AdoptScreen(size_t position)
{
    GIF_HEADER &h = GIF_Header;
    if (Picture_Rules != PICTURE_RULES_FORMAT || (h.Width != 0 && h.Height != 0))
        return;
    position += 4;
    h.Width = static_cast<uint16_t>(Bytes_GetLittle(GIF_File, position, 2));
    h.Height = static_cast<uint16_t>(Bytes_GetLittle(GIF_File, position, 2));
    h.Size = static_cast<uint32_t>(uint64_t{h.Width} * h.Height * 4);
}

static void GIF_LoadFrames(GIF_OWNER &gif)
{
    const size_t max = Picture_Rules == PICTURE_RULES_FORMAT ? UINT16_MAX : GIF_MaxFrames;
    uint64_t left = BelievedBytes();
    GIF_CONTROL next{};
    while (GIF_Position < GIF_File.size()) {
        const uint8_t introducer = GIF_GetByte();
        if (introducer == GIF_Extension) {
            ReadExtension(next);
        } else if (introducer == GIF_Image) {
            if (gif.Frames.size() == max) {
                Reason_Set("frame %zu and on are left out", max + 1);
                return;
            }
            if (gif.Frames.empty()) {
                AdoptScreen(GIF_Position);
                if (!Picture_Believes(
                        {GIF_Header.Width, GIF_Header.Height, HeldPixels(), GIF_File.size()}))
                    return;
            }
            if (!LoadFrame(gif, next, left))
                return;
            next = {};
        } else if (introducer == GIF_Trailer) {
            return;
        }
    }
}

void GIF_Load(const char *path)
{
    GIF_Frames = {};
    GIF_Loaded.reset();
    const bool whole = Reason_Guard([path] {
        GIF_Loaded = std::make_unique_for_overwrite<GIF_OWNER>();  // Header is filled later
        if (Picture_Rules == PICTURE_RULES_FORMAT)
            GIF_Loaded->FirstOwned = SIZE_MAX;
        GIF_File = Bytes_LoadFile(path);
        ReadHeader();
        GIF_LoadFrames(*GIF_Loaded);
        if (Picture_Rules == PICTURE_RULES_FORMAT)
            GIF_Loaded->Codes = std::exchange(GIF_File, {});
        return true;
    });
    if (!whole)
        GIF_Loaded.reset();
    if (GIF_Loaded)
        GIF_Frames = GIF_Loaded->Frames;
    GIF_Header.FrameCount = static_cast<uint16_t>(GIF_Frames.size());
    // On purpose: the decoder uses heap 0 while it loads, and callers see its state.
    Extra_DestroyHeap(0);
    Extra_SetHeap(0, 0);
}

namespace
{

// Input for the pixels of a frame.
struct GIF_SOURCE {
    std::span<const uint8_t> Indexes, Previous;  // Previous: the picture before, R G B A
    PIXELS_PALETTE Palette;
    int ShowThrough;  // index that shows the previous picture, -1: none
};

}  // namespace

// Writes `count` pixels of a frame from index `first` on. On purpose, a transparent pixel takes the
// previous picture's pixel at its index in the frame, not at its place on the screen.
static void PutPixels(const GIF_SOURCE &source, size_t first, size_t count, uint8_t *out)
{
    const std::span<const uint8_t> indexes = source.Indexes.subspan(first, count);
    Pixels_FromIndexes(indexes, source.Palette, out);
    if (source.ShowThrough < 0)
        return;
    for (size_t i = 0; i < count; i++)
        if (indexes[i] == source.ShowThrough) {
            const auto pixel = Bytes_GetSpan(source.Previous, (first + i) * 4, 4);
            std::memset(out + 4 * i, 0, 4);
            std::copy(pixel.begin(), pixel.end(), out + 4 * i);
        }
}

// Fills the screen around a frame that is not interlaced.
static void PutSurroundings(const GIF_SOURCE &source, bool overlay, std::span<uint8_t> screen)
{
    if (overlay) {
        const auto shown = Bytes_GetSpan(source.Previous, 0, screen.size());
        std::copy(shown.begin(), shown.end(), screen.begin());
        return;
    }
    std::array<uint8_t, 4> background = GIF_Header.GlobalPalette[GIF_Header.Background];
    background[3] = 0;
    if (background != std::array<uint8_t, 4>{})  // the screen is zeroed already
        for (size_t i = 0; i < screen.size(); i += 4)
            std::memcpy(screen.data() + i, background.data(), 4);
}

static void PutFrame(const GIF_FRAME &frame, const GIF_SOURCE &source, uint8_t *screen)
{
    const size_t width = GIF_Header.Width, height = GIF_Header.Height;
    const size_t shown = frame.Left < width ? std::min<size_t>(frame.Width, width - frame.Left) : 0;
    if (shown == 0)
        return;
    const size_t bottom = std::min<size_t>(height, size_t{frame.Top} + frame.Height);
    for (size_t y = frame.Top, first = 0; y < bottom; y++, first += shown)
        PutPixels(source, first, shown, screen + (y * width + frame.Left) * 4);
}

static void PutInterlaced(const GIF_FRAME &frame, const GIF_SOURCE &source, uint8_t *screen)
{
    const size_t width = frame.Width, pixels = size_t{GIF_Header.Width} * GIF_Header.Height;
    size_t first = 0;
    for (const auto &[step, start] : GIF_Interlace)
        for (size_t y = start; y < frame.Height; y += step, first += width)
            if (y * width < pixels)
                PutPixels(source, first, std::min(width, pixels - y * width),
                          screen + y * width * 4);
}

// Makes the picture of a frame on a zeroed screen.
static void MakePicture(const GIF_FRAME &frame, std::span<const uint8_t> previous, bool overlay,
                        uint8_t *screen)
{
    GIF_SOURCE source{
        {frame.Data, size_t{frame.Width} * frame.Height},
        previous,
        frame.HasLocalPalette ? frame.LocalPalette : GIF_Header.GlobalPalette,
        frame.HasTransparency && overlay ? frame.TransparentIndex : -1,
    };
    if (frame.HasTransparency)
        source.Palette[frame.TransparentIndex][3] = 0;
    if (frame.Interlaced) {
        PutInterlaced(frame, source, screen);
    } else {
        PutSurroundings(source, overlay, {screen, GIF_Header.Size});
        PutFrame(frame, source, screen);
    }
}

// Framework: the pictures of all frames, the first one at `first`.
static void MakePictures(std::span<GIF_FRAME> frames, bool overlay, uint8_t *first)
{
    // On purpose: the picture before the first frame is that frame's indexes.
    std::span<const uint8_t> previous(frames[0].Data, size_t{frames[0].Width} * frames[0].Height);
    for (GIF_FRAME &frame : frames) {
        uint8_t *const screen = &frame == frames.data()
                                    ? first
                                    : Picture_NewPixels(GIF_Header.Width, GIF_Header.Height);
        if (screen)
            MakePicture(frame, previous, overlay, screen);
        std::free(frame.Data);
        frame.Data = screen;
        previous = {screen, screen ? size_t{GIF_Header.Size} : 0};
    }
}

// Format: what the empty screen shows: the background colour, as other decoders do, or transparent
// if the first frame has transparency. Disposal clears to transparent in either case, as browsers
// do.
static uint32_t BackgroundOf(const GIF_PICTURE &gif)
{
    const GIF_HEADER &h = gif.Header;
    const bool opaque = h.HasGlobalPalette && !gif.Frames[0].HasTransparency;
    return opaque ? Pixels_Get(h.GlobalPalette[h.Background].data()) : 0;
}

static void FillBackground(const GIF_PICTURE &gif, uint8_t *screen)
{
    const uint32_t pixel = BackgroundOf(gif);
    Pixels_Make(gif.Header.Size / 4, screen, [pixel](size_t) { return pixel; });
}

// A frame's indexes, as many as its data give.
static std::span<const uint8_t> IndexesOf(const GIF_FRAME &frame, BYTES_BUFFER &indexes)
{
    const size_t count = size_t{frame.Width} * frame.Height;
    indexes.resize(count + OutputPadding(frame.MinimumCodeSize));
    return {indexes.data(),
            GIF_LZW_Decompress(frame, {frame.Data, frame.DataSize}, indexes.data(), count)};
}

static bool IsWhole(const GIF_FRAME &frame, std::span<const uint8_t> indexes)
{
    return indexes.size() == size_t{frame.Width} * frame.Height;
}

static bool CoversScreen(const GIF_PICTURE &gif, const GIF_FRAME &frame)
{
    return frame.Left == 0 && frame.Top == 0 && frame.Width >= gif.Header.Width &&
           frame.Height >= gif.Header.Height;
}

// Whether a complete frame hides all that was before it, and its disposal does not restore that.
static bool HidesAll(const GIF_PICTURE &gif, const GIF_FRAME &frame)
{
    return CoversScreen(gif, frame) && !frame.HasTransparency &&
           frame.Disposal != GIF_DisposeRestore;
}

// Converts the indexes that are not `hidden`; `out` keeps its other pixels.
static void DrawOver(std::span<const uint8_t> row, const PIXELS_PALETTE &palette, uint8_t hidden,
                     uint8_t *out)
{
    constexpr uint64_t ones = 0x0101010101010101, low = 127 * ones, high = 128 * ones;
    constexpr size_t chunk = sizeof(uint64_t);
    size_t i = 0;
    for (; i + chunk <= row.size(); i += chunk) {
        uint64_t differences;  // 0 in the bytes of hidden pixels
        std::memcpy(&differences, row.data() + i, chunk);
        differences ^= ones * hidden;
        if (differences == 0)
            continue;
        if (((((differences & low) + low) | differences) & high) == high) {  // no byte is 0
            Pixels_FromIndexes(row.subspan(i, chunk), palette, out + 4 * i);
            continue;
        }
        Pixels_Make(chunk, out + 4 * i, [&](size_t k) {
            const uint32_t below = Pixels_Get(out + 4 * (i + k));
            const uint32_t pixel = Pixels_Get(palette[row[i + k]].data());
            return row[i + k] == hidden ? below : pixel;
        });
    }
    for (; i < row.size(); i++)
        if (row[i] != hidden)
            std::memcpy(out + 4 * i, palette[row[i]].data(), 4);
}

// Format: draws a frame on the screen, which may be empty, so that no pixel shows through.
static void DrawFrame(const GIF_PICTURE &gif, const GIF_FRAME &frame,
                      std::span<const uint8_t> indexes, uint8_t *screen, bool empty)
{
    const size_t width = frame.Width;
    const size_t right = std::min<size_t>(gif.Header.Width, frame.Left + width);
    const PIXELS_PALETTE &stored =
        frame.HasLocalPalette ? frame.LocalPalette : gif.Header.GlobalPalette;
    const bool hides = frame.HasTransparency && !empty;
    PIXELS_PALETTE cleared;
    if (frame.HasTransparency && empty) {
        cleared = stored;
        cleared[frame.TransparentIndex] = {};
    }
    const PIXELS_PALETTE &palette = frame.HasTransparency && empty ? cleared : stored;
    size_t first = 0;
    const auto draw = [&](size_t y) {
        const auto shown = Bytes_GetSpan(indexes, first, width);
        first += width;
        if (frame.Top + y >= gif.Header.Height || frame.Left >= right)
            return;
        const auto row = Bytes_GetSpan(shown, 0, right - frame.Left);
        uint8_t *out = screen + ((frame.Top + y) * gif.Header.Width + frame.Left) * 4;
        if (!hides)
            return Pixels_FromIndexes(row, palette, out);
        DrawOver(row, palette, frame.TransparentIndex, out);
    };
    if (frame.Interlaced)
        for (const auto &[step, start] : GIF_Interlace)
            for (size_t y = start; y < frame.Height; y += step)
                draw(y);
    else
        for (size_t y = 0; y < frame.Height; y++)
            draw(y);
}

uint8_t *GIF_Decoding(uint16_t mode)
{
    if (!GIF_Loaded || GIF_Loaded->Frames.empty()) {
        Reason_Set("no frames");
        return nullptr;
    }
    GIF_OWNER &gif = *GIF_Loaded;
    const size_t size = sizeof(GIF_FRONT) + GIF_Header.Size;
    void *const block =
        Pages_Advise(gif.FirstOwned == 0 ? std::calloc(size, 1) : std::malloc(size), size);
    if (!block) {
        Reason_Set("out of memory");
        return nullptr;
    }
    auto *const front = new (block) GIF_FRONT{&gif};
    auto *const first = reinterpret_cast<uint8_t *>(front + 1);
    const size_t sizes = std::min<size_t>(GIF_Header.FrameCount, GIF_MaxFrames);
    std::memcpy(&gif.Header, &GIF_Header, GIF_FixedHeader + sizes * sizeof(uint32_t));
    const bool done = Reason_Guard([&gif, mode, first] {
        if (gif.FirstOwned == 0) {
            MakePictures(gif.Frames, mode == 1, first);
            gif.FirstOwned = 1;
            return true;
        }
        const GIF_FRAME &frame = gif.Frames[0];
        BYTES_BUFFER buffer;
        const auto indexes = IndexesOf(frame, buffer);
        if (!IsWhole(frame, indexes))
            Reason_Set("frame 1 ends after %zu of %zu pixels", indexes.size(),
                       size_t{frame.Width} * frame.Height);
        if (!IsWhole(frame, indexes) || !CoversScreen(gif, frame))
            FillBackground(gif, first);
        DrawFrame(gif, frame, indexes, first, true);
        return true;
    });
    if (!done) {
        std::free(block);
        return nullptr;
    }
    static_cast<void>(GIF_Loaded.release());  // the picture owns it now
    return first;
}

void GIF_UnLoad()
{
    GIF_File = BYTES_BUFFER();
}

static GIF_FRONT *FrontOf(const uint8_t *first)
{
    return reinterpret_cast<GIF_FRONT *>(const_cast<uint8_t *>(first)) - 1;
}

void GIF_FreeFrames(uint8_t *first)
{
    const std::unique_ptr<GIF_OWNER> gif(first ? FrontOf(first)->Owner : GIF_Loaded.release());
    if (gif && gif->Frames.data() == GIF_Frames.data())
        GIF_Frames = {};
    if (first)
        std::free(FrontOf(first));
}

const GIF_PICTURE &GIF_PictureOf(const uint8_t *first)
{
    return *FrontOf(first)->Owner;
}

static void ClearRectangle(const GIF_PICTURE &gif, const GIF_FRAME &frame, uint8_t *screen)
{
    const size_t width = gif.Header.Width;
    const size_t right = std::min<size_t>(width, size_t{frame.Left} + frame.Width);
    const size_t bottom = std::min<size_t>(gif.Header.Height, size_t{frame.Top} + frame.Height);
    for (size_t y = frame.Top; y < bottom && frame.Left < right; y++)
        std::memset(screen + (y * width + frame.Left) * 4, 0, (right - frame.Left) * 4);
}

// Composing by the format's rules. The canvas shows frame Laid - 1 on top of what earlier frames
// left. Before the next frame, the one on top is disposed of as it asks: it stays (0, 1), its
// rectangle is cleared to transparent (2), or the screen from before it returns (3), which LayFrame
// saved in Below. Then the next frame is drawn over its rectangle, except where its pixels are
// transparent. A frame so depends on all before it, back to the last one that hides the whole
// screen (HidesAll): GIF_Compose starts there when it jumps.
//
// Disposes of the frame on top.
static void Dispose(const GIF_PICTURE &gif, GIF_CANVAS &canvas)
{
    const GIF_FRAME &frame = gif.Frames[canvas.Laid - 1];
    if (frame.Disposal == GIF_DisposeClear)
        ClearRectangle(gif, frame, canvas.Screen.data());
    else if (frame.Disposal == GIF_DisposeRestore)
        std::swap(canvas.Screen, canvas.Below);
}

// Draws the next frame on the canvas.
static void LayFrame(const GIF_PICTURE &gif, GIF_CANVAS &canvas)
{
    const GIF_FRAME &frame = gif.Frames[canvas.Laid];
    if (frame.Disposal == GIF_DisposeRestore)
        canvas.Below = canvas.Screen;
    DrawFrame(gif, frame, IndexesOf(frame, canvas.Indexes), canvas.Screen.data(), false);
    canvas.Laid++;
}

GIF_CANVAS GIF_CanvasOf(const uint8_t *first)
{
    GIF_CANVAS canvas;
    Reason_Guard([&canvas, first] {
        const GIF_PICTURE &gif = GIF_PictureOf(first);
        canvas.Screen.resize(gif.Header.Size);
        std::copy_n(first, gif.Header.Size, canvas.Screen.begin());
        if (gif.Frames[0].Disposal == GIF_DisposeRestore) {
            canvas.Below.resize(gif.Header.Size);
            FillBackground(gif, canvas.Below.data());
        }
        canvas.Laid = 1;
        return true;
    });
    return canvas;
}

bool GIF_Compose(const GIF_PICTURE &gif, size_t n, GIF_CANVAS &canvas)
{
    if (n >= gif.Frames.size() || gif.Codes.empty()) {
        Reason_Set("no frame %zu to compose", n + 1);
        return false;
    }
    return Reason_Guard([&gif, n, &canvas] {
        const size_t laid = canvas.Laid <= n + 1 ? canvas.Laid : 0;
        const auto isStart = [&gif, &canvas](const GIF_FRAME &frame) {
            return HidesAll(gif, frame) && IsWhole(frame, IndexesOf(frame, canvas.Indexes));
        };
        size_t start = n;
        while (start > laid && !isStart(gif.Frames[start]))
            start--;
        if (start > laid || laid == 0) {
            canvas.Screen.resize(gif.Header.Size);
            FillBackground(gif, canvas.Screen.data());
            canvas.Laid = start;
            LayFrame(gif, canvas);
        }
        while (canvas.Laid <= n) {
            Dispose(gif, canvas);
            LayFrame(gif, canvas);
        }
        return true;
    });
}

GIF_HEADER *GIF_GetHeader(GIF_HEADER *out)
{
    *out = GIF_Header;
    return out;
}

GIF_FRAME *GIF_GetFrames()
{
    return GIF_Frames.empty() ? nullptr : GIF_Frames.data();
}

uint8_t *GIF_HEADER_GetFrameData(uint16_t n)
{
    return n < GIF_Frames.size() ? GIF_Frames[n].Data : nullptr;
}
