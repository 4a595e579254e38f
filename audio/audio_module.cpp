#include "audio/audio_module.h"

#include <algorithm>
#include <string_view>

#include "audio/aiff.h"
#include "audio/au.h"
#include "audio/iff.h"
#include "audio/mod.h"
#include "audio/mod_song.h"
#include "audio/mp3.h"
#include "audio/mp3_frame.h"
#include "audio/voc.h"
#include "audio/wav.h"

constinit thread_local uint8_t Audio_Type = AUDIO_NONE;
constinit thread_local AUDIO_MP3FRAME Audio_MP3Frame{};
constinit thread_local AUDIO_MP3DETECT Audio_MP3Detect{};

static bool Has(const AUDIO_HEAD &head, size_t offset, std::string_view tag)
{
    return std::equal(tag.begin(), tag.end(), head.begin() + static_cast<ptrdiff_t>(offset),
                      [](char a, uint8_t b) { return static_cast<uint8_t>(a) == b; });
}

static_assert(MP3_MaxFrame < Audio_HeadBytes,
              "no frame is so long that it would have to be taken as none");

// Returns the frame's length.
static size_t ExamineFrame(std::span<const uint8_t, 4> header)
{
    const MP3_FRAME f = MP3_ReadFrameHeader(header);
    Audio_MP3Frame = {f.Version,   f.Layer,    f.Protection, f.BitRateIndex, f.SamplingRateIndex,
                      f.Rate,      f.Padding,  f.Private,    f.ChannelMode,  f.ModeExtension,
                      f.Copyright, f.Original, f.Emphasis,   f.Length};
    Audio_MP3Detect = {f.Channels, f.SamplingRate, f.BitRate};
    return f.Length;
}

static bool IsAU(const AUDIO_HEAD &head)
{
    const std::string_view start(reinterpret_cast<const char *>(head.data()), 4);
    return start == ".snd" || (Audio_Rules == AUDIO_RULES_FORMAT && AU_IsLittle(start));
}

// Whether a file identifies itself as one of the kinds that the format's rules try only after MPEG
// audio.
static bool NamesItself(const AUDIO_HEAD &head)
{
    return MOD_IsModule(head) || Has(head, 0, "FORM") || IsAU(head) ||
           Has(head, 0, "Creative Voice File");
}

// Detects MPEG audio. The framework's rules: two frames where an earlier frame's length predicted
// them; such hits add up over the whole block, and a predicted frame predicts none itself. The
// format's rules: consecutive frames whose headers agree.
static bool IsMPEG(const AUDIO_HEAD &head)
{
    if (Audio_Rules == AUDIO_RULES_FORMAT)
        return !NamesItself(head) && MP3_IsStream(std::span(head).first(Audio_HeadBytes));
    constexpr size_t shortest = 128;  // up to this length a frame is skipped, but predicts nothing
    size_t predicted = SIZE_MAX;
    int hits = 0;
    for (size_t i = 0; i < Audio_HeadBytes;) {
        if (!MP3_IsSync(head[i], head[i + 1])) {
            i++;
            continue;
        }
        if (i == predicted) {
            if (++hits == 2)
                return true;
            i++;
            continue;
        }
        const size_t length = ExamineFrame(std::span<const uint8_t, 4>(&head[i], 4));
        i += std::max<size_t>(length, 1);
        if (length > shortest)
            predicted = i;
    }
    return false;
}

// The format's rules also accept its larger and its big-endian kinds. MPEG audio in a WAVE file
// (tag 0x55) is left to the MPEG decoder, which finds the frames.
static bool IsWAV(const AUDIO_HEAD &head)
{
    if (Audio_Rules == AUDIO_RULES_FRAMEWORK)
        return Has(head, 0, "RIFF") && Has(head, 8, "WAVE");
    const bool riff = Has(head, 0, "RIFF");
    const bool mpeg = riff && Has(head, 12, "fmt ") && head[20] == 0x55 && head[21] == 0;
    const bool other = Has(head, 0, "RIFX") || Has(head, 0, "RF64") || Has(head, 0, "BW64");
    return (riff || other) && Has(head, 8, "WAVE") && !(mpeg && IsMPEG(head));
}

