#include "audio/mod_song.h"

#include <algorithm>
#include <string_view>

#include "audio/sound_file.h"
#include "extra/bytes.h"
#include "extra/reason.h"

constexpr size_t MOD_SampleHeader = 30;
constexpr uint32_t MOD_CellBytes = 4;

namespace
{

struct MOD_SIGNATURE {
    std::string_view Text;
    uint8_t Channels;
    bool Detected = true;
};

// Signatures whose digits are not the number of channels.
constexpr MOD_SIGNATURE MOD_Signatures[] = {
    {"M.K.", 4}, {"M!K!", 4}, {"FLT4", 4},        {"FLT8", 8},        {"CD81", 8},
    {"OCTA", 8}, {"TDZ1", 1}, {"TDZ2", 2, false}, {"TDZ3", 3, false},
};

// Signatures that only the formats' rules accept.
constexpr MOD_SIGNATURE MOD_OtherSignatures[] = {
    {"M&K!", 4}, {"FEST", 4}, {"NSMS", 4}, {"N.T.", 4}, {"LARD", 4}, {"PATT", 4}, {"EXO4", 4},
    {"EXO8", 8}, {"CD61", 6}, {"OKTA", 8}, {"FA04", 4}, {"FA06", 6}, {"FA08", 8},
};

// What well-known modules with 15 samples, which have no signature, contain in its place. The zeros
// are on purpose: detection takes every other file of up to 1080 bytes for a module.
constexpr uint32_t MOD_OldModules[] = {
    0x00CA6000, 0x00BE1000, 0x00000000, 0x00FE4000, 0x011D1000,
    0x00D61000, 0x00AA3000, 0x01C52000, 0x00000C0F, 0x00BE5000,
};

struct MOD_LAYOUT {
    uint8_t Channels, SampleCount;
    bool Halves;   // eight channels, stored as two patterns of four
    size_t Extra;  // after the signature
    bool Foreign;  // as in MOD_SONG
    size_t Orders() const
    {
        return 20 + SampleCount * MOD_SampleHeader;  // length, restart byte, then the list
    }
    size_t Patterns() const
    {
        return Orders() + 2 + MOD_Orders + (SampleCount == MOD_MaxSamples ? 4 : 0) + Extra;
    }
    size_t PatternBytes() const
    {
        return MOD_Rows * Channels * MOD_CellBytes;
    }
};

}  // namespace

static bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

static uint8_t FindChannels(std::span<const MOD_SIGNATURE> signatures, std::string_view s)
{
    const auto known = std::ranges::find(signatures, s, &MOD_SIGNATURE::Text);
    return known != signatures.end() ? known->Channels : uint8_t{0};
}

// The number of channels by signature, 0 if unknown.
static uint8_t ChannelsOf(std::string_view s)
{
    if (const uint8_t channels = FindChannels(MOD_Signatures, s))
        return channels;
    const bool format = Audio_Rules == AUDIO_RULES_FORMAT;
    if (IsDigit(s[0]) && s.substr(1) == "CHN")
        return static_cast<uint8_t>(s[0] - '0');
    if (IsDigit(s[0]) && IsDigit(s[1]) && (s.substr(2) == "CH" || (format && s.substr(2) == "CN")))
        return static_cast<uint8_t>((s[0] - '0') * 10 + s[1] - '0');
    if (format && s.starts_with("TDZ") && IsDigit(s[3]))
        return static_cast<uint8_t>(s[3] - '0');
    return format ? FindChannels(MOD_OtherSignatures, s) : uint8_t{0};
}

bool MOD_IsSignature(std::span<const uint8_t, 4> bytes)
{
    size_t position = 0;
    const uint32_t mark = Bytes_GetBig(bytes, position, 4);
    if (std::ranges::find(MOD_OldModules, mark) != std::end(MOD_OldModules))
        return true;
    const std::string_view text(reinterpret_cast<const char *>(bytes.data()), bytes.size());
    for (const MOD_SIGNATURE &known : MOD_Signatures)
        if (text == known.Text)
            return known.Detected;
    const uint8_t channels = ChannelsOf(text);
    return text.ends_with("CHN") ? channels != 0 : channels >= 10 && channels <= 64;
}

