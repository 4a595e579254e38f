#include "audio/mp3_stream.h"

#include <algorithm>
#include <cstring>

#include "audio/mp3_tags.h"

// The header at `at` if one can stand there, else 0.
static uint32_t HeaderAt(std::span<const uint8_t> bytes, size_t at)
{
    if (at + 4 > bytes.size())
        return 0;
    const uint32_t header = Bytes_GetBig(bytes, at, 4);
    return MP3_IsHeader(header) ? header : 0;
}

static std::span<const uint8_t> ReadAt(FILE *file, uint64_t at, uint64_t end,
                                       std::span<uint8_t> bytes)
{
    if (at >= end || fseeko(file, static_cast<off_t>(at), SEEK_SET) != 0)
        return {};
    const size_t most = static_cast<size_t>(std::min<uint64_t>(bytes.size(), end - at));
    return bytes.first(std::fread(bytes.data(), 1, most, file));
}

// Length, without padding, of the free-format frame that `bytes` begin with: the distance to the
// next header, after which a third one stands or the bytes end. 0 if no such header follows.
static uint32_t FindFreeLength(std::span<const uint8_t> bytes, uint32_t header)
{
    const size_t shortest = 4 + MP3_SideLength(header), padding = MP3_PaddingLength(header);
    const size_t last = std::min<size_t>(bytes.size(), MP3_MaxFreeFrame + 1);
    for (size_t at = shortest; at < last; at++) {
        const uint32_t second = HeaderAt(bytes, at);
        if (second == 0 || !MP3_Agree(header, second))
            continue;
        const size_t length = at - padding, third = at + length + MP3_PaddingLength(second);
        if (third + 4 > bytes.size() || MP3_Agree(header, HeaderAt(bytes, third)))
            return static_cast<uint32_t>(length);
    }
    return 0;
}

// Length of the frame with this header, 0 if unknown.
static uint64_t LengthOf(const MP3_STREAM &stream, uint32_t header)
{
    const uint32_t length = MP3_StandardLength(header);
    const uint32_t known = length != 0 ? length : stream.FreeLength;
    return known != 0 ? known + MP3_PaddingLength(header) : 0;
}

// Whether a frame with this header is at `at`: an agreeing one follows, or the sound ends there.
// Finds the length of free format.
static bool IsBelieved(FILE *file, MP3_STREAM &stream, uint64_t at, uint32_t header)
{
    if (MP3_StandardLength(header) == 0 && stream.Header == 0) {
        std::array<uint8_t, 2 * MP3_MaxFreeFrame + 6> bytes;
        stream.FreeLength = FindFreeLength(ReadAt(file, at, stream.End, bytes), header);
    }
    const uint64_t length = LengthOf(stream, header);
    std::array<uint8_t, 4> bytes;
    const auto next = ReadAt(file, at + length, stream.End, bytes);
    return length != 0 && (at + length == stream.End || MP3_Agree(header, HeaderAt(next, 0)));
}

// Searches from `at` for a plausible frame and leaves the file there. It must agree with the first
// frame, if one was found.
static MP3_SEARCH Resync(FILE *file, MP3_STREAM &stream, uint64_t at, size_t &passed)
{
    std::array<uint8_t, 16384> block;
    while (passed <= MP3_MaxSearch) {
        const auto bytes = ReadAt(file, at, stream.End, block);
        if (bytes.size() < 4)
            return MP3_SEARCH::End;
        for (size_t i = 0; i + 4 <= bytes.size(); i++) {
            const auto *sync =
                static_cast<const uint8_t *>(std::memchr(bytes.data() + i, 0xFF, bytes.size() - i));
            i = sync ? static_cast<size_t>(sync - bytes.data()) : bytes.size();
            const uint32_t header = HeaderAt(bytes, i);
            if (header == 0 || (stream.Header != 0 && !MP3_Agree(stream.Header, header)))
                continue;
            passed += MP3_StandardLength(header) != 0 ? 64 : 1024;  // the cost of a test
            if (!IsBelieved(file, stream, at + i, header))
                continue;
            passed += i;
            stream.Next = at + i;
            fseeko(file, static_cast<off_t>(stream.Next), SEEK_SET);
            return MP3_SEARCH::Found;
        }
        passed += bytes.size() - 3;
        at += bytes.size() - 3;
    }
    fseeko(file, static_cast<off_t>(at), SEEK_SET);
    return MP3_SEARCH::Unfinished;
}

