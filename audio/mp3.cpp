#include "audio/mp3.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <span>

constinit thread_local SOUND_TABLE<MP3_HEADER> MP3_Header{};
constinit thread_local uint8_t MP3_SoundNumber = 0;
constinit thread_local SOUND_FILE MP3_File{};
constinit thread_local uint8_t MP3_Init = 0;
constinit thread_local uint16_t MP3_OutputBits = 16;

constexpr int MP3_MaxTagFrames = 4096;

// Destination of an ID3v2 frame's text; null for most frames.
static std::span<char> TextOf(MP3_ID3V2 &tag, uint32_t id)
{
    switch (id) {
    case Sound_Id("TIT2"):
        return tag.Title;
    case Sound_Id("TPE1"):
        return tag.Artist;
    case Sound_Id("TALB"):
        return tag.Album;
    case Sound_Id("TDRC"):
    case Sound_Id("TYER"):
        return tag.Year;
    case Sound_Id("COMM"):
        return tag.Comment;
    case Sound_Id("TRCK"):
        return tag.Track;
    case Sound_Id("TCON"):
        return tag.Genre;
    default:
        return {};
    }
}

// Reads the tag if the file begins with one and returns the position where the counting ends, in
// the tag or after it. Its way of counting is kept on purpose: the size's bytes are read as 8 bits
// each, texts of other frames are not skipped, four bytes of a comment count twice.
static uint64_t ReadID3v2(SOUND_FILE &file, MP3_ID3V2 &tag)
{
    uint64_t position = 0;
    if (Sound_GetBig(file, position, 3) != 0x494433)  // "ID3"
        return 0;
    tag.Version = static_cast<uint16_t>(Sound_GetBig(file, position, 2));
    tag.Flags = Sound_GetByte(file, position);
    tag.Size = Sound_GetBig(file, position, 4);
    int64_t remaining = tag.Size;
    for (int i = 0; i < MP3_MaxTagFrames && remaining >= 9 && position <= file.Size; i++) {
        const uint32_t id = Sound_GetBig(file, position, 4);
        remaining -= 4;
        if (id >> 24 < '0' || id >> 24 > 'Z')
            return position + static_cast<uint64_t>(remaining);
        int64_t length = int64_t{Sound_GetBig(file, position, 4)} - 1;
        position += 3;  // flags and text encoding
        if (remaining > length + 7)
            remaining -= length + 7;
        std::span<char> text = TextOf(tag, id);
        const bool comment = id == Sound_Id("COMM");
        const uint32_t language = comment ? Sound_GetBig(file, position, 4) : 0;
        length = std::max<int64_t>(length - (comment ? 4 : 0), 0);
        if (language >> 24 != 0) {  // on purpose: only a comment without a language is taken
            position += static_cast<uint64_t>(length);
            text = {};
        }
        if (comment && remaining >= 5)
            remaining -= 4;
        if (!text.empty() && remaining >= 9)
            Sound_GetText(file, position, static_cast<uint32_t>(length), text);
    }
    return position;
}

// Reads the ID3v1 tag in the file's last 128 bytes.
static void ReadID3v1(SOUND_FILE &file, MP3_ID3V1 &tag)
{
    tag.Genre = MP3_UnknownGenre;
    if (file.Size < 128)
        return;
    uint64_t position = file.Size - 128;
    if (Sound_GetBig(file, position, 3) != 0x544147)  // "TAG"
        return;
    Sound_GetText(file, position, 30, tag.Title);
    Sound_GetText(file, position, 30, tag.Artist);
    Sound_GetText(file, position, 30, tag.Album);
    Sound_GetText(file, position, 4, tag.Year);
    Sound_GetText(file, position, 30, tag.Comment);
    if (tag.Comment[28] == 0) {  // ID3v1.1
        tag.TrackNumber = static_cast<uint8_t>(tag.Comment[29]);
        tag.Comment[27] = 0;
    }
    tag.Genre = std::min(Sound_GetByte(file, position), MP3_UnknownGenre);
}