// Whether the order list fits a module with 15 samples; their editors had 64 patterns.
static bool HasOldOrders(std::span<const uint8_t> file, const MOD_LAYOUT &layout)
{
    size_t position = layout.Orders();
    const uint8_t length = Bytes_GetByte(file, position);
    const auto orders = Bytes_GetSpan(file, position + 1, MOD_Orders);
    return length >= 1 && length <= MOD_Orders &&
           std::ranges::all_of(orders, [](uint8_t order) { return order < 64; });
}

// The framework's rules: without a signature only plausible headers are accepted, since most short
// files have zeros in its place.
static bool LooksOld(std::span<const uint8_t> file, const MOD_LAYOUT &layout)
{
    size_t position = MOD_SignatureAt;
    const uint32_t mark = Bytes_GetBig(file, position, 4);
    if (std::ranges::find(MOD_OldModules, mark) == std::end(MOD_OldModules))
        return false;
    for (size_t i = 0; i < layout.SampleCount; i++) {
        position = 20 + i * MOD_SampleHeader + 24;
        const uint8_t finetune = Bytes_GetByte(file, position);
        if (finetune > 15 || Bytes_GetByte(file, position) > 64)
            return false;
    }
    return HasOldOrders(file, layout);
}

// Whether bytes are text up to a NUL, if they have one; editors left garbage after it.
static bool IsText(std::span<const uint8_t> bytes)
{
    return std::ranges::all_of(bytes.begin(), std::ranges::find(bytes, 0),
                               [](uint8_t c) { return c >= ' ' && c != 127; });
}

// Length of a sample with a plausible header, nothing for any other. These editors had no tuning,
// and their loops start at a byte offset.
static std::optional<uint32_t> OldSampleBytes(std::span<const uint8_t> file, size_t position)
{
    const bool named = IsText(Bytes_GetSpan(file, position, 22));
    position += 22;
    const uint32_t length = Bytes_GetBig(file, position, 2) * 2;
    const uint8_t finetune = Bytes_GetByte(file, position), volume = Bytes_GetByte(file, position);
    const uint32_t start = Bytes_GetBig(file, position, 2);
    const uint32_t loop = Bytes_GetBig(file, position, 2) * 2;
    const bool fits = length == 0 || start + (loop > 2 ? loop : 0) <= length + 2;
    if (!named || finetune != 0 || volume > 64 || length > 65534 || !fits)
        return std::nullopt;
    return length;
}

// The format's rules: everything that header and patterns state must be plausible.
static bool IsOld(std::span<const uint8_t> file, const MOD_LAYOUT &layout)
{
    uint32_t samples = 0;
    for (size_t i = 0; i < layout.SampleCount; i++) {
        const auto bytes = OldSampleBytes(file, 20 + i * MOD_SampleHeader);
        if (!bytes)
            return false;
        samples += *bytes;
    }
    const auto orders = Bytes_GetSpan(file, layout.Orders() + 2, MOD_Orders);
    if (samples == 0 || orders.empty() || !IsText(Bytes_GetSpan(file, 0, 20)) ||
        !HasOldOrders(file, layout))
        return false;
    // The patterns in the list, as far as the bytes reach.
    const size_t patterns = *std::ranges::max_element(orders) + 1u;
    const auto cells = Bytes_GetSpan(file, layout.Patterns(), patterns * layout.PatternBytes());
    size_t notes = 0, strange = 0;
    for (size_t position = 0; position + MOD_CellBytes <= cells.size();) {
        const uint32_t cell = Bytes_GetBig(cells, position, 4);
        const uint32_t period = cell >> 16;  // includes the sample's high digit, which is 0
        notes += period >= 100 && period <= 1024;
        strange += (period != 0 && period < 100) || period > 1024;
    }
    return notes > 16 * strange;  // real songs have occasional slips
}

static std::string_view SignatureOf(std::span<const uint8_t> file)
{
    const auto bytes = Bytes_GetSpan(file, MOD_SignatureAt, 4);
    return bytes.size() == 4 ? std::string_view(reinterpret_cast<const char *>(bytes.data()), 4)
                             : std::string_view("\0\0\0\0", 4);
}

bool MOD_IsModule(std::span<const uint8_t> head)
{
    return ChannelsOf(SignatureOf(head)) != 0 || IsOld(head, {4, 15, false, 0, false});
}

