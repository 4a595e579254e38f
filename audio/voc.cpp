#include "audio/voc.h"

#include <algorithm>
#include <optional>

#include "audio/g711.h"

constinit thread_local SOUND_TABLE<VOC_HEADER> VOC_Header{};
constinit thread_local uint8_t VOC_SoundNumber = 0;
constinit thread_local SOUND_FILE VOC_File{};

constexpr uint64_t VOC_FirstBlock = 26;
constexpr uint64_t VOC_ScanEnd = 1024;

static uint32_t At(uint64_t position, int count)
{
    return Sound_LittleAt(VOC_File, position, count);
}

// Sound data.
static void ReadBlock1(VOC_HEADER &record, uint64_t block)
{
    record.SamplingRate = 1000000 / (256 - At(block + 4, 1));
    record.Codec = static_cast<uint16_t>(At(block + 5, 1));
    record.DataStart = static_cast<uint32_t>(block + 6);
}

// Extended: what the following sound data block cannot say. That block's rate wins, on purpose.
static void ReadBlock8(VOC_HEADER &record, uint64_t block)
{
    record.Codec = static_cast<uint16_t>(At(block + 6, 1));
    record.Channels = static_cast<uint16_t>(At(block + 7, 1) + 1);
    record.SamplingRate = 256000000 / (record.Channels * (65536 - At(block + 4, 2)));
}

// Sound data, new format.
static void ReadBlock9(VOC_HEADER &record, uint64_t block)
{
    record.SamplingRate = At(block + 4, 4);
    record.BitsPerSample = static_cast<uint16_t>(At(block + 8, 1));
    record.Channels = static_cast<uint16_t>(At(block + 9, 1));
    record.Codec = static_cast<uint16_t>(At(block + 10, 2));
    record.DataStart = static_cast<uint32_t>(block + 16);
}

// Tests every byte as a block's type; the blocks' lengths are not used, on purpose.
static void ReadBlocks(VOC_HEADER &record)
{
    for (uint64_t block = VOC_FirstBlock; block < VOC_ScanEnd; block++) {
        switch (At(block, 1)) {
        case 1:
            return ReadBlock1(record, block);
        case 8:
            ReadBlock8(record, block);
            block += 7;
            break;
        case 9:
            return ReadBlock9(record, block);
        }
    }
}

static void ReadFrameworkHeader(VOC_HEADER &record)
{
    record.BitsPerSample = 8;
    ReadBlocks(record);
    if (record.Codec == 6 || record.Codec == 7)
        record.BitsPerSample = 16;
    else if (record.Codec != 0 && record.Codec != 4)
        Reason_Set("codec %u", record.Codec);
    if (record.DataStart == 0)
        Reason_Set("no sound block");
}

namespace
{

// A sound block's description of its samples.
struct VOC_FORMAT {
    uint32_t Rate, Codec, Channels;
};

// A walk over all blocks by their lengths.
struct VOC_WALK {
    VOC_HEADER &Record;
    std::optional<VOC_FORMAT> Extended;  // for the next sound data block
    size_t Repeated = 0;                 // first piece of the repeated part
    uint32_t Repeats = 0;                // how many further times it is played
};

}  // namespace

constexpr uint32_t VOC_MaxBlocks = 4096;
constexpr size_t VOC_MaxPieces = 65536;
constexpr uint32_t VOC_Endless = 0xFFFF;  // an endless repeat, which is left to the player

static SOUND_FRAMES FramesOf(const VOC_FORMAT &format)
{
    SOUND_FRAMES frames;
    frames.Channels = format.Channels;
    switch (format.Codec) {
    case 0:
        frames.Coding = SOUND_UNSIGNED;
        break;
    case 4:
        break;
    case 6:
        frames.Coding = SOUND_ALAW;
        break;
    case 7:
        frames.Coding = SOUND_ULAW;
        break;
    default:
        Reason_Set("Creative ADPCM, codec %u", format.Codec);
        return frames;
    }
    frames.Bytes = format.Codec == 4 ? 2 : 1;
    Sound_PrepareFrames(frames);
    return frames;
}

// The first block's format is the sound's; a block of another coding ends it. False if the sound
// ends here.
static bool SetFormat(VOC_HEADER &record, const VOC_FORMAT &format)
{
    if (record.Frames.Bytes == 0) {
        record.Codec = static_cast<uint16_t>(format.Codec);
        record.SamplingRate = format.Rate;
        record.Frames = FramesOf(format);
        return record.Frames.Bytes != 0;
    }
    const bool same = record.Codec == format.Codec && record.Frames.Channels == format.Channels;
    if (!same)
        Reason_Set("codec %u with %u channels after codec %u with %u", format.Codec,
                   format.Channels, record.Codec, record.Frames.Channels);
    else if (record.SamplingRate != format.Rate)
        Reason_Set("a block of %u Hz is played with %u", format.Rate, record.SamplingRate);
    return same;
}