MP3_SEARCH MP3_NextFrame(FILE *file, MP3_STREAM &stream, std::span<uint8_t, MP3_MaxFreeFrame> frame,
                         size_t &length, size_t &passed)
{
    uint64_t at = static_cast<uint64_t>(ftello(file));
    for (int attempt = 0; attempt < 2; attempt++) {
        const bool whole = at + 4 <= stream.End && std::fread(frame.data(), 1, 4, file) == 4;
        const uint32_t header = whole ? HeaderAt(frame.first<4>(), 0) : 0;
        if (at == stream.Next && header != 0 && MP3_Agree(stream.Header, header)) {
            length = static_cast<size_t>(LengthOf(stream, header));
            if (length < 4 + MP3_SideLength(header) || length > frame.size())
                return MP3_SEARCH::End;
            if (at + length > stream.End ||
                std::fread(frame.data() + 4, 1, length - 4, file) != length - 4) {
                Reason_Set("cut in its last frame");
                return MP3_SEARCH::End;
            }
            stream.Next = at + length;
            return MP3_SEARCH::Found;
        }
        const MP3_SEARCH found = Resync(file, stream, at, passed);
        if (found != MP3_SEARCH::Found)
            return found;
        at = stream.Next;
    }
    return MP3_SEARCH::End;
}

// A number of frames, or 0 if the file has no room for so many headers and side information.
static uint32_t BelieveFrames(uint32_t frames, uint32_t header, const MP3_STREAM &stream)
{
    return frames <= (stream.End - stream.Start) / (4 + MP3_SideLength(header)) ? frames : 0;
}

// An info frame in place of sound: its length in frames and, of LAME's kind, the samples added
// before and after.
static bool ReadInfo(std::span<const uint8_t> frame, uint32_t header, MP3_STREAM &stream)
{
    const auto number = [frame](size_t at, int count) { return Bytes_GetBig(frame, at, count); };
    if (number(36, 4) == Sound_Id("VBRI")) {
        stream.Frames = BelieveFrames(number(36 + 14, 4), header, stream);
        return true;
    }
    size_t at = 4 + MP3_SideLength(header);
    const auto named = [&] {
        const uint32_t name = number(at, 4);
        return name == Sound_Id("Xing") || name == Sound_Id("Info");
    };
    if (!named() && (header >> 16 & 1) == 0)
        at += 2;  // past the CRC
    if (!named())
        return false;
    const uint32_t fields = number(at + 4, 4);
    const bool counted = (fields & 1) != 0, sized = (fields & 2) != 0;
    at += 8;
    stream.Frames = counted ? BelieveFrames(number(at, 4), header, stream) : 0;
    at += counted ? 4 : 0;
    const uint32_t size = sized ? number(at, 4) : 0;
    at += (sized ? 4 : 0) + ((fields & 4) != 0 ? 100 : 0) + ((fields & 8) != 0 ? 4 : 0);
    constexpr size_t delays = 21;  // past the encoder's name and its settings
    if (at + delays + 3 > frame.size() || frame[at] == 0)
        return true;
    const uint32_t delay = number(at + delays, 3) >> 12, padding = number(at + delays, 3) & 0xFFF;
    stream.Skip = delay + MP3_DecoderDelay;
    const uint64_t all = uint64_t{stream.Frames} * MP3_FrameSamples(header);
    const bool joined = sized && stream.End - stream.Start > uint64_t{size} + MP3_MaxFreeFrame;
    if (!joined && all > delay + padding)
        stream.Samples = all - delay - padding;
    return true;
}