// One editor writes four channels' signature for eight. Its samples are loud and untuned, and the
// file's length is what its patterns take with eight channels, rounded up to even.
static bool HasEight(std::span<const uint8_t> file, const MOD_LAYOUT &layout)
{
    const auto orders = Bytes_GetSpan(file, layout.Orders() + 2, MOD_Orders);
    if (orders.size() < MOD_Orders || file[layout.Orders() + 1] != 0)
        return false;
    uint64_t bytes = layout.Patterns() +
                     (*std::ranges::max_element(orders) + 1u) * uint64_t{layout.PatternBytes()} * 2;
    for (size_t i = 0; i < layout.SampleCount; i++) {
        size_t position = 20 + i * MOD_SampleHeader + 22;
        const uint32_t length = Bytes_GetBig(file, position, 2) * 2;
        if (length != 0 && Bytes_GetBig(file, position, 2) != 64)  // tuning 0, volume 64
            return false;
        bytes += length;
    }
    return file.size() - file.size() % 2 == bytes;
}

static std::optional<MOD_LAYOUT> FindLayout(std::span<const uint8_t> file)
{
    const bool format = Audio_Rules == AUDIO_RULES_FORMAT;
    const std::string_view signature = SignatureOf(file);
    if (const uint8_t channels = ChannelsOf(signature)) {
        MOD_LAYOUT layout = {channels, MOD_MaxSamples, signature.substr(1) == "XO8", 0, false};
        layout.Halves |= signature == "FLT8";
        layout.Extra = signature.starts_with("FA0") ? 4 : 0;
        if (format && signature == "M.K." && HasEight(file, layout))
            layout.Channels = 8;
        // The original writes only these two signatures.
        layout.Foreign =
            format && (layout.Channels != 4 || (signature != "M.K." && signature != "M!K!"));
        return layout;
    }
    const MOD_LAYOUT old = {4, 15, false, 0, false};
    if (format ? IsOld(file, old) : LooksOld(file, old))
        return old;
    return {};
}

template <size_t N>
static void ReadText(std::span<const uint8_t> file, size_t &position, std::array<char, N> &text)
{
    for (size_t i = 0; i + 1 < N; i++)
        text[i] = static_cast<char>(Bytes_GetByte(file, position));
    text[N - 1] = 0;
}

// Reads the sample's header; returns the number of data bytes. `old`: the loop's start is in bytes.
static uint32_t ReadSampleHeader(std::span<const uint8_t> file, size_t position, bool old,
                                 MOD_SAMPLE &sample)
{
    ReadText(file, position, sample.Name);
    const uint32_t length = Bytes_GetBig(file, position, 2) * 2;
    sample.Finetune = Bytes_GetByte(file, position) & 15;
    sample.Volume = std::min(Bytes_GetByte(file, position), uint8_t{64});
    const uint32_t start = Bytes_GetBig(file, position, 2);
    sample.LoopLength = Bytes_GetBig(file, position, 2) * 2;
    // The oldest editors counted the start in bytes: then the value in words does not fit.
    const bool bytes =
        start * 2 + sample.LoopLength > length && start + sample.LoopLength <= length;
    sample.LoopStart = bytes || old ? start : start * 2;
    return length;
}

static void ReadSampleData(std::span<const uint8_t> data, MOD_SAMPLE &sample)
{
    sample.Data.resize(data.size());
    std::ranges::transform(data, sample.Data.begin(),
                           [](uint8_t byte) { return static_cast<int8_t>(byte); });
    const auto size = static_cast<uint32_t>(data.size());
    if (sample.LoopStart >= size)
        sample.LoopStart = sample.LoopLength = 0;
    sample.LoopLength = std::min(sample.LoopLength, size - sample.LoopStart);
}

// For a looped sample, editors of 15 samples play nothing but the loop.
static void KeepLoop(MOD_SAMPLE &sample)
{
    if (sample.LoopLength <= 2)
        return;
    const auto start = sample.Data.begin() + sample.LoopStart;
    sample.Data = {start, start + sample.LoopLength};
    sample.LoopStart = 0;
}

// The number of patterns is the highest one in the list, including unused entries, as in the
// original, unless only the patterns that are played leave room for the samples.
static size_t CountPatterns(const MOD_SONG &song, const MOD_LAYOUT &layout, uint64_t samples,
                            size_t fileSize)
{
    const auto used = song.Orders.begin() + song.Length;
    const size_t halves = layout.Halves ? 2 : 1;
    const size_t all = *std::max_element(song.Orders.begin(), song.Orders.end()) / halves + 1;
    const size_t played = *std::max_element(song.Orders.begin(), used) / halves + 1;
    const auto fits = [&](size_t patterns) {
        return layout.Patterns() + patterns * layout.PatternBytes() + samples <= fileSize;
    };
    return !fits(all) && fits(played) ? played : all;
}