// Sets the record's fields from the frame header in its buffer.
static void ReadHeader(MP3_HEADER &record)
{
    const MP3_FRAME frame = MP3_ReadFrameHeader(std::span(record.FrameBuffer).first<4>());
    record.Version = frame.Version;
    record.Layer = frame.Layer;
    record.Protection = frame.Protection;
    record.BitRateIndex = frame.BitRateIndex;
    record.SamplingRateIndex = frame.SamplingRateIndex;
    record.Rate = frame.Rate;
    record.Padding = frame.Padding;
    record.Private = frame.Private;
    record.ChannelMode = frame.ChannelMode;
    record.ModeExtension = frame.ModeExtension;
    record.Copyright = frame.Copyright;
    record.Original = frame.Original;
    record.Emphasis = frame.Emphasis;
    record.Channels = frame.Channels;
    record.SamplingRate = frame.SamplingRate;
    record.BitRate = frame.BitRate;
    record.FrameLength = frame.Length;
}

// The next byte; 0xFF at the end of the file, which the frame search takes for a sync byte.
static uint8_t GetByte(FILE *file)
{
#ifdef _WIN32
    return static_cast<uint8_t>(std::getc(file));
#else
    return static_cast<uint8_t>(getc_unlocked(file));
#endif
}

// Advances past the next byte 0xFF. False if none was found within a limit or before the end of the
// file. Usually it is the very next byte; longer gaps are searched by blocks. `passed` counts the
// bytes.
static bool SkipToSync(FILE *file, size_t &passed)
{
    constexpr size_t few = 256;
    for (size_t i = 0; i < few; i++) {
        passed++;
        if (GetByte(file) == 0xFF)
            return !feof(file);
    }
    std::array<uint8_t, 16384> block;
    const size_t read = std::fread(block.data(), 1, block.size(), file);
    const auto *sync = static_cast<const uint8_t *>(std::memchr(block.data(), 0xFF, read));
    const size_t used = sync ? static_cast<size_t>(sync - block.data()) + 1 : read;
    passed += used;
    if (sync)
        fseeko(file, static_cast<off_t>(used) - static_cast<off_t>(read), SEEK_CUR);
    return sync;
}

// Reads the body of the frame whose header is in the record's buffer.
static void ReadBody(FILE *file, MP3_HEADER &record)
{
    const size_t checksum = record.Protection == 1 ? 2 : 0;
    for (size_t i = 0; i < checksum; i++)
        GetByte(file);  // the CRC is not checked
    const std::span body = std::span(record.FrameBuffer).subspan(4, record.FrameLength - 4u);
    const size_t read = std::fread(body.data(), 1, body.size() - checksum, file);
    std::fill(body.begin() + static_cast<ptrdiff_t>(read), body.end(), uint8_t{0});
}

using SEARCH = MP3_SEARCH;

// Reads the next frame into the record's buffer. Gives up once `passed`, to which the searched
// bytes are added, exceeds MP3_MaxSearch.
static SEARCH FindFrameByFramework(FILE *file, MP3_HEADER &record, size_t &passed)
{
    while (!feof(file)) {
        if (passed > MP3_MaxSearch)
            return SEARCH::Unfinished;
        if (!SkipToSync(file, passed))
            continue;
        const uint8_t second = GetByte(file);
        passed++;
        if (second == 0xFF)
            return SEARCH::End;
        if ((second & 0xE6) == 0xE4)
            Reason_Set("Layer II");
        if (!MP3_IsSync(0xFF, second))
            continue;
        record.FrameBuffer[0] = 0xFF;
        record.FrameBuffer[1] = second;
        record.FrameBuffer[2] = GetByte(file);
        record.FrameBuffer[3] = GetByte(file);
        passed += 2;
        ReadHeader(record);
        if (record.FrameLength < 4)
            continue;
        ReadBody(file, record);
        passed += record.FrameLength;
        return SEARCH::Found;
    }
    return SEARCH::End;
}