static bool IsLayer3(uint32_t header)
{
    return (header >> 17 & 3) == 1;
}

void MP3_FindStream(FILE *file, MP3_STREAM &stream)
{
    size_t passed = 0;
    const MP3_SEARCH found = Resync(file, stream, stream.Start, passed);
    std::array<uint8_t, MP3_MaxFreeFrame> bytes;
    const auto frame = ReadAt(file, stream.Next, stream.End, bytes);
    const uint32_t header = HeaderAt(frame, 0);
    if (found != MP3_SEARCH::Found || header == 0)
        return Reason_Set("no frame of MPEG audio");
    if (!IsLayer3(header))
        return Reason_Set("MPEG audio Layer %s", (header >> 17 & 3) == 2 ? "II" : "I");
    stream.Start = stream.Next;
    stream.Header = header;
    stream.Channels = (header >> 6 & 3) == 3 ? 1 : 2;
    const size_t length = std::min(static_cast<size_t>(LengthOf(stream, header)), frame.size());
    if (ReadInfo(frame.first(length), header, stream))
        stream.Start += length;
    stream.Next = stream.Start;
}

// Remainder of the bits' division by the polynomial 0x8005.
static uint16_t Checksum(uint16_t sum, std::span<const uint8_t> bytes)
{
    for (const uint8_t byte : bytes)
        for (int bit = 7; bit >= 0; bit--)
            sum = static_cast<uint16_t>(sum << 1 ^ ((sum >> 15 ^ byte >> bit) & 1 ? 0x8005 : 0));
    return sum;
}

bool MP3_IsChecksumRight(std::span<const uint8_t> frame)
{
    const size_t side = MP3_SideLength(HeaderAt(frame, 0));
    if (frame.size() < 6 + side)
        return false;
    const uint16_t header = Checksum(0xFFFF, frame.subspan(2, 2));
    return Checksum(header, frame.subspan(6, side)) == (frame[4] << 8 | frame[5]);
}

// How many agreeing headers follow the one at `at`, up to 2. One that would lie past the end of the
// bytes counts as agreeing after one that is present, and where the `first` frame is expected.
// Elsewhere the bytes may be a picture or a program; there free-format frames do not count, since
// their distance is arbitrary, nor do headers that others follow at shorter distances.
static int CountAgreeing(std::span<const uint8_t> bytes, size_t at, bool first)
{
    MP3_STREAM stream{};
    const uint32_t header = HeaderAt(bytes, at);
    if (MP3_StandardLength(header) == 0 && first)
        stream.FreeLength = FindFreeLength(bytes.subspan(at), header);
    for (int count = 0; count < 2; count++) {
        const auto length = static_cast<size_t>(LengthOf(stream, HeaderAt(bytes, at)));
        if (length == 0)
            return count;
        const size_t next = at + length;
        if (next + 4 > bytes.size())
            return first || count != 0 ? 2 : 0;
        if (!MP3_Agree(header, HeaderAt(bytes, next)))
            return count;
        while (++at < next && !first)
            if (MP3_Agree(header, HeaderAt(bytes, at)))
                return 0;
        at = next;
    }
    return 2;
}

bool MP3_IsStream(std::span<const uint8_t> head)
{
    const BYTES_OPEN memory(head);
    SOUND_FILE file{.From = &memory, .Size = static_cast<uint32_t>(head.size())};
    uint64_t start = 0;
    while (const uint64_t size = MP3_TagAt(file, start)) {
        start += size;
        if (start >= head.size())
            return true;
    }
    for (size_t at = static_cast<size_t>(start); at + 4 <= head.size(); at++)
        if (HeaderAt(head, at) != 0 &&
            CountAgreeing(head, at, at == start) >= (at == start ? 1 : 2))
            return true;
    return false;
}
