#include "audio/wav.h"

#include <algorithm>
#include <utility>

#include "audio/g711.h"

constinit thread_local SOUND_TABLE<WAV_HEADER> WAV_Header{};
constinit thread_local uint8_t WAV_SoundNumber = 0;
constinit thread_local SOUND_FILE WAV_File{};

constexpr uint16_t WAV_TagLinear = 1;
constexpr uint16_t WAV_TagMicrosoft = 2;
constexpr uint16_t WAV_TagFloat = 3;
constexpr uint16_t WAV_TagAlaw = 6;
constexpr uint16_t WAV_TagUlaw = 7;
constexpr uint16_t WAV_TagIMA = 17;
constexpr uint16_t WAV_TagGSM = 49;
constexpr uint16_t WAV_TagMP3 = 0x55;
constexpr uint16_t WAV_TagExtensible = 0xFFFE;

namespace
{

// Where the chunks' contents start, 0 for a chunk that was not found, and the stated size of the
// sound data.
struct CHUNKS {
    uint64_t Format = 0;
    uint64_t Data = 0;
    uint32_t DataSize = 0;
};

}  // namespace

// Numbers of the file being loaded; big-endian in RIFX files.
static thread_local uint32_t (*GetNumber)(SOUND_FILE &, uint64_t &, int) = Sound_GetLittle;

static uint32_t At(uint64_t position, int count)
{
    return GetNumber(WAV_File, position, count);
}

constexpr uint32_t WAV_Unknown = UINT32_MAX;  // size stated before the sound was finished

// The size of the sound data from RF64's chunk of 64-bit sizes (EBU Tech 3306).
static uint32_t LargeSize(uint64_t position)
{
    return At(position + 12, 4) != 0 ? WAV_Unknown : At(position + 8, 4);
}

// By the format's rules, sound data may precede the format chunk.
static CHUNKS FindChunks(uint8_t rules)
{
    CHUNKS chunks;
    uint32_t large = WAV_Unknown;
    uint64_t position = 12;
    while (const auto chunk = Sound_GetChunk(WAV_File, position, GetNumber)) {
        if (chunk->Id == Sound_Id("fmt "))
            chunks.Format = position;
        if (chunk->Id == Sound_Id("ds64"))
            large = LargeSize(position);
        uint32_t size = chunk->Size;
        if (chunk->Id == Sound_Id("data") && chunks.Data == 0) {
            if (size == WAV_Unknown && rules == AUDIO_RULES_FORMAT)
                size = large;
            chunks.Data = position;
            chunks.DataSize = size;
        }
        if (chunks.Data != 0 && (chunks.Format != 0 || rules == AUDIO_RULES_FRAMEWORK))
            break;
        position += uint64_t{size} + size % 2;
    }
    return chunks;
}

// Where the sound data start in a file that has only the chunks format, fact (with ADPCM) and data.
static uint64_t UsualDataStart(const WAV_HEADER &record)
{
    const bool adpcm = record.FormatTag == WAV_TagMicrosoft || record.FormatTag == WAV_TagIMA;
    return adpcm ? uint64_t{record.FormatChunkSize} + 40 : 44;
}

// A size of 0, which recorders write before they know it, and one beyond the end of the file both
// mean the rest of the file. A size of 0 is true, however, where the RIFF size confirms it.
static void ReadDataChunk(WAV_HEADER &record, const CHUNKS &chunks)
{
    const uint64_t start = chunks.Data != 0                        ? chunks.Data
                           : record.Rules == AUDIO_RULES_FRAMEWORK ? UsualDataStart(record)
                                                                   : record.FileSize;
    const uint64_t end = start + chunks.DataSize;
    record.DataStart = static_cast<uint32_t>(start);
    const bool known = chunks.DataSize != 0 || At(4, 4) + uint64_t{8} == record.FileSize;
    record.DataEnd = known && end < record.FileSize ? static_cast<uint32_t>(end) : record.FileSize;
    if (chunks.Data == 0)
        Reason_Set("no data chunk");
    if (chunks.DataSize != WAV_Unknown)
        Sound_CheckCut(WAV_File, start, chunks.DataSize);
}

