// MPEG audio files: tags, frames and the refilling of sound buffers. ISO/IEC 11172-3 and 13818-3
// for the frames, ID3v1 and ID3v2.3 (id3.org) for the tags. audio/mp3_layer3.h decodes a frame.
//
// Where the rules differ (AUDIO_RULES; audio/mp3_stream.h implements the format's):
//              framework's                           format's
//   frames     any sync bits, two bytes 0xFF end     a header where the last frame ends, or one
//              the search                            with which the next one agrees
//   length     as in MPEG-1, whatever the version    by version; free format from header to header
//   CRC        skipped twice                         read once; where it has been right before,
//                                                    a wrong one means a damaged frame
//   tags       searched for frames, texts as bytes   skipped on both sides, texts in UTF-8
//   info       an info frame is played, and so is    not played; the encoder's and the decoder's
//              what encoders add                     delay and the padding are dropped
//   damage     decoded as it is, or skipped          silent, for as long as it lasts
//   samples    truncated, the remainder carried      rounded
//   Layer I    taken for Layer III                   named as the reason, as is Layer II
//   channels   as each frame has them                those of the first frame
//
// Every thread has its own table; a record is used by one thread at a time.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "audio/mp3_bits.h"
#include "audio/mp3_frame.h"
#include "audio/mp3_layer3.h"
#include "audio/mp3_stream.h"
#include "audio/mp3_tags.h"
#include "audio/sound_file.h"

#pragma GCC visibility push(default)

/// Texts of a tag, each NUL-terminated; empty without a tag.
struct MP3_ID3V1 {
    std::array<char, 31> Title, Artist, Album;
    std::array<char, 5> Year;
    std::array<char, 31> Comment;
    uint8_t TrackNumber;
    uint8_t Genre;  // index of MP3_Genre; 126 without a tag
};

/// The same for ID3v2. Texts are the file's bytes, whatever encoding it declares.
struct MP3_ID3V2 {
    uint16_t Version;  // major * 256 + revision
    uint8_t Flags;
    uint32_t Size;  // as stored, read as 8 bits a byte
    std::array<char, 61> Title, Artist, Album;
    std::array<char, 31> Year;
    std::array<char, 255> Comment;
    std::array<char, 2> Track;
    std::array<char, 61> Genre;
};

/// Index of the frames, as far as the file was searched.
struct MP3_INDEX {
    std::vector<uint32_t> Places;  // positions of every MP3_IndexStep-th frame
    uint64_t Frames;               // number of frames before Stream.Next
    uint64_t Checked;              // number of frames before the first whose CRC is right
    MP3_STREAM Stream;             // where the search continues
};
constexpr uint64_t MP3_IndexStep = 32;

/// A loaded file. The fields from Channels to FrameLength are those of the header in FrameBuffer:
/// after MP3_Load the first one after the tag, 0 if there was no frame.
struct MP3_HEADER {
    uint32_t FileSize;       // bytes
    uint16_t Channels;       // 1 or 2
    uint32_t SamplingRate;   // Hz
    uint32_t BitRate;        // bit/s
    uint16_t BitsPerSample;  // of the output
    uint8_t Version;         // index of MP3_Version
    uint8_t Layer;           // index of MP3_Layer
    uint8_t Protection;      // index of MP3_Protected
    uint8_t BitRateIndex, SamplingRateIndex;
    uint8_t Rate;  // 0 to 8: the sampling rate's row in the decoder's tables
    uint8_t Padding, Private, ChannelMode, ModeExtension, Copyright, Original, Emphasis;
    uint16_t FrameLength;                               // bytes, with the header
    std::array<uint8_t, MP3_MaxFreeFrame> FrameBuffer;  // header and body, without a CRC
    MP3_ID3V1 ID3v1;
    MP3_ID3V2 ID3v2;
    MP3_LAYER3 Layer3;
    uint8_t Rules;  // AUDIO_RULES it was loaded under
    // By the format's rules; zero by the framework's.
    MP3_STREAM Frames;
    MP3_INDEX Index;
    MP3_TEXTS Texts;     // of all tags; ID3v2 above holds them truncated
    uint32_t DataStart;  // of the first frame with sound
};