static MOD_CELL ReadCell(std::span<const uint8_t> file, size_t position)
{
    const uint32_t cell = Bytes_GetBig(file, position, 4);
    return {static_cast<uint16_t>(cell >> 16 & 0xFFF),
            static_cast<uint8_t>((cell >> 24 & 0xF0) | (cell >> 12 & 0x0F)),
            static_cast<uint8_t>(cell >> 8 & 0x0F), static_cast<uint8_t>(cell)};
}

static void ReadPatterns(std::span<const uint8_t> file, const MOD_LAYOUT &layout, MOD_SONG &song)
{
    const size_t columns = layout.Halves ? 4u : layout.Channels;
    song.Cells.resize((file.size() + layout.PatternBytes() - 1) / layout.PatternBytes() * MOD_Rows *
                      layout.Channels);
    for (size_t i = 0; i < song.Cells.size(); i++) {
        const size_t channel = i % layout.Channels, row = i / layout.Channels % MOD_Rows;
        const size_t pattern = i / layout.Channels / MOD_Rows;
        const size_t block = pattern * (layout.Channels / columns) + channel / columns;
        song.Cells[i] = ReadCell(file, ((block * MOD_Rows + row) * columns + channel % columns) *
                                           MOD_CellBytes);
    }
    song.WideRange = std::ranges::any_of(song.Cells, [](const MOD_CELL &cell) {
        return cell.Period != 0 && (cell.Period < 113 || cell.Period > 856);
    });
}

std::optional<MOD_SONG> MOD_ReadSong(std::span<const uint8_t> file)
{
    const std::optional<MOD_LAYOUT> layout = FindLayout(file);
    if (!layout || file.size() < layout->Patterns() + layout->Channels * MOD_CellBytes) {
        Reason_Set(layout ? "cut before its first row" : "no signature of a module");
        return {};
    }
    MOD_SONG song = {};
    song.Channels = layout->Channels;
    song.SampleCount = layout->SampleCount;
    song.FormatRules = Audio_Rules == AUDIO_RULES_FORMAT;
    song.Foreign = layout->Foreign;
    size_t position = 0;
    ReadText(file, position, song.Title);
    std::array<uint32_t, MOD_MaxSamples + 1> lengths{};
    uint64_t total = 0;
    const bool old = song.SampleCount != MOD_MaxSamples && Audio_Rules == AUDIO_RULES_FORMAT;
    for (size_t i = 1; i <= song.SampleCount; i++) {
        lengths[i] = ReadSampleHeader(file, 20 + (i - 1) * MOD_SampleHeader, old, song.Samples[i]);
        total += lengths[i];
    }
    position = layout->Orders();
    song.Length = std::clamp(Bytes_GetByte(file, position), uint8_t{1}, uint8_t{MOD_Orders});
    position++;  // the restart position, which players disagree about
    for (uint8_t &order : song.Orders)
        order = Bytes_GetByte(file, position);

    const size_t patterns = CountPatterns(song, *layout, total, file.size());
    if (layout->Halves)  // the numbers count halves
        for (uint8_t &order : song.Orders)
            order /= 2;
    ReadPatterns(Bytes_GetSpan(file, layout->Patterns(), patterns * layout->PatternBytes()),
                 *layout, song);
    position = layout->Patterns() + patterns * layout->PatternBytes();
    for (size_t i = 1; i <= song.SampleCount; i++) {
        ReadSampleData(Bytes_GetSpan(file, position, lengths[i]), song.Samples[i]);
        if (old)
            KeepLoop(song.Samples[i]);
        position += lengths[i];
    }
    if (position > file.size())
        Reason_Set("cut: %zu bytes of patterns and samples are missing", position - file.size());
    return song;
}

MOD_CELL MOD_GetCell(const MOD_SONG &song, size_t pattern, size_t row, size_t channel)
{
    const size_t at = (pattern * MOD_Rows + row) * song.Channels + channel;
    return at < song.Cells.size() ? song.Cells[at] : MOD_CELL{};
}