static void AddPiece(VOC_HEADER &record, VOC_PIECE piece)
{
    if (record.Pieces.size() == VOC_MaxPieces)
        Reason_Set("more than %zu blocks with repeats", VOC_MaxPieces);
    else if (piece.Start < record.FileSize)
        record.Pieces.push_back(piece);
}

static void AddData(VOC_HEADER &record, uint64_t start, uint64_t end)
{
    Sound_CheckCut(VOC_File, start, end - std::min(start, end));
    end = std::min<uint64_t>(end, record.FileSize);
    if (start < end)
        AddPiece(record, {static_cast<uint32_t>(start), static_cast<uint32_t>(end - start), 0, 0});
}

static void EndRepeat(VOC_WALK &walk)
{
    std::vector<VOC_PIECE> &pieces = walk.Record.Pieces;
    const size_t end = pieces.size();
    for (uint32_t k = 0; k < walk.Repeats && pieces.size() < VOC_MaxPieces; k++)
        for (size_t i = walk.Repeated; i < end; i++)
            AddPiece(walk.Record, VOC_PIECE(pieces[i]));
    walk.Repeats = 0;
}

// A block with contents from `start` to `end`. False if the sound ends.
static bool ReadBlock(VOC_WALK &walk, uint32_t type, uint64_t start, uint64_t end)
{
    VOC_HEADER &record = walk.Record;
    switch (type) {
    case 1: {  // sound data
        const VOC_FORMAT own = {1000000 / (256 - At(start, 1)), At(start + 1, 1), 1};
        const VOC_FORMAT format = walk.Extended.value_or(own);
        walk.Extended.reset();
        if (!SetFormat(record, format))
            return false;
        AddData(record, start + 2, end);
        break;
    }
    case 2:  // more of it
        AddData(record, start, end);
        break;
    case 3:  // silence
        AddPiece(record, {static_cast<uint32_t>(start), 0, At(start, 2) + 1,
                          1000000 / (256 - At(start + 2, 1))});
        break;
    case 6:
        walk.Repeated = record.Pieces.size();
        walk.Repeats = At(start, 2) == VOC_Endless ? 0 : At(start, 2);
        break;
    case 7:
        EndRepeat(walk);
        break;
    case 8: {  // the following block's format
        const uint32_t channels = At(start + 3, 1) + 1;
        walk.Extended = {256000000 / (channels * (65536 - At(start, 2))), At(start + 2, 1),
                         channels};
        break;
    }
    case 9:  // sound data, new format
        if (!SetFormat(record, {At(start, 4), At(start + 6, 2), At(start + 5, 1)}))
            return false;
        AddData(record, start + 12, end);
        break;
    }
    return true;  // markers and texts, too, are skipped
}

static void ReadFormatHeader(VOC_HEADER &record)
{
    VOC_WALK walk = {record, {}};
    uint64_t position = At(20, 2);
    for (uint32_t blocks = 0; position < record.FileSize; blocks++) {
        if (blocks == VOC_MaxBlocks) {
            Reason_Set("more than %u blocks", VOC_MaxBlocks);
            break;
        }
        const uint32_t type = At(position, 1);
        const uint64_t start = position + 4, end = start + At(position + 1, 3);
        if (type == 0 || !ReadBlock(walk, type, start, end))
            break;
        position = end;
    }
    record.Channels = Sound_ChannelsOf(record.Frames);
    record.BitsPerSample = Sound_BitsOf(record.Frames);
    for (VOC_PIECE &piece : record.Pieces)
        if (piece.Rate != 0)
            piece.Silence =
                static_cast<uint32_t>(uint64_t{piece.Silence} * record.SamplingRate / piece.Rate);
    if (record.Frames.Bytes == 0) {
        Reason_Set("no sound block");
        record.Pieces.clear();
    }
    record.DataStart = record.Pieces.empty() ? record.FileSize : record.Pieces[0].Start;
}

static void ReadHeader(VOC_HEADER &record)
{
    record.Version = static_cast<uint16_t>(At(22, 2));
    record.Validation = At(24, 2);
    if (record.Rules == AUDIO_RULES_FORMAT)
        ReadFormatHeader(record);
    else
        ReadFrameworkHeader(record);
}

void VOC_Load(const char *path)
{
    Sound_Load<VOC_HEADER>({VOC_Header, VOC_SoundNumber, VOC_File, ReadHeader}, path);
}

void VOC_Decoding(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n)
{
    Sound_Decoding(VOC_GetHeader(n), VOC_Fill, file, buffer, length);
}

// The position that represents the cursor: in sound data the cursor's own; in silence that of the
// block or, once it has begun, the byte after it.
static uint64_t PositionOf(const VOC_HEADER &record)
{
    const VOC_PIECE &piece = record.Pieces[record.Piece];
    return piece.Start + (piece.Bytes != 0 ? record.Done : std::min(record.Done, 1u));
}