/// The files that this thread loaded, in load order; null for an empty slot.
extern constinit thread_local SOUND_TABLE<MP3_HEADER> MP3_Header;
extern constinit thread_local uint8_t MP3_SoundNumber;  // slot that the next load fills
extern constinit thread_local SOUND_FILE MP3_File;      // being loaded
extern constinit thread_local uint8_t MP3_Init;  // 1 once this thread has seen the tables built

/// Bits of the samples that the format's rules decode to: 16, or 32 (little-endian), of which the
/// upper 30 are computed, for callers that convert to 24 bits or floating point. Set before a load;
/// it holds for its record, as the BitsPerSample of record, facts and track. Errors are within a
/// tenth of what ISO/IEC 11172-4 allows for full accuracy.
extern constinit thread_local uint16_t MP3_OutputBits;

/// The most samples of a frame, over all channels.
constexpr size_t MP3_MaxSamples = 2 * 1152;

/// Reads tags and the first frame's header into slot MP3_SoundNumber and increments that. Does
/// nothing but leave a reason if the file cannot be opened or all slots are used. The first frame
/// is searched for in the 1 MiB after the tag.
void MP3_Load(const char *path);

/// Searches `file` from its position for the next frame and reads it into record n. Returns 1, or 0
/// at the end of the file and at two consecutive bytes 0xFF. Frames of Layer II and of free format
/// are skipped. What a truncated file lacks of a frame is 0.
uint8_t MP3_LoadFrame(FILE *file, uint8_t n);

/// Decodes the frame in the record's buffer into `samples` (MP3_MaxSamples of them, channels
/// interleaved). Returns the bytes written; negative if the frame cannot be decoded.
int32_t MP3_Decode(MP3_HEADER &record, int16_t *samples);

/// Decodes frames from the position of `file` into `buffer`, 16-bit little-endian samples, as many
/// whole frames as *length bytes hold; a frame larger than that is truncated. *length becomes the
/// bytes stored: 0 at the end of the data. The next call continues at the file's position.
void MP3_Decoding(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n);

/// The same by record, on any thread. After 1 MiB without a frame it returns Unfinished, and the
/// next call continues the search.
SOUND_FILLED MP3_Fill(MP3_HEADER &record, const SOUND_REFILL &refill);

/// Moves `file` before the MPEG frame that contains `frame` of the sound and decodes what precedes
/// it, so that the output from there is the same as without the seek, except for damage shortly
/// before. Returns the frame of the sound it is at. The first seek indexes all MPEG frames up to
/// there. By the framework's rules it always returns to the start.
uint64_t MP3_Seek(MP3_HEADER &record, FILE *file, uint64_t frame);

/// Resets what the decoder carries from frame to frame, as for another sound.
void MP3_StartOver(MP3_HEADER &record);

/// Empties this thread's table. MP3_SoundNumber stays as it is.
void MP3_Destroy();

/// Record n, null if no such record exists.
MP3_HEADER *MP3_GetHeader(uint8_t n);
/// Sets the slot that the next load fills; the table releases the record there.
void MP3_SetSoundNumber(uint8_t n);

/// The header's fields for people, indexed by their values.
constexpr char MP3_Version[4][17] = {"MPEG Version 2.5", "reserved", "MPEG Version 2",
                                     "MPEG Version 1"};
constexpr char MP3_Layer[4][10] = {"reserved", "Layer III", "Layer II", "Layer I"};
constexpr char MP3_Protected[2][17] = {"Not protected", "Protected by CRC"};
constexpr char MP3_BitRateStr[16][5] = {"free", "32",  "40",  "48",  "56",  "64",  "80",  "96",
                                        "112",  "128", "160", "192", "224", "256", "320", "bad"};
constexpr char MP3_SampleRateStr[4][9] = {"44100", "48000", "32000", "reserved"};
constexpr char MP3_Padding[2][11] = {"Not padded", "Padded"};
constexpr char MP3_Private[2][12] = {"Not private", "Private"};
constexpr char MP3_Channels[4][15] = {"Stereo", "Joint stereo", "Dual channel", "Single channel"};
constexpr char MP3_Mode[4][8] = {"off-off", "on-off", "off-on", "on-on"};  // intensity, mid/side
constexpr char MP3_Copyrighted[2][16] = {"Not copyrighted", "Copyrighted"};
constexpr char MP3_Original[2][23] = {"Copy of original media", "Original media"};
constexpr char MP3_Emphasis[4][10] = {"none", "50/15 ms", "reserved", "CCIT J.17"};

#pragma GCC visibility pop
