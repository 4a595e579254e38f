// SHA-256, for comparing whole results with digests.
#pragma once

#include <cstdio>

#include "tests/files.h"

// The digest as 64 hexadecimal digits.
inline std::string Sha256(const BYTES &data)
{
    FILE *command = popen(("sha256sum '" + WriteTemp("digest", data) + "'").c_str(), "r");
    std::string digest(64, '?');
    EXPECT_EQ(std::fread(digest.data(), 1, digest.size(), command), digest.size());
    pclose(command);
    return digest;
}
