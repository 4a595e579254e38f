// The sound engine: detects sound formats by content and plays one sound at a time through
// PortAudio. A format module or the raw reader fills a track's two buffers in turn; each callback
// plays one buffer and refills the one played before it.
//
// Call Audio_Init, Audio_SetMixer, Audio_Load, Audio_SetLoop, Audio_Play in this order;
// Audio_UnLoad for each track, Audio_Destroy last. A failure is silence: Audio_Error keeps
// PortAudio's last code, Audio_Reason says why a load failed.
//
// Two threads meet here. The main thread calls everything but the stream's callback and the steps
// that it consists of; what both read is atomic. The callback opens no file and never waits;
// Audio_UnLoad and Audio_Destroy wait for a running callback. Tracks may be loaded and unloaded
// while another plays. Other threads may load, refill and unload tracks of their own; the engine's
// settings are shared by all and must be set beforehand.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "audio/audio_module.h"

#pragma GCC visibility push(default)

// PortAudio's type; only callers that look inside need its header.
struct PaDeviceInfo;
struct PaStreamParameters;
struct PaStreamCallbackTimeInfo;
using AUDIO_CALLBACK = int(const void *input, void *output, unsigned long frames,
                           const PaStreamCallbackTimeInfo *timing, unsigned long status,
                           void *user);

/// What a stream's callback returns: more follows, or the stream ends with this block.
constexpr int Audio_Continue = 0;
constexpr int Audio_Complete = 1;

/// Bytes of a track's buffer.
constexpr uint32_t Audio_Capacity = 65536;

/// Audio_Take's state, in buffer 1.
struct AUDIO_TAKE {
    bool Begun;
    uint32_t Used, Stored;  // bytes
};

/// A loaded sound. What the callback changes while the track plays is atomic.
struct AudioTrack {
    std::array<char, 64> FileName;                 // truncated to 63 characters and a NUL
    std::atomic<uint32_t> ReadPosition;            // in the file, where the next refill starts
    uint32_t DataStart;                            // first sample byte of the file
    std::atomic<uint32_t> FileSize;                // 0 until the first refill
    uint32_t Capacity;                             // of each buffer: Audio_Capacity
    std::array<std::atomic<uint32_t>, 2> Length;   // bytes that the last refill gave
    std::array<std::atomic<uint8_t *>, 2> Buffer;  // the track's; null before the first refill
    uint8_t Loaded;                                // always 1, kept for callers
    std::atomic<uint8_t> State;   // 0: all in buffer 1; 1, 2: the buffer that plays next
    uint8_t Type;                 // AUDIO_TYPE
    uint8_t SoundNumber;          // record of the format module
    uint8_t Decoded, DecodedToo;  // either set: a format module decodes; neither: raw samples
    uint8_t Generated;            // synthesised: refills read no file
    uint8_t Channels;
    uint16_t SamplingRate;  // Hz, its low 16 bits
    uint32_t Rate;          // Hz, all of them
    uint8_t BitsPerSample;
    void *Stream;  // PortAudio's; owned by the track that was played first

    std::string Path;                // the whole name; empty for a sound in memory
    std::shared_ptr<void> Record;    // of the format module; null for raw samples
    SOUND_STREAM File;               // open from load to unload; null for synthesised sound
    uint32_t OpenSize;               // its size in bytes when it was opened
    std::atomic<uint32_t> Restarts;  // counts requests that the next refill starts at the beginning
    uint32_t Restarted;              // those that a refill has seen
    bool Unfinished;                 // the last refill was empty, but not at the end of the data
    std::atomic<int32_t> Error;      // errno of a failed read, ENOMEM out of memory; 0: none
    AUDIO_TAKE Take;
    std::atomic<uint64_t> Taken;  // bytes of this pass that Audio_Take gave
    std::atomic<uint8_t> Ended;   // 1 after the last pass's last byte
};

