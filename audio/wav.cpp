#include "audio/wav.h"

#include <algorithm>

#include "audio/g711.h"

constinit thread_local SOUND_TABLE<WAV_HEADER> WAV_Header{};
constinit thread_local uint8_t WAV_SoundNumber = 0;
constinit thread_local SOUND_FILE WAV_File{};

constexpr uint16_t WAV_TagLinear = 1;
constexpr uint16_t WAV_TagMicrosoft = 2;
constexpr uint16_t WAV_TagAlaw = 6;
constexpr uint16_t WAV_TagUlaw = 7;
constexpr uint16_t WAV_TagIMA = 17;
constexpr uint16_t WAV_TagExtensible = 0xFFFE;

namespace
{

// Where the contents of the chunks start, and the size that the sound data says it has.
struct CHUNKS {
    uint64_t Format = 20;  // of a file without a format chunk before the data
    uint64_t Data = 0;     // 0: not found
    uint32_t DataSize = 0;
};

}  // namespace

static CHUNKS FindChunks()
{
    CHUNKS chunks;
    uint64_t position = 12;
    while (const auto chunk = Sound_GetChunk(WAV_File, position, Sound_GetLittle)) {
        if (chunk->Id == Sound_Id("fmt "))
            chunks.Format = position;
        if (chunk->Id == Sound_Id("data")) {
            chunks.Data = position;
            chunks.DataSize = chunk->Size;
            break;
        }
        position += uint64_t{chunk->Size} + chunk->Size % 2;
    }
    return chunks;
}

// Where the sound data of a file start that has no chunks but format, fact (with ADPCM) and data.
static uint64_t UsualDataStart(const WAV_HEADER &record)
{
    const bool adpcm = record.FormatTag == WAV_TagMicrosoft || record.FormatTag == WAV_TagIMA;
    return adpcm ? uint64_t{record.FormatChunkSize} + 40 : 44;
}

// A size of 0, which recorders write before they know, and one that passes the file's end both mean
// the rest of the file. It is true where the size of the whole is.
static void ReadDataChunk(WAV_HEADER &record, const CHUNKS &chunks)
{
    const uint64_t start = chunks.Data != 0 ? chunks.Data : UsualDataStart(record);
    const uint64_t end = start + chunks.DataSize;
    record.DataStart = static_cast<uint32_t>(start);
    const bool known =
        chunks.DataSize != 0 || Sound_LittleAt(WAV_File, 4, 4) + uint64_t{8} == record.FileSize;
    record.DataEnd = known && end < record.FileSize ? static_cast<uint32_t>(end) : record.FileSize;
    if (chunks.Data == 0)
        Reason_Set("no data chunk");
    constexpr uint32_t unknown = UINT32_MAX;  // of a sound that was not complete yet
    if (chunks.DataSize != unknown)
        Sound_CheckCut(WAV_File, start, chunks.DataSize);
}

static void ReadMicrosoft(WAV_HEADER &record, uint64_t position)
{
    const auto word = [&] { return static_cast<uint16_t>(Sound_GetLittle(WAV_File, position, 2)); };
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

// The fields that all formats have; leaves `position` past them.
static void ReadFormat(WAV_HEADER &record, uint64_t &position)
{
    const uint32_t size = Sound_LittleAt(WAV_File, position - 4, 4);
    const uint64_t subFormat = position + 24;
    const auto word = [&] { return static_cast<uint16_t>(Sound_GetLittle(WAV_File, position, 2)); };
    record.FormatTag = word();
    record.Channels = word();
    record.SamplingRate = Sound_GetLittle(WAV_File, position, 4);
    record.BytesPerSecond = Sound_GetLittle(WAV_File, position, 4);
    record.BlockAlign = word();
    record.BitsPerSample = word();
    if (record.FormatTag == WAV_TagExtensible && size >= 40)
        record.FormatTag = static_cast<uint16_t>(Sound_LittleAt(WAV_File, subFormat, 2));
    if (record.FormatTag == WAV_TagMicrosoft || record.FormatTag == WAV_TagIMA)
        record.FormatChunkSize = size;
}

// Whether linear samples of so many bits are.
static bool IsDecoded(uint16_t bits)
{
    return bits == 8 || bits == 16 || bits == 24 || bits == 32;
}

static void ReadHeader(WAV_HEADER &record)
{
    const CHUNKS chunks = FindChunks();
    uint64_t position = chunks.Format;
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

void WAV_Load(const char *path)
{
    Sound_Load<WAV_HEADER>({WAV_Header, WAV_SoundNumber, WAV_File, ReadHeader}, path);
}

using BLOCK_DECODER = size_t (*)(const WAV_ADPCM &, std::span<const uint8_t>, std::span<uint8_t>);

// Decodes `blocks` blocks; codes that the file lacks are 0. What they leave of the counted bytes is
// silence. Returns the bytes that they store.
static uint32_t DecodeBlocks(WAV_HEADER &record, const SOUND_REFILL &refill, uint32_t blocks,
                             uint32_t counted, BLOCK_DECODER decode)
{
    const WAV_ADPCM adpcm = {record.Coefficients1, record.Coefficients2, record.Decoder,
                             record.Channels == 2};
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

// `header`: a channel's bytes in front of a block's codes; `samples`: those that it stores of them.
// A length is four times the bytes of codes in its blocks, whatever else they store, on purpose.
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

// The sound's bytes from the position of `file` on.
static uint64_t Remaining(const WAV_HEADER &record, FILE *file)
{
    const off_t position = ftello(file);
    return position < 0 || position > record.DataEnd
               ? 0
               : record.DataEnd - static_cast<uint64_t>(position);
}

void WAV_Decoding(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n)
{
    Sound_Decoding(WAV_GetHeader(n), WAV_Fill, file, buffer, length);
}

SOUND_FILLED WAV_Fill(WAV_HEADER &record, const SOUND_REFILL &given)
{
    SOUND_REFILL refill = given;
    refill.Available = Remaining(record, refill.File);
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

// The decoder of a channel that may be none.
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