// The same by the standard.
static SEARCH FindFrameByFormat(FILE *file, MP3_HEADER &record, size_t &passed)
{
    size_t length = 0;
    const std::span frame(record.FrameBuffer);
    const uint64_t expected = record.Frames.Next;
    const SEARCH found = MP3_NextFrame(file, record.Frames, frame, length, passed);
    if (found != SEARCH::Found)
        return found;
    if (record.Frames.Next - length != expected)
        record.Layer3.ReservoirSize = 0;  // its bits do not precede this frame's
    passed += length;
    ReadHeader(record);
    record.FrameLength = static_cast<uint16_t>(length);
    if (record.Protection == 0)
        return found;
    const bool right = MP3_IsChecksumRight(frame.first(length));
    record.Frames.Damaged = record.Frames.Checked && !right;
    record.Frames.Checked |= right;
    std::copy(frame.begin() + 6, frame.begin() + static_cast<ptrdiff_t>(length), frame.begin() + 4);
    record.FrameLength = static_cast<uint16_t>(length - 2);
    return found;
}

static SEARCH FindFrame(FILE *file, MP3_HEADER &record, size_t &passed)
{
    return record.Rules == AUDIO_RULES_FORMAT ? FindFrameByFormat(file, record, passed)
                                              : FindFrameByFramework(file, record, passed);
}

static void ReadFirstFrameByFormat(FILE *file, MP3_HEADER &record)
{
    MP3_FindStream(file, record.Frames);
    record.DataStart = static_cast<uint32_t>(record.Frames.Start);
    fseeko(file, static_cast<off_t>(record.DataStart), SEEK_SET);
    size_t passed = 0;
    if (record.Frames.Header != 0 && FindFrame(file, record, passed) != SEARCH::Found)
        Reason_Set("no frame of Layer III");
    MP3_StartOver(record);
}

static void ReadFirstFrameByFramework(FILE *file, MP3_HEADER &record, uint64_t position)
{
    fseeko(file, static_cast<off_t>(position), SEEK_SET);
    size_t passed = 0;
    if (FindFrame(file, record, passed) != SEARCH::Found)
        Reason_Set("no frame of Layer III");
    else if (record.Layer == 3)
        Reason_Set("Layer I");
    else
        Reason_Clear();
}

// Opens a stream of its own for the first frame, which lies after the tag.
static void ReadFirstFrame(MP3_HEADER &record, uint64_t position)
{
    const SOUND_STREAM stream = Sound_OpenStream(*MP3_File.From);
    if (!stream)
        return;
    if (record.Rules == AUDIO_RULES_FORMAT)
        ReadFirstFrameByFormat(stream.get(), record);
    else
        ReadFirstFrameByFramework(stream.get(), record, position);
    if (std::ferror(stream.get())) {
        Reason_Clear();  // of what was searched for in vain
        Reason_Set("cannot be read: %s", std::strerror(errno));
    }
}

// Truncates a text to fit `field`, without splitting a character.
template <size_t N>
static void CutText(const std::string &text, std::array<char, N> &field)
{
    size_t count = std::min(text.size(), N - 1);
    while (count < text.size() && count > 0 && (text[count] & 0xC0) == 0x80)
        count--;
    text.copy(field.data(), count);
}

static void ReadTagsByFormat(MP3_HEADER &record)
{
    const MP3_PART part = MP3_ReadTags(MP3_File, record.Texts);
    record.Frames.Start = part.Start;
    record.Frames.End = part.End;
    MP3_ID3V2 &tag = record.ID3v2;
    CutText(record.Texts.Title, tag.Title);
    CutText(record.Texts.Artist, tag.Artist);
    CutText(record.Texts.Album, tag.Album);
    CutText(record.Texts.Year, tag.Year);
    CutText(record.Texts.Comment, tag.Comment);
    CutText(record.Texts.Track, tag.Track);
    CutText(record.Texts.Genre, tag.Genre);
}

static void ReadFile(MP3_HEADER &record)
{
    if (record.Rules == AUDIO_RULES_FORMAT)
        ReadTagsByFormat(record);
    const uint64_t position =
        record.Rules == AUDIO_RULES_FORMAT ? 0 : ReadID3v2(MP3_File, record.ID3v2);
    ReadFirstFrame(record, position);
    ReadID3v1(MP3_File, record.ID3v1);
    MP3_BuildTables();
    MP3_Init = 1;
    const bool wide = record.Rules == AUDIO_RULES_FORMAT && MP3_OutputBits == 32;
    record.BitsPerSample = wide ? 32 : 16;
}