/// PortAudio's output device; -1 before Audio_Init, the device count if none was chosen.
extern int16_t Audio_Device;
/// Stored by Audio_SetMode, kept for callers.
extern uint8_t Audio_Mode;
/// Channels, rate and bits of the output, of raw samples and of synthesised sound.
extern uint8_t Audio_Channel;
extern uint32_t Audio_Hz;
extern uint8_t Audio_BPS;
/// The track whose buffers the callback refills.
extern std::atomic<AudioTrack *> Audio_Current;
/// 1 while a track counts as playing.
extern std::atomic<uint8_t> Audio_Playing;
/// 0: PortAudio is not initialised; 1: it is; 2: opening the stream was tried, successfully or not.
extern uint8_t Audio_FirstPlay;
/// What the end of the data does. 0: rewinds, for ever; 1: Audio_Stop; more: rewinds and
/// decrements.
extern std::atomic<uint8_t> Audio_Loop;
/// What the next callback plays: Audio_DataSize bytes at Audio_Data, a buffer of Audio_Capacity
/// bytes or null. The two are read one after the other, so the size may belong to the other buffer.
extern std::atomic<uint8_t *> Audio_Data;
extern std::atomic<uint32_t> Audio_DataSize;
/// Audio_DataSize in sample frames of its track.
extern std::atomic<uint16_t> Audio_DataTime;
/// PortAudio's answer to the last initialisation, opening or start.
extern int32_t Audio_Error;
/// Reserved.
extern uint8_t Audio_WakeBit;
/// The callback that streams are opened with: PortAudio_CallBack, or its replacement. It runs on
/// PortAudio's thread; Audio_UnLoad waits for it only if the track owns the stream.
extern AUDIO_CALLBACK *Audio_StreamCallBack;
/// Frames requested from it per call; 0: as many as a buffer of the track holds.
extern uint32_t Audio_StreamFrames;
/// Whether streams are also opened, on PortAudio's default device, where the rule about the chosen
/// one (Audio_Device below 2) opens none. False by default.
extern bool Audio_AnyDevice;
/// The only device that streams are opened on, with Audio_AnyDevice; -1: the one that the rules
/// choose.
extern int32_t Audio_OnlyDevice;
/// The device that Audio_Init examined last, PortAudio's own; null before.
extern const PaDeviceInfo *PortAudio_DeviceInfo;
/// Output format of the stream, set by Audio_SetMixer.
extern PaStreamParameters PortAudio_Format;

/// Sets Audio_Channel. The first call also initialises PortAudio and chooses the first device
/// whose name (its first 31 characters) contains "Output".
void Audio_Init(uint8_t channels);

/// Sets the output format: 8 (unsigned), 16, 24 or 32 bits; any other depth keeps the previous
/// sample format. `left` and `right` are ignored. No effect while Audio_Device is below 2 and
/// Audio_AnyDevice is false.
void Audio_SetMixer(uint8_t bits, uint32_t hz, uint32_t left, uint32_t right);

/// Store their global. Only the low 16 bits of `hz` are kept.
void Audio_SetMode(uint8_t mode);
void Audio_SetChannel(uint8_t channels);
void Audio_SetHz(uint32_t hz);
void Audio_SetBPS(uint8_t bits);
void Audio_SetLoop(uint8_t loop);

/// Detects and reads a file: header facts, and one buffer or, for files larger than a buffer, two.
/// From then on the callback plays the new track's first buffer next, whatever is current. The
/// caller owns the track until Audio_UnLoad; null only out of memory. Without buffers, and with a
/// reason, if the file cannot be read, its format is not decoded, or the format module's table is
/// full.
AudioTrack *Audio_Load(const char *path);
/// The same for a file, or for what is open under its path, taken for the given AUDIO_TYPE without
/// detection. Without buffers for any other number.
AudioTrack *Audio_LoadAs(const char *path, uint8_t type);
/// The same for a sound in memory, which must stay valid until the track is unloaded.
AudioTrack *Audio_LoadBytes(std::span<const uint8_t> file);

/// Why this thread's last load gave nothing, or less than the file promises; empty otherwise. Valid
/// until the next load.
const char *Audio_Reason();

/// Refills buffer 1 (bit 0 of `which`) and buffer 2 (bit 1) from the read position. Length is the
/// bytes read: 0 at the end of the data. Raw samples: 8 bits as 128 minus the byte, 16 bits from
/// big-endian; one byte less is recorded than was stored, on purpose. Other depths read nothing.
/// Not for a track that plays: the callback refills that one.
void Audio_LoadBuffers(AudioTrack *track, uint8_t which);

/// Has the format module decode into buffer 1 or 2. `file` is null for synthesised sound.
void Audio_Decoding(FILE *file, AudioTrack *track, uint8_t which);