// The name, a byte 0x1A that ends it when printed, and the offset of the first block.
static bool IsVOC(const AUDIO_HEAD &head)
{
    return Has(head, 0, std::string_view("Creative Voice File\x1A\x1A\0", 22));
}

static bool IsIFF(const AUDIO_HEAD &head)
{
    return Has(head, 0, "FORM") && (Has(head, 8, "8SVX") || Has(head, 8, "16SV"));
}

// Whatever precedes the form's type.
static bool IsAIFF(const AUDIO_HEAD &head)
{
    return Has(head, 8, "AIFF") || Has(head, 8, "AIFC");
}

static bool IsMOD(const AUDIO_HEAD &head)
{
    if (Audio_Rules == AUDIO_RULES_FORMAT)
        return MOD_IsModule(head);
    return MOD_IsSignature(std::span<const uint8_t, 4>(&head[MOD_SignatureAt], 4));
}

// A row's operations by record, from typed ones.
template <typename Header, SOUND_FILLED (*Fill)(Header &, const SOUND_REFILL &)>
static SOUND_FILLED FillRecord(void *record, const SOUND_REFILL &refill)
{
    return Fill(*static_cast<Header *>(record), refill);
}

template <typename Header>
static std::shared_ptr<void> RecordOf(const SOUND_TABLE<Header> &table, uint8_t n)
{
    return n < table.size() ? table[n] : nullptr;
}

template <typename Header>
static AUDIO_FACTS FactsOf(const void *record)
{
    const auto &header = *static_cast<const Header *>(record);
    return {header.Channels, header.SamplingRate, header.BitsPerSample, header.DataStart};
}

template <typename Header, void (*StartOver)(Header &)>
static void StartOverRecord(void *record)
{
    StartOver(*static_cast<Header *>(record));
}

template <typename Header, uint64_t (*Seek)(Header &, FILE *, uint64_t)>
static uint64_t SeekRecord(void *record, FILE *file, uint64_t frame)
{
    return Seek(*static_cast<Header *>(record), file, frame);
}

static void SetModuleOutput(void *record, uint8_t channels, uint32_t hz, uint8_t bits)
{
    auto &header = *static_cast<MOD_HEADER *>(record);
    header.Channels = channels;
    header.SamplingRate = hz;
    header.BitsPerSample = bits;
}