void MP3_Load(const char *path)
{
    Sound_Load<MP3_HEADER>({MP3_Header, MP3_SoundNumber, MP3_File, ReadFile}, path);
}

uint8_t MP3_LoadFrame(FILE *file, uint8_t n)
{
    MP3_HEADER *record = MP3_GetHeader(n);
    if (!record)
        return 0;
    SEARCH found;
    do {
        size_t passed = 0;
        found = FindFrame(file, *record, passed);
    } while (found == SEARCH::Unfinished);
    return found == SEARCH::Found ? 1 : 0;
}

// Bytes of the decoded samples of the record's frame.
static uint32_t DecodedSize(const MP3_HEADER &record)
{
    return (record.Version == 3 ? 36u : 18u) * 32 * 2 * record.Channels;
}

template <typename Sample>
static int32_t Decode(MP3_HEADER &record, Sample *samples)
{
    constexpr uint8_t reserved = 1;
    if (record.FrameLength < 4)
        return -1;
    const bool byFormat = record.Rules == AUDIO_RULES_FORMAT;
    MP3_LAYER3 &layer3 = record.Layer3;
    MP3_InitGetBits(layer3.Bits, record.FrameBuffer.data() + 4, 8 * (record.FrameLength - 4));
    if (record.Protection == 1 && !byFormat)
        MP3_GetBits(layer3.Bits, 16);  // on purpose, although the buffer holds no CRC
    const bool joint = record.ChannelMode == 1;
    const MP3_FORMAT format = {record.Rate,
                               static_cast<uint8_t>(record.Channels),
                               joint && (record.ModeExtension & 1) != 0,
                               joint && (record.ModeExtension & 2) != 0,
                               byFormat,
                               record.Frames.Damaged};
    const int blocks = record.Version == reserved ? -1 : MP3_DecodeGranules(layer3, format);
    if (byFormat)
        MP3_KeepMainData(layer3);
    else
        MP3_KeepReservoir(layer3, blocks < 0);
    if (blocks < 0)
        return -1;
    const auto channels = std::span(layer3.Filter).first(record.Channels);
    if constexpr (sizeof(Sample) == 2)
        MP3_Synthesis(channels, static_cast<size_t>(blocks), samples, byFormat);
    else
        MP3_Synthesis(channels, static_cast<size_t>(blocks), samples);
    return static_cast<int32_t>(DecodedSize(record) / 2 * sizeof(Sample));
}

int32_t MP3_Decode(MP3_HEADER &record, int16_t *samples)
{
    return Decode(record, samples);
}

// Writes samples little-endian.
template <typename Sample>
static void StoreSamples(const Sample *samples, size_t bytes, uint8_t *out)
{
    constexpr size_t size = sizeof(Sample);
    if constexpr (std::endian::native == std::endian::little)
        std::memcpy(out, samples, bytes);
    else
        for (size_t i = 0; i < bytes; i++)
            out[i] = static_cast<uint8_t>(samples[i / size] >> i % size * 8);
}

// Converts a frame's samples to the sound's channels.
template <typename Sample>
static void SetChannels(std::array<Sample, MP3_MaxSamples> &samples, uint32_t count,
                        uint16_t channels, uint16_t wanted)
{
    if (channels == 1 && wanted == 2)
        for (size_t i = count; i-- > 0;)
            samples[2 * i] = samples[2 * i + 1] = samples[i];
    if (channels == 2 && wanted == 1)
        for (size_t i = 0; i < count; i++)
            samples[i] = static_cast<Sample>((int64_t{samples[2 * i]} + samples[2 * i + 1]) / 2);
}

// The samples of the next frame, `count` per channel, that belong to the sound.
//
// An encoder pads both ends: it starts with silence for its own and the decoder's delay, and fills
// the last frame up. The info frame states both amounts, so the first `Skip` samples and everything
// after `Samples` more are dropped. Two files cut from one recording, or a file and its repetition,
// then join without a gap.
template <typename Sample>
static std::span<const Sample>
TrimFrame(MP3_STREAM &frames, const std::array<Sample, MP3_MaxSamples> &samples, uint32_t count)
{
    const uint64_t first = frames.Sample, end = first + count;
    const uint64_t last = frames.Samples != 0 ? frames.Skip + frames.Samples : UINT64_MAX;
    frames.Sample = end;
    const uint64_t from = std::clamp<uint64_t>(frames.Skip, first, end);
    const uint64_t to = std::clamp(last, from, std::max(from, end));
    return std::span<const Sample>(samples).subspan((from - first) * frames.Channels,
                                                    (to - from) * frames.Channels);
}