static void ReadMicrosoft(WAV_HEADER &record, uint64_t position)
{
    const auto word = [&] { return static_cast<uint16_t>(GetNumber(WAV_File, position, 2)); };
    record.ExtraFormatSize = word();
    record.SamplesPerBlock = word();
    record.CoefficientPairs = word();
    if (record.CoefficientPairs >= record.Coefficients1.size())
        return;
    for (size_t i = 0; i < record.CoefficientPairs; i++) {
        record.Coefficients1[i] = static_cast<int16_t>(word());
        record.Coefficients2[i] = static_cast<int16_t>(word());
    }
}

// The fields that all formats have; leaves `position` after them.
static void ReadFormat(WAV_HEADER &record, uint64_t &position)
{
    const uint32_t size = At(position - 4, 4);
    const uint64_t mask = position + 20, subFormat = position + 24;
    const auto word = [&] { return static_cast<uint16_t>(GetNumber(WAV_File, position, 2)); };
    record.FormatTag = word();
    record.Channels = word();
    record.SamplingRate = GetNumber(WAV_File, position, 4);
    record.BytesPerSecond = GetNumber(WAV_File, position, 4);
    record.BlockAlign = word();
    record.BitsPerSample = word();
    if (record.FormatTag == WAV_TagExtensible && size >= 40) {
        record.FormatTag = static_cast<uint16_t>(At(subFormat, 4));
        if (record.FormatTag == 0)  // some RIFX writers store it as two halves, the low one first
            record.FormatTag = static_cast<uint16_t>(At(subFormat, 2));
        record.Frames.Speakers = At(mask, 4);
    }
    if (record.FormatTag == WAV_TagMicrosoft || record.FormatTag == WAV_TagIMA)
        record.FormatChunkSize = size;
}

// Whether this depth of linear samples is decoded.
static bool IsDecoded(uint16_t bits)
{
    return bits == 8 || bits == 16 || bits == 24 || bits == 32;
}

static void ReadFrameworkHeader(WAV_HEADER &record)
{
    constexpr uint64_t usual = 20;  // contents of a file's first chunk
    GetNumber = Sound_GetLittle;
    const CHUNKS chunks = FindChunks(AUDIO_RULES_FRAMEWORK);
    uint64_t position = chunks.Format != 0 ? chunks.Format : usual;
    ReadFormat(record, position);
    switch (record.FormatTag) {
    case WAV_TagLinear:
        if (!IsDecoded(record.BitsPerSample))
            Reason_Set("%u bits a sample", record.BitsPerSample);
        break;
    case WAV_TagMicrosoft:
        ReadMicrosoft(record, position);
        [[fallthrough]];
    case WAV_TagAlaw:
    case WAV_TagUlaw:
    case WAV_TagIMA:
        record.BitsPerSample = 16;
        break;
    default:
        return Reason_Set("format tag %u", record.FormatTag);
    }
    ReadDataChunk(record, chunks);
}

// How linear samples and G.711 are stored: the block size gives the bytes of each sample.
static void SetFrames(WAV_HEADER &record)
{
    SOUND_FRAMES &frames = record.Frames;
    const uint32_t least = (record.BitsPerSample + 7u) / 8;
    const uint32_t channels = std::max<uint32_t>(record.Channels, 1);
    const uint32_t bytes = record.BlockAlign / channels;
    frames.Big = GetNumber == Sound_GetBig;
    frames.Channels = record.Channels;
    frames.Bytes = record.BlockAlign % channels == 0 && bytes > least && bytes <= 8 ? bytes : least;
    frames.Coding = frames.Bytes == 1 ? SOUND_UNSIGNED : SOUND_SIGNED;
    if (record.FormatTag == WAV_TagFloat)
        frames.Coding = SOUND_FLOAT;
    if (record.FormatTag == WAV_TagAlaw || record.FormatTag == WAV_TagUlaw) {
        frames.Coding = record.FormatTag == WAV_TagAlaw ? SOUND_ALAW : SOUND_ULAW;
        frames.Bytes = 1;
    }
    Sound_PrepareFrames(frames);
}

// The coefficient pairs that Microsoft's codec always has.
constexpr std::array<std::array<int16_t, 2>, 7> WAV_Coefficients = {
    {{256, 0}, {512, -256}, {0, 0}, {192, 64}, {240, 0}, {460, -208}, {392, -232}}};

