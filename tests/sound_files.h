// The sound modules behind one face, and their refills as the engine asks for them.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "audio/aiff.h"
#include "audio/au.h"
#include "audio/iff.h"
#include "audio/voc.h"
#include "audio/wav.h"
#include "tests/files.h"

struct FACTS {
    uint32_t Channels, SamplingRate, BitsPerSample, DataStart;
    bool operator==(const FACTS &) const = default;
};

template <auto GetHeader>
FACTS FactsOf(uint8_t n)
{
    const auto *r = GetHeader(n);
    return r ? FACTS{r->Channels, r->SamplingRate, r->BitsPerSample, r->DataStart} : FACTS{};
}

struct MODULE {
    std::string_view Name;
    void (*Load)(const char *path);
    void (*Decoding)(FILE *file, uint8_t *buffer, uint32_t *length, uint8_t n);
    void (*Destroy)();
    void (*SetSoundNumber)(uint8_t n);
    FACTS (*Facts)(uint8_t n);
    uint8_t (*SoundNumber)();
};

// clang-format off
constexpr MODULE Wav = {"wav", WAV_Load, WAV_Decoding, WAV_Destroy, WAV_SetSoundNumber, FactsOf<WAV_GetHeader>, [] { return WAV_SoundNumber; }};
constexpr MODULE Voc = {"voc", VOC_Load, VOC_Decoding, VOC_Destroy, VOC_SetSoundNumber, FactsOf<VOC_GetHeader>, [] { return VOC_SoundNumber; }};
constexpr MODULE Au = {"au", AU_Load, AU_Decoding, AU_Destroy, AU_SetSoundNumber, FactsOf<AU_GetHeader>, [] { return AU_SoundNumber; }};
constexpr MODULE Iff = {"8svx", IFF_Load, IFF_Decoding, IFF_Destroy, IFF_SetSoundNumber, FactsOf<IFF_GetHeader>, [] { return IFF_SoundNumber; }};
constexpr MODULE Aiff = {"aiff", AIFF_Load, AIFF_Decoding, AIFF_Destroy, AIFF_SetSoundNumber, FactsOf<AIFF_GetHeader>, [] { return AIFF_SoundNumber; }};
// clang-format on
constexpr const MODULE *Modules[] = {&Wav, &Voc, &Au, &Iff, &Aiff};

// A chunk of the IFF kind.
inline BYTES Chunk(const char (&id)[5], const BYTES &contents)
{
    return Text(id) + Number(static_cast<int64_t>(contents.size()), 4) + contents;
}

// Loads into slot 0.
inline FACTS LoadFirst(const MODULE &module, const std::string &path)
{
    module.Destroy();
    module.SetSoundNumber(0);
    module.Load(path.c_str());
    return module.Facts(0);
}

inline FACTS LoadBytes(const MODULE &module, const BYTES &file)
{
    return LoadFirst(module, WriteTemp("sound", file));
}

struct REFILL {
    BYTES Bytes;        // the buffer; 0xEE where nothing was written
    uint32_t Length;    // as reported
    uint64_t Position;  // of the file afterwards
};

// Guarded: what lies behind the buffer must stay.
inline REFILL Refill(const MODULE &module, uint64_t position, uint32_t length,
                     const std::string &path = TempPath("sound"))
{
    REFILL refill = {BYTES(length + 8u, 0xEE), length, 0};
    const SOUND_STREAM file(std::fopen(path.c_str(), "rb"));
    fseeko(file.get(), static_cast<off_t>(position), SEEK_SET);
    module.Decoding(file.get(), refill.Bytes.data(), &refill.Length, 0);
    refill.Position = static_cast<uint64_t>(ftello(file.get()));
    EXPECT_EQ(BYTES(refill.Bytes.begin() + length, refill.Bytes.end()), BYTES(8, 0xEE)) << path;
    EXPECT_LE(refill.Length, length) << path;
    refill.Bytes.resize(length);
    return refill;
}