// Moves the cursor to the file's position. It is there already unless the sound was rewound or
// moved; repeats then count as not yet played.
static void FindCursor(VOC_HEADER &record, FILE *file)
{
    const off_t given = ftello(file);
    const uint64_t position = given < 0 ? 0 : static_cast<uint64_t>(given);
    if (position != record.DataStart && position == PositionOf(record))
        return;
    const auto found = std::ranges::find_if(record.Pieces, [position](const VOC_PIECE &piece) {
        return position < uint64_t{piece.Start} + std::max(piece.Bytes, 1u);
    });
    const bool none = found == record.Pieces.end();
    record.Piece =
        none ? record.Pieces.size() - 1 : static_cast<size_t>(found - record.Pieces.begin());
    const VOC_PIECE &piece = record.Pieces[record.Piece];
    record.Done = none ? std::max(piece.Bytes, piece.Silence) : 0;
    if (!none && position > piece.Start) {
        const auto inside = static_cast<uint32_t>(position - piece.Start);
        record.Done = inside - inside % Sound_StoredBytes(record.Frames);
    }
}

// Stores what is left of a piece. Returns the bytes.
static size_t FillPiece(VOC_HEADER &record, FILE *file, std::span<uint8_t> out)
{
    const VOC_PIECE &piece = record.Pieces[record.Piece];
    if (piece.Bytes != 0) {
        fseeko(file, static_cast<off_t>(PositionOf(record)), SEEK_SET);
        const uint64_t left = piece.Bytes - record.Done;
        const size_t stored = Sound_FillFrames(record.Frames, {file, out, true, left}).Stored;
        const size_t frame = record.BitsPerSample / 8u * record.Channels;
        record.Done += static_cast<uint32_t>(stored / frame * Sound_StoredBytes(record.Frames));
        return stored;
    }
    const size_t frame = record.BitsPerSample / 8u * record.Channels;
    const size_t count = std::min<size_t>(piece.Silence - record.Done, out.size() / frame);
    std::ranges::fill(out.first(count * frame),
                      record.BitsPerSample == 8 ? uint8_t{128} : uint8_t{0});
    record.Done += static_cast<uint32_t>(count);
    return count * frame;
}

// The format's rules: piece by piece.
static SOUND_FILLED FillPieces(VOC_HEADER &record, const SOUND_REFILL &refill)
{
    if (record.Pieces.empty())
        return {};
    FindCursor(record, refill.File);
    const size_t frame = record.BitsPerSample / 8u * record.Channels;
    std::span<uint8_t> out = refill.Buffer;
    for (;;) {
        out = out.subspan(FillPiece(record, refill.File, out));
        if (out.size() < frame || record.Piece + 1 == record.Pieces.size())
            break;
        record.Piece++;
        record.Done = 0;
    }
    fseeko(refill.File, static_cast<off_t>(PositionOf(record)), SEEK_SET);
    const auto stored = static_cast<uint32_t>(refill.Buffer.size() - out.size());
    return {stored, stored};
}

SOUND_FILLED VOC_Fill(VOC_HEADER &record, const SOUND_REFILL &refill)
{
    if (record.Rules == AUDIO_RULES_FORMAT)
        return FillPieces(record, refill);
    switch (record.Codec) {
    case 0:
        return Sound_Samples(refill, 1, Sound_Keep);
    case 4:
        return Sound_Samples(refill, 2, Sound_Keep);
    case 6:
        return Sound_G711(refill, AUDIO_ALAW);
    case 7:
        return Sound_G711(refill, AUDIO_ULAW);
    }
    return Sound_Nothing(refill);
}

// The piece that contains the frame or ends at it.
static uint64_t SeekPiece(VOC_HEADER &record, FILE *file, uint64_t frame)
{
    const uint32_t stored = Sound_StoredBytes(record.Frames);
    uint64_t before = 0;
    record.Piece = 0;
    for (const VOC_PIECE &piece : record.Pieces) {
        const uint64_t frames = piece.Bytes != 0 ? piece.Bytes / stored : piece.Silence;
        const bool last = record.Piece + 1 == record.Pieces.size();
        const uint64_t inside = std::min(frame - before, frames);
        record.Done = static_cast<uint32_t>(inside * (piece.Bytes != 0 ? stored : 1));
        if (before + inside == frame || last) {
            fseeko(file, static_cast<off_t>(PositionOf(record)), SEEK_SET);
            return before + inside;
        }
        before += frames;
        record.Piece++;
    }
    return 0;
}

uint64_t VOC_Seek(VOC_HEADER &record, FILE *file, uint64_t frame)
{
    if (record.Rules == AUDIO_RULES_FORMAT)
        return SeekPiece(record, file, frame);
    const bool g711 = record.Codec == 6 || record.Codec == 7;
    const uint64_t bytes =
        g711 || record.Codec == 0 || record.Codec == 4 ? record.BitsPerSample / 8u : 0;
    return Sound_Seek(file, record.DataStart, record.FileSize,
                      {(g711 ? bytes / 2 : bytes) * record.Channels, 1}, frame);
}

void VOC_Destroy()
{
    Sound_Destroy(VOC_Header);
}

VOC_HEADER *VOC_GetHeader(uint8_t n)
{
    return Sound_GetHeader(VOC_Header, n);
}

void VOC_SetSoundNumber(uint8_t n)
{
    VOC_SoundNumber = n;
}
