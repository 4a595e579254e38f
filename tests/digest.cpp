// digest FOLDER: prints a line for each file and set of rules with a digest of its pixels or
// samples, which is the same on every machine.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "audio/audio_module.h"
#include "picture/gif.h"
#include "picture/picture.h"

// 64-bit FNV-1a, continued.
static uint64_t Digest(std::span<const uint8_t> bytes, uint64_t digest = 0xCBF29CE484222325)
{
    for (const uint8_t byte : bytes)
        digest = (digest ^ byte) * 0x100000001B3;
    return digest;
}

static void PrintPicture(const char *path, uint8_t rules)
{
    Picture_Rules = rules;
    const Picture p = Picture_Load(path, 0, 0);
    const std::string reason = Picture_Reason();
    const size_t size = p.Pixels ? size_t{4} * p.BufferWidth * p.BufferHeight : 0;
    const size_t thumb = p.ThumbPixels ? size_t{4} * p.ThumbBufferWidth * p.ThumbBufferHeight : 0;
    uint64_t digest = Digest({p.ThumbPixels, thumb}, Digest({p.Pixels, size}));
    if (p.Pixels && p.Format == PICTURE_GIF) {
        const GIF_PICTURE &gif = GIF_PictureOf(p.Pixels);
        GIF_CANVAS canvas;
        for (size_t n = 0; n < gif.Frames.size() && GIF_Compose(gif, n, canvas); n++)
            digest = Digest(canvas.Screen, digest);
    }
    std::printf(" %s %dx%d %d bits %016llx %s\n", Picture_FormatName(p.Format), p.Width, p.Height,
                p.Bits, static_cast<unsigned long long>(digest), reason.c_str());
    Picture_UnLoad(p);
}

// Returns whether the file is a sound.
static bool PrintSound(const char *path, uint8_t rules)
{
    constexpr size_t maxBytes = size_t{8} << 20;
    Audio_Rules = rules;
    const AUDIO_MODULE &module = Audio_Modules[Audio_Check(path)];
    if (!module.Load)
        return false;
    module.SetSoundNumber(0);
    module.Load(path);
    if (module.GetSoundNumber() == 0) {
        std::printf(" %s: %s\n", module.Name, Reason_Get());
        return true;
    }
    const std::shared_ptr<void> record = module.Record(0);
    if (module.SetOutput)
        module.SetOutput(record.get(), 2, 44100, 16);
    const AUDIO_FACTS facts = module.Facts(record.get());
    uint32_t size;
    const SOUND_STREAM file = module.SetOutput ? nullptr : Sound_OpenFile(path, &size);
    if (file)
        std::fseek(file.get(), static_cast<long>(facts.DataStart), SEEK_SET);
    std::vector<uint8_t> buffer(65536 - 65536 % 12);
    uint64_t digest = Digest({});
    size_t bytes = 0;
    for (SOUND_FILLED filled; bytes < maxBytes; bytes += filled.Stored) {
        filled = module.Fill(record.get(), {file.get(), buffer, true});
        digest = Digest(std::span(buffer).first(filled.Stored), digest);
        if (filled.Stored == 0 && !filled.Unfinished)
            break;
    }
    std::printf(" %s %u Hz, %u channels, %u bits, %zu bytes %016llx %s\n", module.Name,
                facts.SamplingRate, facts.Channels, facts.BitsPerSample, bytes,
                static_cast<unsigned long long>(digest), Reason_Get());
    return true;
}

int main(int count, char **names)
{
    if (count != 2)
        return 2;
    namespace fs = std::filesystem;
    std::vector<std::string> files;
    for (const auto &entry : fs::recursive_directory_iterator(names[1]))
        if (entry.is_regular_file())
            files.push_back(fs::relative(entry.path(), names[1]).generic_string());
    std::ranges::sort(files);
    for (const std::string &file : files)
        for (const uint8_t rules : {PICTURE_RULES_FRAMEWORK, PICTURE_RULES_FORMAT}) {
            std::printf("%s, rules %d:", file.c_str(), rules);
            const std::string path = std::string(names[1]) + "/" + file;
            if (!PrintSound(path.c_str(), rules))
                PrintPicture(path.c_str(), rules);
        }
    return std::ferror(stdout) != 0;
}
