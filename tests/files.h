// Small files for tests, in the test's temporary folder.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "extra/bytes.h"

// In a folder of this process's own, which goes with it: tests run side by side.
inline std::string TempPath(const std::string &name)
{
    static const struct FOLDER {
        std::string Path = testing::TempDir() + "tessaruvinel_XXXXXX";
        FOLDER()
        {
            if (!mkdtemp(Path.data()))
                std::abort();
        }
        ~FOLDER()
        {
            std::filesystem::remove_all(Path);
        }
    } folder;
    return folder.Path + "/" + name;
}

inline std::string WriteTemp(const std::string &name, const std::vector<uint8_t> &bytes)
{
    const std::string path = TempPath(name);
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    return path;
}

// Bytes of a text with NULs in it: Text("a\0b").
template <size_t N>
std::vector<uint8_t> Text(const char (&text)[N])
{
    return {text, text + N - 1};
}

// 64-bit FNV-1a.
inline uint64_t Digest(std::span<const uint8_t> bytes)
{
    uint64_t hash = 0xcbf29ce484222325;
    for (const uint8_t byte : bytes)
        hash = (hash ^ byte) * 0x100000001b3;
    return hash;
}
