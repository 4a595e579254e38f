#include "picture/gif.h"

#include <algorithm>
#include <cstdlib>

#include "extra/bytes.h"
#include "extra/heap.h"
#include "picture/pixels.h"

constinit thread_local GIF_HEADER GIF_Header{};
constinit thread_local std::vector<GIF_FRAME> GIF_Frames{};
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

constexpr unsigned GIF_MaxCodeSize = 12;
constexpr size_t GIF_MaxCodes = 1 << GIF_MaxCodeSize;
constexpr size_t GIF_Chunk = 16;  // bytes that strings are copied by

// What a code stands for: a place in the output. The string of a new code is the one put out last
// and the byte that comes next, so it lies there already. One entry more than there are codes takes
// what a full dictionary cannot.
struct GIF_STRING {
    uint32_t Start, Length;
};
static constinit thread_local std::array<GIF_STRING, GIF_MaxCodes + 1> GIF_DictionaryTree{};

// True once frames have been given out as a picture, which then owns the first.
static constinit thread_local bool GIF_GivenOut{};

static uint8_t GIF_GetByte()
{
    return Bytes_GetByte(GIF_File, GIF_Position);
}

static uint16_t GIF_GetWord()
{
    return static_cast<uint16_t>(Bytes_GetLittle(GIF_File, GIF_Position, 2));
}

static void GIF_GetPalette(PIXELS_PALETTE &palette, size_t colors)
{
    for (size_t i = 0; i < colors; i++)
        for (size_t c = 0; c < 3; c++)
            palette[i][c] = GIF_GetByte();
}

static void ClearPalette(PIXELS_PALETTE &palette)
{
    palette.fill({0, 0, 0, 255});
}

