// The header of an MPEG audio frame: its fields and their tables. ISO/IEC 11172-3, 2.4.1.3 and
// 2.4.2.3, and 13818-3; MPEG-2.5 follows them by convention.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

#pragma GCC visibility push(default)

/// Bit rate in kbit/s by index, for the versions below MPEG-1 and for MPEG-1. Index 15 is bad. All
/// layers use the rates of Layer III, on purpose.
constexpr std::array<std::array<uint16_t, 15>, 2> MP3_BitRate = {
    {{0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
     {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}}};

/// In Hz by index, for MPEG-1.
constexpr std::array<uint16_t, 4> MP3_SampleRate = {44100, 48000, 32000, 0};

/// A header's fields, and their meaning.
struct MP3_FRAME {
    uint8_t Version;     // as coded: 3 is MPEG-1, 2 MPEG-2, 0 MPEG-2.5
    uint8_t Layer;       // as coded: 1 is Layer III, 2 Layer II, 3 Layer I
    uint8_t Protection;  // 1: a CRC follows
    uint8_t BitRateIndex, SamplingRateIndex;
    uint8_t Rate;  // 0 to 8: the sampling rate's row in the decoder's tables
    uint8_t Padding, Private, ChannelMode, ModeExtension, Copyright, Original, Emphasis;
    uint16_t Channels;      // 1 or 2
    uint32_t SamplingRate;  // Hz; 0 if the index is reserved
    uint32_t BitRate;       // bit/s; 0 for free format, 1 for the bad index
    uint16_t Length;        // bytes, with the header; 0 without a sampling rate
};

/// Bytes of a frame. All versions are counted like MPEG-1, on purpose: below it frames are half as
/// long, so a frame includes the next one.
constexpr uint32_t MP3_FrameLength(uint32_t bitRate, uint32_t samplingRate, uint32_t padding)
{
    return samplingRate == 0 ? 0 : 144 * bitRate / samplingRate + padding;
}
static_assert(std::ranges::is_sorted(MP3_BitRate[0]) && std::ranges::is_sorted(MP3_BitRate[1]));

/// Whether four bytes can be a frame's header by the standard, in any layer: no field is reserved.
constexpr bool MP3_IsHeader(uint32_t header)
{
    return header >> 21 == 0x7FF && (header >> 19 & 3) != 1 && (header >> 17 & 3) != 0 &&
           (header >> 12 & 15) != 15 && (header >> 10 & 3) != 3;
}

/// Whether two headers belong to one stream: version, layer and sampling rate are equal, and both
/// or neither are free format.
constexpr bool MP3_Agree(uint32_t a, uint32_t b)
{
    constexpr uint32_t fields = 0xFFFE0C00, rate = 0xF000;
    return ((a ^ b) & fields) == 0 && ((a & rate) == 0) == ((b & rate) == 0);
}

/// Bytes of a frame by the standard, without its padding; 0 for free format. Each layer has its own
/// bit rates; below MPEG-1, frames of Layer III are half as long.
constexpr uint32_t MP3_StandardLength(uint32_t header)
{
    constexpr std::array<std::array<uint16_t, 15>, 3> others = {{
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},     // low Layer I
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},     // Layer II
        {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},  // Layer I
    }};
    const uint32_t layer = header >> 17 & 3, version = header >> 19 & 3, index = header >> 12 & 15;
    const bool low = version != 3;
    const uint32_t samplingRate =
        static_cast<uint32_t>(MP3_SampleRate[header >> 10 & 3]) >> (version == 3   ? 0
                                                                    : version == 2 ? 1
                                                                                   : 2);
    const bool own = layer == 3 || (layer == 2 && !low);
    const uint32_t bitRate = 1000u * (own ? others[layer == 2 ? 1
                                                   : low      ? 0
                                                              : 2][index]
                                          : MP3_BitRate[!low][index]);
    if (layer == 3)
        return 12 * bitRate / samplingRate * 4;
    return (layer == 1 && low ? 72 : 144) * bitRate / samplingRate;
}

/// Bytes that the padding bit adds.
constexpr uint32_t MP3_PaddingLength(uint32_t header)
{
    return (header >> 9 & 1) * ((header >> 17 & 3) == 3 ? 4 : 1);
}

/// Samples of a channel in a frame of Layer III.
constexpr uint32_t MP3_FrameSamples(uint32_t header)
{
    return (header >> 19 & 3) == 3 ? 1152 : 576;
}

/// Bytes of Layer III's side information.
constexpr size_t MP3_SideLength(uint32_t header)
{
    const bool mono = (header >> 6 & 3) == 3;
    return (header >> 19 & 3) == 3 ? (mono ? 17 : 32) : (mono ? 9 : 17);
}

/// The longest frame of free format that is accepted: 640 kbit/s at 8000 Hz, padded.
constexpr uint32_t MP3_MaxFreeFrame = 72 * 640000 / 8000 + 1;

/// The longest frame that the length formula gives.
constexpr uint32_t MP3_MaxFrame =
    MP3_FrameLength(MP3_BitRate[0].back() * 1000u, MP3_SampleRate[2] / 4, 1);
static_assert(MP3_MaxFrame >= MP3_FrameLength(MP3_BitRate[1].back() * 1000u, MP3_SampleRate[2], 1));
static_assert(MP3_FrameLength(0, 8000, 1) < 4 && MP3_FrameLength(1, 8000, 1) < 4 &&
                  MP3_FrameLength(8000, 24000, 0) >= 6 && MP3_FrameLength(32000, 48000, 0) >= 6,
              "frames are either rejected or have room for a checksum");

/// Whether two bytes start a frame: the sync bits, and a layer code of 1 or 3.
constexpr bool MP3_IsSync(uint8_t first, uint8_t second)
{
    return first == 0xFF && (second & 0xE2) == 0xE2;
}

/// The fields of a header's four bytes.
constexpr MP3_FRAME MP3_ReadFrameHeader(std::span<const uint8_t, 4> bytes)
{
    const auto bits = [bytes](size_t byte, int shift, int mask) {
        return static_cast<uint8_t>(bytes[byte] >> shift & mask);
    };
    MP3_FRAME frame{};
    frame.Version = bits(1, 3, 3);
    frame.Layer = bits(1, 1, 3);
    frame.Protection = static_cast<uint8_t>(1 - bits(1, 0, 1));
    frame.BitRateIndex = bits(2, 4, 15);
    frame.SamplingRateIndex = bits(2, 2, 3);
    frame.Padding = bits(2, 1, 1);
    frame.Private = bits(2, 0, 1);
    frame.ChannelMode = bits(3, 6, 3);
    frame.ModeExtension = bits(3, 4, 3);
    frame.Copyright = bits(3, 3, 1);
    frame.Original = bits(3, 2, 1);
    frame.Emphasis = bits(3, 0, 3);

    constexpr std::array<uint8_t, 4> halvings = {2, 0, 1, 0};  // of the sampling rate, by version
    const int low = halvings[frame.Version];
    frame.Rate = static_cast<uint8_t>(frame.SamplingRateIndex + 3 * low);
    frame.Channels = frame.ChannelMode == 3 ? 1 : 2;
    frame.SamplingRate = static_cast<uint32_t>(MP3_SampleRate[frame.SamplingRateIndex]) >> low;
    frame.BitRate =
        frame.BitRateIndex == 15 ? 1 : 1000u * MP3_BitRate[frame.Version == 3][frame.BitRateIndex];
    frame.Length =
        static_cast<uint16_t>(MP3_FrameLength(frame.BitRate, frame.SamplingRate, frame.Padding));
    return frame;
}

#pragma GCC visibility pop
