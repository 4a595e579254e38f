// Modules from texts, for tests. A pattern is lines of cells between '|'. A cell is a note, a
// sample (two hex digits) and a command, as in "C-2 01 A04"; "..." is no note, and trailing parts
// may be missing.
#pragma once

#include <cstdint>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

struct MOD_TEXT_SAMPLE {
    std::vector<int8_t> Data;  // an even number of bytes
    uint32_t LoopStart = 0, LoopLength = 2;
    uint8_t Volume = 64, Finetune = 0;
};

struct MOD_TEXT {
    std::vector<std::string> Patterns;
    std::vector<MOD_TEXT_SAMPLE> Samples;
    std::vector<uint8_t> Orders = {0};
    std::string Signature = "M.K.";  // empty: 15 samples
    size_t Channels = 4;
};

// Period of "C-1" to "B-3"; a number stands for itself.
inline size_t NotePeriod(const std::string &note)
{
    constexpr size_t top[] = {856, 808, 762, 720, 678, 640, 604, 570, 538, 508, 480, 453,
                              428, 404, 381, 360, 339, 320, 302, 285, 269, 254, 240, 226,
                              214, 202, 190, 180, 170, 160, 151, 143, 135, 127, 120, 113};
    const size_t name = std::string("C-C#D-D#E-F-F#G-G#A-A#B-").find(note.substr(0, 2));
    if (name == std::string::npos)
        return note[0] == '.' ? 0 : std::stoul(note);
    return top[name / 2 + static_cast<size_t>(note[2] - '1') * 12];
}

inline std::vector<uint8_t> WriteModule(const MOD_TEXT &song)
{
    std::vector<uint8_t> file;
    const auto put = [&file](size_t value, int count) {
        while (count--)
            file.push_back(static_cast<uint8_t>(value >> (8 * count)));
    };
    const auto putText = [&file](const std::string &s, size_t size) {
        file.insert(file.end(), s.begin(), s.end());
        file.resize(file.size() + size - s.size());
    };
    putText("T", 20);
    const size_t samples = song.Signature.empty() ? 15 : 31;
    for (size_t i = 0; i < samples; i++) {
        const MOD_TEXT_SAMPLE s = i < song.Samples.size() ? song.Samples[i] : MOD_TEXT_SAMPLE{};
        putText("sample " + std::to_string(i + 1), 22);
        put(s.Data.size() / 2, 2);
        put(static_cast<size_t>(s.Finetune) << 8 | s.Volume, 2);
        put(s.LoopStart / 2 << 16 | s.LoopLength / 2, 4);
    }
    put(song.Orders.size() << 8 | 127, 2);
    putText({song.Orders.begin(), song.Orders.end()}, 128);
    putText(song.Signature, song.Signature.size());
    for (const std::string &pattern : song.Patterns) {
        std::istringstream lines(pattern);
        for (size_t row = 0; row < 64; row++) {
            std::string line, cell;
            std::getline(lines, line);
            std::istringstream cells(line);
            for (size_t channel = 0; channel < song.Channels; channel++) {
                std::getline(cells, cell, '|');
                std::istringstream text(cells ? cell : "");
                std::vector<std::string> words{std::istream_iterator<std::string>(text), {}};
                size_t command = 0;
                if (!words.empty() && words.back().size() == 3 &&
                    words.back().find_first_not_of("0123456789ABCDEF") == std::string::npos) {
                    command = std::stoul(words.back(), nullptr, 16);
                    words.pop_back();
                }
                const size_t note = words.empty() ? 0 : NotePeriod(words[0]);
                const size_t sample = words.size() < 2 ? 0 : std::stoul(words[1], nullptr, 16);
                put((sample & 0xF0) << 24 | note << 16 | (sample & 15) << 12 | command, 4);
            }
        }
    }
    for (const MOD_TEXT_SAMPLE &s : song.Samples)
        file.insert(file.end(), s.Data.begin(), s.Data.end());
    return file;
}