// clang-format off
static constexpr std::array<AUDIO_MODULE, AUDIO_TYPES> rows = {{
    {AUDIO_NONE, "nothing"},
    {AUDIO_RAW, "raw samples"},  // read by the engine itself
    {AUDIO_WAV, "RIFF WAVE", 1, IsWAV,
     WAV_Load, FillRecord<WAV_HEADER, WAV_Fill>, WAV_Destroy,
     [](uint8_t n) { return RecordOf(WAV_Header, n); }, FactsOf<WAV_HEADER>,
     [] { return WAV_SoundNumber; }, WAV_SetSoundNumber,
     nullptr, SeekRecord<WAV_HEADER, WAV_Seek>},
    {AUDIO_MOD, "tracker module", 7, IsMOD,
     MOD_Load, FillRecord<MOD_HEADER, MOD_Fill>, MOD_Destroy,
     [](uint8_t n) { return RecordOf(MOD_Header, n); }, FactsOf<MOD_HEADER>,
     [] { return MOD_SoundNumber; }, MOD_SetSoundNumber,
     StartOverRecord<MOD_HEADER, MOD_StartOver>, SeekRecord<MOD_HEADER, MOD_Seek>,
     SetModuleOutput},
    {AUDIO_MP3, "MPEG audio", 2, IsMPEG,
     MP3_Load, FillRecord<MP3_HEADER, MP3_Fill>, MP3_Destroy,
     [](uint8_t n) { return RecordOf(MP3_Header, n); }, FactsOf<MP3_HEADER>,
     [] { return MP3_SoundNumber; }, MP3_SetSoundNumber,
     StartOverRecord<MP3_HEADER, MP3_StartOver>, SeekRecord<MP3_HEADER, MP3_Seek>, nullptr, true},
    {AUDIO_VOC, "Creative Voice", 3, IsVOC,
     VOC_Load, FillRecord<VOC_HEADER, VOC_Fill>, VOC_Destroy,
     [](uint8_t n) { return RecordOf(VOC_Header, n); }, FactsOf<VOC_HEADER>,
     [] { return VOC_SoundNumber; }, VOC_SetSoundNumber,
     nullptr, SeekRecord<VOC_HEADER, VOC_Seek>},
    {AUDIO_AU, "Sun/NeXT audio", 4, IsAU,
     AU_Load, FillRecord<AU_HEADER, AU_Fill>, AU_Destroy,
     [](uint8_t n) { return RecordOf(AU_Header, n); }, FactsOf<AU_HEADER>,
     [] { return AU_SoundNumber; }, AU_SetSoundNumber,
     nullptr, SeekRecord<AU_HEADER, AU_Seek>},
    {AUDIO_IFF, "IFF 8SVX or 16SV", 5, IsIFF,
     IFF_Load, FillRecord<IFF_HEADER, IFF_Fill>, IFF_Destroy,
     [](uint8_t n) { return RecordOf(IFF_Header, n); }, FactsOf<IFF_HEADER>,
     [] { return IFF_SoundNumber; }, IFF_SetSoundNumber,
     nullptr, SeekRecord<IFF_HEADER, IFF_Seek>},
    {AUDIO_AIFF, "AIFF", 6, IsAIFF,
     AIFF_Load, FillRecord<AIFF_HEADER, AIFF_Fill>, AIFF_Destroy,
     [](uint8_t n) { return RecordOf(AIFF_Header, n); }, FactsOf<AIFF_HEADER>,
     [] { return AIFF_SoundNumber; }, AIFF_SetSoundNumber,
     nullptr, SeekRecord<AIFF_HEADER, AIFF_Seek>},
}};
// clang-format on

// Every type has its row, and the ranks run from 1 without a gap.
static consteval bool RowsAreComplete()
{
    uint32_t types = 0, ranks = 0;
    for (size_t i = 0; i < rows.size(); i++) {
        types += rows[i].Type == i;
        ranks |= rows[i].Detected ? 1u << rows[i].Rank : 0;
        if ((rows[i].Rank != 0) != (rows[i].Detected != nullptr))
            return false;
    }
    return types == AUDIO_TYPES && ranks == (1u << (AUDIO_TYPES - 1)) - 2;
}
static_assert(RowsAreComplete());

const std::array<AUDIO_MODULE, AUDIO_TYPES> Audio_Modules = rows;

static uint8_t TypeOf(const AUDIO_HEAD &head)
{
    for (uint8_t rank = 1; rank < AUDIO_TYPES; rank++)
        for (const AUDIO_MODULE &module : rows)
            if (module.Rank == rank && module.Detected(head))
                return module.Type;
    return AUDIO_RAW;
}

uint8_t Audio_Check(const char *path)
{
    const BYTES_OPEN *from = Bytes_FindOpen(path);
    if (!from) {
        const BYTES_OPEN opened(path);
        return Audio_Check(path);
    }
    AUDIO_HEAD head{};
    if (Sound_GetSize(*from) && Bytes_ReadAt(*from, 0, std::span(head).first(Audio_HeadBytes)))
        Audio_Type = TypeOf(head);
    return Audio_Type;
}

uint8_t Audio_CheckBytes(std::span<const uint8_t> file)
{
    const BYTES_OPEN memory(file);
    return Audio_Check(memory.Path);
}