// How blocks are read: their frames, and room for one block and its output. The codecs know one and
// two channels.
static void SetBlocks(WAV_HEADER &record)
{
    const bool microsoft = record.FormatTag == WAV_TagMicrosoft;
    const uint32_t channels = record.Channels, align = record.BlockAlign;
    const uint32_t header = (microsoft ? 7 : 4) * channels;
    if (channels == 0 || channels > 2)
        return Reason_Set("ADPCM of %u channels", channels);
    if (align < header)
        return Reason_Set("ADPCM blocks of %u bytes", align);
    for (size_t i = 0; microsoft && record.CoefficientPairs == 0 && i < WAV_Coefficients.size();
         i++) {
        record.Coefficients1[i] = WAV_Coefficients[i][0];
        record.Coefficients2[i] = WAV_Coefficients[i][1];
    }
    const uint32_t codes =
        align - header - (!microsoft && channels == 2 ? (align - header) % 8 : 0);
    const uint32_t frames = 2 * codes / channels + (microsoft ? 2 : 1);
    const uint32_t named = record.SamplesPerBlock;
    record.BlockFrames = named != 0 && named < frames ? named : frames;
    record.Block.resize(align + 2 * channels * frames);
}

static void ReadCodec(WAV_HEADER &record, uint64_t position)
{
    switch (record.FormatTag) {
    case WAV_TagMicrosoft:
        ReadMicrosoft(record, position);
        return SetBlocks(record);
    case WAV_TagIMA:
        record.ExtraFormatSize = static_cast<uint16_t>(At(position, 2));
        record.SamplesPerBlock = static_cast<uint16_t>(At(position + 2, 2));
        return SetBlocks(record);
    case WAV_TagLinear:
    case WAV_TagFloat:
    case WAV_TagAlaw:
    case WAV_TagUlaw:
        return SetFrames(record);
    case WAV_TagMP3:
        return Reason_Set("MPEG audio inside RIFF WAVE");
    case WAV_TagGSM:
        return Reason_Set("GSM 6.10 compression");
    }
    Reason_Set("format tag %u", record.FormatTag);
}

static void ReadFormatHeader(WAV_HEADER &record)
{
    GetNumber = Sound_BigAt(WAV_File, 0, 4) == Sound_Id("RIFX") ? Sound_GetBig : Sound_GetLittle;
    const CHUNKS chunks = FindChunks(AUDIO_RULES_FORMAT);
    uint64_t position = chunks.Format;
    if (position == 0)
        return Reason_Set("no format chunk");
    ReadFormat(record, position);
    ReadCodec(record, position);
    ReadDataChunk(record, chunks);
    record.BitsPerSample = 16;
    if (record.Frames.Bytes != 0) {
        record.BitsPerSample = Sound_BitsOf(record.Frames);
        record.Channels = Sound_ChannelsOf(record.Frames);
    }
}

static void ReadHeader(WAV_HEADER &record)
{
    if (record.Rules == AUDIO_RULES_FORMAT)
        ReadFormatHeader(record);
    else
        ReadFrameworkHeader(record);
}

void WAV_Load(const char *path)
{
    Sound_Load<WAV_HEADER>({WAV_Header, WAV_SoundNumber, WAV_File, ReadHeader}, path);
}

using BLOCK_DECODER = size_t (*)(const WAV_ADPCM &, std::span<const uint8_t>, std::span<uint8_t>);

static WAV_ADPCM ADPCMOf(WAV_HEADER &record)
{
    WAV_ADPCM adpcm = {record.Coefficients1, record.Coefficients2, record.Decoder,
                       record.Channels == 2, record.Rules == AUDIO_RULES_FORMAT};
    const uint32_t pairs = record.CoefficientPairs;
    if (adpcm.FormatRules && pairs > 0 && pairs < record.Coefficients1.size())
        adpcm.LastPair = static_cast<uint8_t>(pairs - 1);
    return adpcm;
}

