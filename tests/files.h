// Small files for tests, in the test's temporary folder.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "extra/bytes.h"

using BYTES = std::vector<uint8_t>;

inline BYTES operator+(BYTES a, const BYTES &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// Big-endian with `count` bytes, little-endian with -`count`.
inline BYTES Number(int64_t value, int count)
{
    BYTES bytes;
    for (int i = 0; i < std::abs(count); i++)
        bytes.push_back(static_cast<uint8_t>(value >> (8 * (count > 0 ? count - 1 - i : i))));
    return bytes;
}

inline BYTES Prefix(const BYTES &bytes, size_t size)
{
    return {bytes.data(), bytes.data() + size};
}

// In this process's own folder, which is removed at its end: tests run side by side.
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

inline std::string WriteTemp(const std::string &name, const BYTES &bytes)
{
    const std::string path = TempPath(name);
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    return path;
}

inline BYTES ReadFile(const std::string &path)
{
    const BYTES_BUFFER file = Bytes_LoadFile(path.c_str());
    return {file.begin(), file.end()};
}

// The rows of a tab-separated table, without its heading.
inline std::vector<std::vector<std::string>> ReadTable(const std::string &path)
{
    std::vector<std::vector<std::string>> rows;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        std::istringstream text(line);
        rows.emplace_back();
        for (std::string cell; std::getline(text, cell, '\t');)
            rows.back().push_back(cell);
    }
    rows.erase(rows.begin(), rows.begin() + !rows.empty());
    return rows;
}

// Bytes of a literal that contains NULs: Text("a\0b").
template <size_t N>
BYTES Text(const char (&text)[N])
{
    return {text, text + N - 1};
}

inline std::string Repeat(const std::string &text, int count)
{
    return count == 0 ? "" : text + Repeat(text, count - 1);
}

// 64-bit FNV-1a.
inline uint64_t Digest(std::span<const uint8_t> bytes)
{
    uint64_t hash = 0xcbf29ce484222325;
    for (const uint8_t byte : bytes)
        hash = (hash ^ byte) * 0x100000001b3;
    return hash;
}
