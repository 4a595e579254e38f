#include "audio/wav.h"

#include <algorithm>

#include "audio/g711.h"

SOUND_TABLE<WAV_HEADER> WAV_Header;
uint8_t WAV_SoundNumber = 0;
SOUND_FILE WAV_File;

constexpr uint16_t TagLinear = 1;
constexpr uint16_t TagMicrosoft = 2;
constexpr uint16_t TagAlaw = 6;
constexpr uint16_t TagUlaw = 7;
constexpr uint16_t TagIMA = 17;
constexpr uint16_t TagExtensible = 0xFFFE;

// Where the contents of the chunks start, and the size that the sound data says it has.
struct CHUNKS {
    uint64_t Format = 20;  // of a file without a format chunk before the data
    uint64_t Data = 0;     // 0: not found
    uint32_t DataSize = 0;
};

static CHUNKS FindChunks()
{
    CHUNKS chunks;
    uint64_t position = 12;
    while (position < WAV_File.Size) {
        const uint32_t id = Sound_GetBig(WAV_File, position, 4);
        const uint32_t size = Sound_GetLittle(WAV_File, position, 4);
        if (id == Sound_Id("fmt "))
            chunks.Format = position;
        if (id == Sound_Id("data")) {
            chunks.Data = position;
            chunks.DataSize = size;
            break;
        }
        position += uint64_t{size} + size % 2;
    }
    return chunks;
}

// Where the sound data of a file start that has no chunks but format, fact (with ADPCM) and data.
static uint64_t UsualDataStart(const WAV_HEADER &record)
{
    const bool adpcm = record.FormatTag == TagMicrosoft || record.FormatTag == TagIMA;
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

// The fields that all formats have; leaves `position` behind them.
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
    if (record.FormatTag == TagExtensible && size >= 40)
        record.FormatTag = static_cast<uint16_t>(Sound_LittleAt(WAV_File, subFormat, 2));
    if (record.FormatTag == TagMicrosoft || record.FormatTag == TagIMA)
        record.FormatChunkSize = size;
}

static void ReadHeader(WAV_HEADER &record)
{
    const CHUNKS chunks = FindChunks();
    uint64_t position = chunks.Format;
    ReadFormat(record, position);
    switch (record.FormatTag) {
    case TagLinear:
        break;
    case TagMicrosoft:
        ReadMicrosoft(record, position);
        [[fallthrough]];
    case TagAlaw:
    case TagUlaw:
    case TagIMA:
        record.BitsPerSample = 16;
        break;
    default:
        return;
    }
    ReadDataChunk(record, chunks);
}

void WAV_Load(const char *path)
{
    Sound_Load(WAV_Header, WAV_SoundNumber, WAV_File, path, ReadHeader);
}

static void DecodeLinear(const SOUND_REFILL &refill, uint16_t bits, uint32_t *length)
{
    if (bits == 8 || bits == 16 || bits == 24 || bits == 32)
        *length = Sound_Samples(refill, bits / 8u, Sound_Keep);
}

using BLOCK_DECODER = size_t (*)(const WAV_ADPCM &, std::span<const uint8_t>, std::span<uint8_t>);

// Decodes `blocks` blocks; codes that the file lacks are 0. What they leave of the counted bytes is
// silence.
static void DecodeBlocks(WAV_HEADER &record, const SOUND_REFILL &refill, uint32_t blocks,
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
}

// `header`: a channel's bytes in front of a block's codes.
static uint32_t DecodeADPCM(WAV_HEADER &record, const SOUND_REFILL &refill, uint32_t header,
                            BLOCK_DECODER decode)
{
    const uint32_t headers = header * record.Channels;
    if (record.BlockAlign <= headers)
        return 0;
    const uint32_t blockBytes = 4u * (record.BlockAlign - headers);
    const uint64_t length = std::min<uint64_t>(refill.Buffer.size(), 4 * refill.Available);
    const uint8_t blocks = static_cast<uint8_t>(length / blockBytes);  // modulo 256, on purpose
    DecodeBlocks(record, refill, blocks, blocks * blockBytes, decode);
    return blocks * blockBytes;
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
    WAV_HEADER *record = WAV_GetHeader(n);
    if (!record) {
        *length = 0;
        return;
    }
    const SOUND_REFILL refill = {file, {buffer, *length}, Remaining(*record, file)};
    switch (record->FormatTag) {
    case TagLinear:
        DecodeLinear(refill, record->BitsPerSample, length);
        break;
    case TagMicrosoft:
        *length = DecodeADPCM(*record, refill, 7, WAV_MS_ADPCM_Block);
        break;
    case TagAlaw:
        *length = Sound_G711(refill, AUDIO_ALAW);
        break;
    case TagUlaw:
        *length = Sound_G711(refill, AUDIO_ULAW);
        break;
    case TagIMA:
        *length = DecodeADPCM(*record, refill, 4, WAV_IMA_ADPCM_Block);
        break;
    }
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