static void ReadHeader()
{
    GIF_HEADER &h = GIF_Header;
    h = {};
    ClearPalette(h.GlobalPalette);
    GIF_Position = 4;
    h.Version = GIF_GetByte();
    GIF_Position++;
    h.Width = GIF_GetWord();
    h.Height = GIF_GetWord();
    h.Size = uint32_t{h.Width} * h.Height * 4;
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

// Appends data sub-blocks to `data`, up to the empty one that ends them.
static void GatherSubBlocks(std::vector<uint8_t> &data)
{
    while (const uint8_t size = GIF_GetByte()) {
        const std::span<const uint8_t> block = Bytes_GetSpan(GIF_File, GIF_Position, size);
        data.insert(data.end(), block.begin(), block.end());
        GIF_Position += size;
    }
}

// Graphic Control Extension, for the frame that comes next.
static void ReadGraphicControl(GIF_FRAME &next)
{
    const uint8_t packed = GIF_GetByte();
    next.HasTransparency = packed & 1;
    next.UserInput = packed >> 1 & 1;
    next.Disposal = packed >> 2 & 7;
    next.Delay = GIF_GetWord();
    next.TransparentIndex = GIF_GetByte();
}

// Up to the next zero byte, the lengths of further sub-blocks included.
static void ReadComment()
{
    const std::span<const uint8_t> rest = Bytes_GetSpan(GIF_File, GIF_Position);
    const auto end = std::find(rest.begin(), rest.end(), 0);
    const size_t length = static_cast<size_t>(end - rest.begin());
    GIF_Header.Comment = {};
    std::copy_n(rest.begin(), std::min(length, GIF_Header.Comment.size() - 1),
                GIF_Header.Comment.begin());
    GIF_Position += length + 1;
}

// What a block of a kind leaves behind is passed over byte by byte by who reads the blocks.
static void ReadExtension(GIF_FRAME &next)
{
    const uint8_t label = GIF_GetByte();
    const uint8_t size = GIF_GetByte();
    switch (label) {
    case GIF_PlainText:
        GIF_Position += 12;
        break;
    case GIF_GraphicControl:
        ReadGraphicControl(next);
        break;
    case GIF_Comment:
        ReadComment();
        break;
    case GIF_Application:
        GIF_Position += size;
        while (const uint8_t more = GIF_GetByte())
            GIF_Position += more;
        break;
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
    ClearPalette(frame.LocalPalette);
    if (frame.HasLocalPalette)
        GIF_GetPalette(frame.LocalPalette, frame.LocalColors);
    frame.MinimumCodeSize = GIF_GetByte();
}

// Reader of codes: `End` bits at `Data`, behind which there are 4 bytes more.
struct GIF_DECODER {
    const uint8_t *Data;
    size_t Position, End;  // in bits
};

// The next `count` bits, at most 25, the lowest first.
static size_t GIF_ReadBits(GIF_DECODER &decoder, unsigned count)
{
    const uint8_t *p = decoder.Data + decoder.Position / 8;
    const uint32_t word = p[0] | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
    const uint32_t bits = word >> (decoder.Position % 8) & ((1u << count) - 1);
    decoder.Position += count;
    return bits;
}

// Bytes that GIF_LZW_Decompress uses behind its output: what a copy by chunks writes too much, and
// the strings of one byte.
static size_t OutputPadding(uint8_t minimumCodeSize)
{
    return GIF_Chunk + (size_t{1} << minimumCodeSize) + GIF_Chunk;
}

// Decompresses at most `count` bytes to `out`; returns how many there are. Stops at the end code,
// at the end of the data, and at a code that is none yet. A full dictionary keeps its codes.
static size_t GIF_LZW_Decompress(GIF_DECODER decoder, uint8_t minimumCodeSize, uint8_t *out,
                                 size_t count)
{
    GIF_STRING *const tree = GIF_DictionaryTree.data();
    const size_t clear = size_t{1} << minimumCodeSize, end = clear + 1;
    const size_t literals = count + GIF_Chunk;
    for (size_t i = 0; i < clear; i++) {
        out[literals + i] = static_cast<uint8_t>(i);
        tree[i] = {static_cast<uint32_t>(literals + i), 1};
    }

    // The first code has no string before it: the entry that it makes is the end code's, which
    // nobody looks up.
    const unsigned firstSize = minimumCodeSize + 1u;
    unsigned size = firstSize;
    size_t next = end, at = 0;
    GIF_STRING previous{};
    while (decoder.Position + size <= decoder.End) {
        const size_t code = GIF_ReadBits(decoder, size);
        if (code == clear) {
            size = firstSize;
            next = end;
            continue;
        }
        if (code == end || code > next)
            break;
        tree[next] = {previous.Start, previous.Length + 1};
        const GIF_STRING string = tree[code];
        if (string.Length > count - at) {
            for (size_t i = string.Start; at < count; at++, i++)
                out[at] = out[i];
            break;
        }
        uint8_t *to = out + at;
        const uint8_t *from = out + string.Start;
        for (size_t i = 0; i < string.Length; i += GIF_Chunk) {
            std::array<uint8_t, GIF_Chunk> chunk;
            std::memcpy(chunk.data(), from + i, GIF_Chunk);
            std::memcpy(to + i, chunk.data(), GIF_Chunk);
        }
        // The new code itself ends with the byte that its own copy has just begun with.
        to[string.Length - 1] = *(code == next ? to : from + string.Length - 1);
        previous = {static_cast<uint32_t>(at), string.Length};
        at += string.Length;
        next += next < GIF_MaxCodes;
        size += size < GIF_MaxCodeSize && next >> size != 0;
    }
    return at;
}

// Reads the frame behind an image separator, all but what a Graphic Control Extension has given.
// False, and nothing kept, when it is cut short or does not fit into `left` bytes of pictures.
static bool LoadFrame(GIF_FRAME frame, uint64_t &left)
{
    ReadImageDescriptor(frame);
    const uint64_t count = uint64_t{frame.Width} * frame.Height;
    const uint64_t size = 4 * std::max(count, uint64_t{GIF_Header.Width} * GIF_Header.Height);
    if (GIF_Position > GIF_File.size() || size > left)
        return false;
    std::vector<uint8_t> data;
    GatherSubBlocks(data);
    const uint8_t minimum = frame.MinimumCodeSize;
    const bool possible = minimum >= 1 && minimum < GIF_MaxCodeSize;
    frame.Data =
        static_cast<uint8_t *>(std::calloc(count + (possible ? OutputPadding(minimum) : 1), 1));
    if (!frame.Data)
        return false;
    GIF_Header.DataSize[GIF_Frames.size()] = static_cast<uint32_t>(data.size());
    if (possible) {
        const size_t bits = data.size() * 8;
        data.insert(data.end(), 4, 0);
        const size_t made = GIF_LZW_Decompress({data.data(), 0, bits}, minimum, frame.Data, count);
        std::memset(frame.Data + made, 0, std::min<size_t>(GIF_Chunk, count - made));
    }
    GIF_Frames.push_back(frame);
    left -= size;
    return true;
}

static void GIF_LoadFrames()
{
    uint64_t left = Picture_MaxBytes;
    GIF_FRAME next{};
    while (GIF_Position < GIF_File.size() && GIF_Frames.size() < GIF_MaxFrames) {
        const uint8_t introducer = GIF_GetByte();
        if (introducer == GIF_Extension) {
            ReadExtension(next);
        } else if (introducer == GIF_Image) {
            if (!LoadFrame(next, left))
                return;
            next = {};
        } else if (introducer == GIF_Trailer) {
            return;
        }
    }
}

void GIF_Load(const char *path)
{
    for (size_t i = GIF_GivenOut ? 1 : 0; i < GIF_Frames.size(); i++)
        std::free(GIF_Frames[i].Data);
    GIF_Frames.clear();
    GIF_GivenOut = false;
    GIF_File = Bytes_LoadFile(path);
    ReadHeader();
    GIF_LoadFrames();
    GIF_Header.FrameCount = static_cast<uint16_t>(GIF_Frames.size());
    // Kept on purpose: heap 0 is this decoder's while it loads, and callers find it so.
    Extra_DestroyHeap(0);
    Extra_SetHeap(0, 0);
}

// What a frame's pixels are made of.
struct GIF_SOURCE {
    std::span<const uint8_t> Indexes, Previous;  // the picture before, R G B A
    PIXELS_PALETTE Palette;
    int ShowThrough;  // index that takes the pixel of the picture before, -1: none
};

// Puts out `count` pixels of a frame from its index `first` on. A pixel that shows through takes
// the place of its index in the frame, not of itself on the screen, on purpose.
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

// The screen around a frame that stands in its place.
static void PutSurroundings(const GIF_SOURCE &source, bool overlay, std::span<uint8_t> screen)
{
    if (overlay) {
        const auto shown = Bytes_GetSpan(source.Previous, 0, screen.size());
        std::copy(shown.begin(), shown.end(), screen.begin());
        return;
    }
    std::array<uint8_t, 4> background = GIF_Header.GlobalPalette[GIF_Header.Background];
    background[3] = 0;
    if (background != std::array<uint8_t, 4>{})  // the screen is black from the start
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

// The picture of a frame, null without memory.
static uint8_t *MakePicture(const GIF_FRAME &frame, std::span<const uint8_t> previous, bool overlay)
{
    uint8_t *screen = Picture_NewPixels(GIF_Header.Width, GIF_Header.Height);
    if (!screen)
        return nullptr;
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
    return screen;
}

uint8_t *GIF_Decoding(uint16_t mode)
{
    GIF_GivenOut = true;
    std::span<const uint8_t> previous;
    for (GIF_FRAME &frame : GIF_Frames) {
        // Nothing was before the first frame but, on purpose, its indexes.
        if (&frame == GIF_Frames.data())
            previous = {frame.Data, size_t{frame.Width} * frame.Height};
        uint8_t *screen = MakePicture(frame, previous, mode == 1);
        std::free(frame.Data);
        frame.Data = screen;
        previous = {screen, screen ? size_t{GIF_Header.Size} : 0};
    }
    return GIF_HEADER_GetFrameData(0);
}

void GIF_UnLoad()
{
    GIF_File = {};
}

void GIF_FreeFrames(uint8_t *first)
{
    if (first == GIF_HEADER_GetFrameData(0)) {
        for (size_t i = 1; i < GIF_Frames.size(); i++)
            std::free(GIF_Frames[i].Data);
        GIF_Frames.clear();
    }
    std::free(first);
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