template <typename Sample>
static SOUND_FILLED FillByFormat(MP3_HEADER &record, const SOUND_REFILL &refill)
{
    FILE *file = refill.File;
    MP3_STREAM &frames = record.Frames;
    std::array<Sample, MP3_MaxSamples> samples;
    const auto frame = static_cast<uint32_t>(sizeof(Sample)) * frames.Channels;
    std::span<uint8_t> room = refill.Buffer;
    const uint32_t count = MP3_FrameSamples(frames.Header), size = count * frame;
    if (frames.Header != 0 && static_cast<uint64_t>(ftello(file)) == frames.Start)
        MP3_StartOver(record);
    size_t passed = 0;  // bytes since the last frame
    SEARCH found = SEARCH::End;
    while (frames.Header != 0 &&
           (frames.Samples == 0 || frames.Sample < frames.Skip + frames.Samples)) {
        if (size > room.size() && room.size() != refill.Buffer.size())
            break;
        found = FindFrame(file, record, passed);
        if (found != SEARCH::Found)
            break;
        passed = 0;
        Decode(record, samples.data());
        SetChannels(samples, count, record.Channels, frames.Channels);
        const auto kept = TrimFrame(frames, samples, count);
        const size_t stored = std::min(kept.size_bytes(), room.size() - room.size() % frame);
        StoreSamples(kept.data(), stored, room.data());
        room = room.subspan(stored);
    }
    const auto length = static_cast<uint32_t>(refill.Buffer.size() - room.size());
    return {length, length, found == SEARCH::Unfinished && length == 0};
}

static SOUND_FILLED FillByFramework(MP3_HEADER &record, const SOUND_REFILL &refill)
{
    FILE *file = refill.File;
    std::array<int16_t, MP3_MaxSamples> samples;
    std::span<uint8_t> room = refill.Buffer;
    const auto filled = [&](bool unfinished = false) {
        const auto length = static_cast<uint32_t>(refill.Buffer.size() - room.size());
        return SOUND_FILLED{length, length, unfinished && length == 0};
    };
    size_t passed = 0;  // bytes since the last frame that was decoded
    for (;;) {
        const long start = std::ftell(file);
        const SEARCH found = FindFrame(file, record, passed);
        if (found != SEARCH::Found)
            return filled(found == SEARCH::Unfinished);
        if (DecodedSize(record) > room.size() && room.size() != refill.Buffer.size()) {
            std::fseek(file, start, SEEK_SET);  // it is larger than earlier frames
            return filled();
        }
        const int32_t decoded = MP3_Decode(record, samples.data());
        if (decoded < 0)
            continue;
        passed = 0;
        const auto size = static_cast<size_t>(decoded);
        const size_t stored = std::min(size, room.size() - room.size() % (2u * record.Channels));
        StoreSamples(samples.data(), stored, room.data());
        room = room.subspan(stored);
        if (room.size() < size)
            return filled();
    }
}

SOUND_FILLED MP3_Fill(MP3_HEADER &record, const SOUND_REFILL &refill)
{
    if (record.Rules == AUDIO_RULES_FRAMEWORK)
        return FillByFramework(record, refill);
    return record.BitsPerSample == 32 ? FillByFormat<int32_t>(record, refill)
                                      : FillByFormat<int16_t>(record, refill);
}

void MP3_Decoding(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n)
{
    MP3_HEADER *record = MP3_GetHeader(n);
    SOUND_FILLED filled;
    do
        filled = record ? MP3_Fill(*record, {file, {buffer, *length}}) : SOUND_FILLED{};
    while (filled.Unfinished);
    *length = filled.Length;
}

void MP3_StartOver(MP3_HEADER &record)
{
    record.Layer3 = {};
    record.Frames.Sample = 0;
    record.Frames.Next = record.Frames.Start;
    record.Frames.Checked = false;
}