// Decodes `blocks` blocks; codes missing from the file are 0. Counted bytes that the blocks leave
// over are silence. Returns the bytes stored.
static uint32_t DecodeBlocks(WAV_HEADER &record, const SOUND_REFILL &refill, uint32_t blocks,
                             uint32_t counted, BLOCK_DECODER decode)
{
    const WAV_ADPCM adpcm = ADPCMOf(record);
    std::array<uint8_t, 65536> scratch;
    const size_t align = record.BlockAlign;
    uint64_t available = refill.Available;
    std::span<uint8_t> out = refill.Buffer;
    while (blocks != 0) {
        const size_t most = std::min<size_t>(blocks, scratch.size() / align);
        const std::span<uint8_t> bytes = std::span(scratch).first(most * align);
        const size_t read =
            std::fread(bytes.data(), 1, std::min<uint64_t>(bytes.size(), available), refill.File);
        std::ranges::fill(bytes.subspan(read), uint8_t{0});
        for (size_t i = 0; i < most; i++)
            out = out.subspan(decode(adpcm, bytes.subspan(i * align, align), out));
        available -= read;
        blocks -= static_cast<uint32_t>(most);
    }
    const size_t written = refill.Buffer.size() - out.size();
    if (written < counted)
        std::ranges::fill(refill.Buffer.subspan(written, counted - written), uint8_t{0});
    return static_cast<uint32_t>(written);
}

// `header`: a channel's bytes before a block's codes; `samples`: how many samples of the header are
// stored. The reported length is four times the bytes of codes in the blocks, whatever else they
// store, on purpose.
static SOUND_FILLED FillADPCM(WAV_HEADER &record, const SOUND_REFILL &refill, uint32_t header,
                              uint32_t samples, BLOCK_DECODER decode)
{
    const uint32_t headers = header * record.Channels;
    if (record.BlockAlign <= headers)
        return {};
    const uint32_t counted = 4u * (record.BlockAlign - headers);
    const uint32_t stored = counted + samples * record.Channels;
    if (refill.Gapless) {
        const auto blocks = static_cast<uint32_t>(std::min<uint64_t>(
            refill.Buffer.size() / stored, refill.Available / record.BlockAlign));
        return {blocks * counted, DecodeBlocks(record, refill, blocks, blocks * counted, decode)};
    }
    const uint64_t length = std::min<uint64_t>(refill.Buffer.size(), 4 * refill.Available);
    const auto blocks = static_cast<uint8_t>(length / counted);  // modulo 256, on purpose
    return {blocks * counted, DecodeBlocks(record, refill, blocks, blocks * counted, decode)};
}

// The bytes read of a block and the frames in it, which are decoded into the record's room after
// it.
static std::pair<size_t, size_t> DecodeBlock(WAV_HEADER &record, FILE *file, uint64_t start)
{
    const WAV_ADPCM adpcm = ADPCMOf(record);
    const std::span<uint8_t> block = std::span(record.Block).first(record.BlockAlign);
    const std::span<uint8_t> out = std::span(record.Block).subspan(record.BlockAlign);
    fseeko(file, static_cast<off_t>(start), SEEK_SET);
    const size_t wanted = std::min<uint64_t>(block.size(), record.DataEnd - start);
    size_t read = std::fread(block.data(), 1, wanted, file);
    if (record.FormatTag == WAV_TagIMA && read < block.size())
        read -= read % 4;  // codes come in words; a truncated block counts its whole ones
    const size_t written = record.FormatTag == WAV_TagMicrosoft
                               ? WAV_MS_ADPCM_Block(adpcm, block.first(read), out)
                               : WAV_IMA_ADPCM_Block(adpcm, block.first(read), out);
    return {read, std::min<size_t>(written / (2u * record.Channels), record.BlockFrames)};
}

// By the format's rules a block gives all its frames, over as many buffers as they need: a position
// within it stands for the frames at the same fraction of it.
static SOUND_FILLED FillBlocks(WAV_HEADER &record, const SOUND_REFILL &refill)
{
    const size_t frame = 2u * record.Channels, room = refill.Buffer.size() / frame;
    uint64_t position = record.DataEnd - refill.Available;
    size_t done = 0;
    while (record.BlockFrames != 0 && done < room && position < record.DataEnd) {
        const uint64_t inside = (position - record.DataStart) % record.BlockAlign;
        const uint64_t start = position - inside;
        const auto [size, frames] = DecodeBlock(record, refill.File, start);
        if (size <= inside)
            break;
        const size_t first = inside * frames / size, left = frames - first;
        uint64_t end = size;
        if (left > room - done)
            end = ((first + room - done + 1) * size - 1) / frames;
        const size_t count = end * frames / size - first;
        std::copy_n(&record.Block[record.BlockAlign] + first * frame, count * frame,
                    refill.Buffer.data() + done * frame);
        done += count;
        position = start + end;
        if (end < size)
            break;
    }
    fseeko(refill.File, static_cast<off_t>(position), SEEK_SET);
    const auto stored = static_cast<uint32_t>(done * frame);
    return {stored, stored};
}

