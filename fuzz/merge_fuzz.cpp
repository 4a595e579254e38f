// A result entered in any file as a top-ten table: the others keep their order, and the file says
// so. The first four bytes are the result.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz/fuzz.h"
#include "game/hiscore.h"

static bool Same(const HISCORE &a, const HISCORE &b)
{
    return std::strcmp(a.Name.data(), b.Name.data()) == 0 &&
           std::strcmp(a.Record.data(), b.Record.data()) == 0;
}

static void Require(bool fine)
{
    if (!fine)
        __builtin_trap();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const std::string path = "/dev/shm/merge" + std::to_string(getpid());
    if (size < 4)
        return 0;
    std::strcpy(fnHiscore.data(), path.c_str());
    FILE *file = std::fopen(path.c_str(), "wb");
    std::fwrite(data + 4, 1, size - 4, file);
    std::fclose(file);
    char record[24];
    std::snprintf(record, sizeof(record), "%02u:%02u:%02u:%04u, %05u", data[0] % 60u, data[1] % 60u,
                  data[2] % 60u, data[2] * 3u, data[3] + 0u);

    ReadHiscore();
    const auto before = HiScore;
    const HISCORE_SAVED saved = SaveHiscore(record, "me", nullptr);
    Require(saved.ReadError == 0 && saved.WriteError == 0);
    const auto after = HiScore;
    for (size_t i = 0; i < after.size(); i++) {
        const bool above = i < saved.Place;
        Require(i == saved.Place ? std::strcmp(after[i].Record.data(), record) == 0
                                 : Same(after[i], before[above ? i : i - 1]));
        Require(!above || std::strcmp(after[i].Record.data(), record) < 0);
    }
    if (saved.Place != NoPlace) {
        ReadHiscore();
        for (size_t i = 0; i < after.size(); i++)
            Require(Same(HiScore[i], after[i]));
        Require(SaveHiscore(record, "you", "me").Place == saved.Place);  // the same result, renamed
    }
    for (const char *ending : {"", ".lock", ".bad"})
        std::remove((path + ending).c_str());
    return 0;
}