// Indexes frames until there are `count`, or to the end of the file.
//
// Frames of variable bit rate have no computable position, so the first seek walks the headers from
// the start and notes the position of every MP3_IndexStep-th frame. Later seeks use these notes and
// extend them only past the farthest frame seen. Memory is bounded: one number for MP3_IndexStep
// frames.
static void Index(MP3_HEADER &record, FILE *file, uint64_t count)
{
    MP3_INDEX &index = record.Index;
    if (index.Places.empty()) {
        index.Stream = record.Frames;
        index.Stream.Next = record.Frames.Start;
        index.Stream.Checked = false;
    }
    fseeko(file, static_cast<off_t>(index.Stream.Next), SEEK_SET);
    std::array<uint8_t, MP3_MaxFreeFrame> frame;
    while (index.Frames < count) {
        size_t length = 0, passed = 0;
        const SEARCH found = MP3_NextFrame(file, index.Stream, frame, length, passed);
        if (found == SEARCH::End)
            break;
        if (found == SEARCH::Unfinished)
            continue;
        if (!index.Stream.Checked) {
            index.Checked = index.Frames;
            index.Stream.Checked =
                (frame[1] & 1) == 0 && MP3_IsChecksumRight(std::span(frame).first(length));
        }
        if (index.Frames++ % MP3_IndexStep == 0)
            index.Places.push_back(static_cast<uint32_t>(index.Stream.Next - length));
    }
}

// An index place early enough before frame n for an exact start there.
//
// Frame n cannot be decoded alone: its main data may begin up to MP3_MaxReservoir bytes earlier,
// its IMDCT overlaps the granule before it, and the synthesis window reaches back 15 slots. So the
// one or two frames before n must be decoded in full, and they in turn need the reservoir. Going
// back by the reservoir's size, plus header and side information of each frame passed, which hold
// no main data, collects enough bytes.
static size_t PlaceBefore(const MP3_INDEX &index, uint64_t n)
{
    constexpr uint64_t reservoir = MP3_MaxReservoir, header = 6 + 32;  // the longest, with a CRC
    const auto last = static_cast<size_t>((n - std::min<uint64_t>(n, 2)) / MP3_IndexStep);
    size_t place = last;
    while (place > 0 && index.Places[last] - index.Places[place] <
                            reservoir + (last - place) * MP3_IndexStep * header)
        place--;
    return place;
}

uint64_t MP3_Seek(MP3_HEADER &record, FILE *file, uint64_t frame)
{
    MP3_STREAM &stream = record.Frames;
    if (record.Rules == AUDIO_RULES_FRAMEWORK || stream.Header == 0)
        return 0;
    const uint64_t size = MP3_FrameSamples(stream.Header);
    const uint64_t sample =
        stream.Skip + (stream.Samples != 0 ? std::min(frame, stream.Samples) : frame);
    Index(record, file, sample / size + 1);
    const uint64_t n = std::min(sample / size, record.Index.Frames);
    MP3_StartOver(record);
    fseeko(file, static_cast<off_t>(stream.Start), SEEK_SET);
    if (n == 0)
        return 0;
    const size_t place = PlaceBefore(record.Index, n);
    uint64_t at = place * MP3_IndexStep;
    stream.Next = record.Index.Places[place];
    stream.Checked = record.Index.Checked < at;
    fseeko(file, static_cast<off_t>(stream.Next), SEEK_SET);
    std::array<int16_t, MP3_MaxSamples> samples;
    while (at < n) {
        size_t passed = 0;
        const SEARCH found = FindFrame(file, record, passed);
        if (found == SEARCH::End)
            break;
        if (found == SEARCH::Unfinished)
            continue;
        MP3_Decode(record, samples.data());
        at++;
    }
    stream.Sample = at * size;
    return stream.Sample - std::min<uint64_t>(stream.Sample, stream.Skip);
}

void MP3_Destroy()
{
    Sound_Destroy(MP3_Header);
}

MP3_HEADER *MP3_GetHeader(uint8_t n)
{
    return Sound_GetHeader(MP3_Header, n);
}

void MP3_SetSoundNumber(uint8_t n)
{
    MP3_SoundNumber = n;
}