void WAV_Decoding(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n)
{
    Sound_Decoding(WAV_GetHeader(n), WAV_Fill, file, buffer, length);
}

SOUND_FILLED WAV_Fill(WAV_HEADER &record, const SOUND_REFILL &given)
{
    SOUND_REFILL refill = given;
    refill.Available = Sound_Remaining(refill.File, record.DataEnd);
    if (record.Rules == AUDIO_RULES_FORMAT)
        return record.BlockFrames != 0 ? FillBlocks(record, refill)
                                       : Sound_FillFrames(record.Frames, refill);
    switch (record.FormatTag) {
    case WAV_TagLinear:
        if (IsDecoded(record.BitsPerSample))
            return Sound_Samples(refill, record.BitsPerSample / 8u, Sound_Keep);
        break;
    case WAV_TagMicrosoft:
        return FillADPCM(record, refill, 7, 4, WAV_MS_ADPCM_Block);
    case WAV_TagAlaw:
        return Sound_G711(refill, AUDIO_ALAW);
    case WAV_TagUlaw:
        return Sound_G711(refill, AUDIO_ULAW);
    case WAV_TagIMA:
        return FillADPCM(record, refill, 4, 0, WAV_IMA_ADPCM_Block);
    }
    return Sound_Nothing(refill);
}

// Where the sound lies in the file, by either set of rules.
static SOUND_GRAIN GrainOf(const WAV_HEADER &record)
{
    const uint64_t channels = record.Channels, codes = record.BlockAlign - uint64_t{4} * channels;
    if (record.Rules == AUDIO_RULES_FORMAT)
        return record.BlockFrames != 0 ? SOUND_GRAIN{record.BlockAlign, record.BlockFrames}
                                       : SOUND_GRAIN{Sound_StoredBytes(record.Frames), 1};
    switch (record.FormatTag) {
    case WAV_TagMicrosoft:  // its header has 3 more bytes and two samples
        return {record.BlockAlign, (2 * codes - 4 * channels) / std::max(channels, uint64_t{1})};
    case WAV_TagIMA:
        return {record.BlockAlign, 2 * codes / std::max(channels, uint64_t{1})};
    case WAV_TagAlaw:
    case WAV_TagUlaw:
        return {channels, 1};
    }
    return {IsDecoded(record.BitsPerSample) ? record.BitsPerSample / 8 * channels : 0, 1};
}

uint64_t WAV_Seek(WAV_HEADER &record, FILE *file, uint64_t frame)
{
    return Sound_Seek(file, record.DataStart, record.DataEnd, GrainOf(record), frame);
}

// A channel's decoder, or null.
static WAV_CHANNEL *ChannelOf(uint8_t n, uint8_t channel)
{
    WAV_HEADER *record = WAV_GetHeader(n);
    return record && channel < record->Decoder.size() ? &record->Decoder[channel] : nullptr;
}

int32_t WAV_MS_ADPCM_GetNextSample(uint8_t n, uint8_t channel, uint8_t code)
{
    WAV_CHANNEL *decoder = ChannelOf(n, channel);
    return decoder ? WAV_MS_ADPCM_Next(*decoder, code & 15u) : 0;
}

int32_t WAV_IMA_ADPCM_GetNextSample(uint8_t n, uint8_t channel, uint8_t code)
{
    WAV_CHANNEL *decoder = ChannelOf(n, channel);
    return decoder ? WAV_IMA_ADPCM_Next(*decoder, code & 15u) : 0;
}

void WAV_Destroy()
{
    Sound_Destroy(WAV_Header);
}

WAV_HEADER *WAV_GetHeader(uint8_t n)
{
    return Sound_GetHeader(WAV_Header, n);
}

void WAV_SetSoundNumber(uint8_t n)
{
    WAV_SoundNumber = n;
}