/// Makes the track current and playing. The first play opens and starts the stream, on PortAudio's
/// default device if the chosen one is refused; the stream belongs to this track. Once that track
/// is unloaded, set Audio_FirstPlay to 1 to have the next play open a new stream.
void Audio_Play(AudioTrack *track);

/// Audio_Pause toggles Audio_Playing, Audio_Stop clears it and Audio_Loop. The stream keeps
/// running.
void Audio_Pause();
void Audio_Stop();

/// The track's stream; without one these do nothing and return 0 or false.
///
/// Seconds of its clock.
double Audio_StreamTime(const AudioTrack &track);
/// Whether it was started and has neither ended nor been aborted.
bool Audio_IsStreaming(const AudioTrack &track);
/// Stop it at once, dropping what is buffered; start it again. The result is in Audio_Error.
void Audio_AbortStream(AudioTrack &track);
void Audio_StartStream(AudioTrack &track);

/// Closes it at once, dropping what is buffered; the next play opens another.
void Audio_CloseStream(AudioTrack &track);

/// PortAudio's devices, numbered from 0, with their output channels. After Audio_Init.
struct AUDIO_DEVICE {
    std::string Name;
    int Outputs;
    bool Default;
};
std::vector<AUDIO_DEVICE> Audio_GetDevices();
/// Forgets the devices, so that the next Audio_Init looks for them again. Only without open
/// streams.
void Audio_CloseDevices();

/// When the first frame of the running callback will be heard, by its stream's clock.
double Audio_HeardAt(const PaStreamCallbackTimeInfo &timing);

/// An Audio_Error in words, and whether it is about rate, channels or bits rather than the device.
const char *Audio_ErrorText(int32_t error);
bool Audio_IsFormatError(int32_t error);

/// Has the current track's next refill start at the beginning, and marks it as playing.
void Audio_ReStart();

bool Audio_IsPlaying();
void Audio_SetCurrent(AudioTrack *track);

/// The stream's callback: plays Audio_Data and fills the rest of the output with silence, then
/// swaps the current track's buffers and refills the one that was played. Always continues (0).
int PortAudio_CallBack(const void *input, void *output, unsigned long frames,
                       const PaStreamCallbackTimeInfo *timing, unsigned long status, void *user);

/// The decoded sound without gaps or lost samples: what refills store, pass after pass as
/// Audio_Loop says, whatever lengths they report. Begins at the start of the data, and there again
/// after Audio_ReStart; a decoder leads one pass into the next as it leads one frame into the next.
/// Returns the bytes written to `out`, whole frames. Fewer than `bytes` in three cases: the last
/// pass ended, which sets Ended and calls Audio_Stop; a read failed, which also sets Error; a
/// search for the next MPEG frame takes long, and the next call continues it. A track is either
/// taken from or refilled, never both.
size_t Audio_Take(AudioTrack *track, uint8_t *out, size_t bytes);

/// Has Audio_Take continue at exactly `frame` of a pass, or at its end if that comes first, with
/// the samples that it would give there without the seek. Returns the frame; Taken holds the same
/// in bytes. Cancels an earlier Audio_ReStart. Not while a callback takes from the track. Costs
/// about a refill, and the first seek in MPEG audio a read of all that lies before; by the
/// framework's rules MPEG audio is decoded up to there.
uint64_t Audio_Seek(AudioTrack *track, uint64_t frame);

/// A stream's callback in place of PortAudio_CallBack: Audio_Take of the current track, then
/// silence. Always continues.
int Audio_GaplessCallBack(const void *input, void *output, unsigned long frames,
                          const PaStreamCallbackTimeInfo *timing, unsigned long status, void *user);

/// Hands out the current track's other buffer to the callback.
void Audio_SwapBuffers();

/// Refills the buffer that was played and, at the end of the data, does what Audio_Loop says.
void Audio_ReadBuffers();

/// No effect: a sound of one buffer needs no refill, and the callback plays it.
void Audio_Refresh();
void Audio_PlayBuffers();

/// Stops and closes the track's stream, if it has one, and frees buffers and track. Waits for a
/// running callback. A track without buffers is not freed, on purpose.
void Audio_UnLoad(AudioTrack *track);

/// Bytes of one sample frame of the track, at least 1.
uint32_t Audio_FrameBytes(const AudioTrack &track);

/// Silences the callback and empties this thread's tables of all format modules.
void Audio_Destroy();

#pragma GCC visibility pop
