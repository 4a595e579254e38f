// Any file as a top-ten table: what is read from it must be ten results, each NUL-terminated.
#include <cstdlib>
#include <cstring>

#include "fuzz/fuzz.h"
#include "game/hiscore.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string path = FuzzFile(data, size);
    std::strcpy(fnHiscore.data(), path.c_str());
    ReadHiscore();
    for (const HISCORE &entry : HiScore)
        if (std::strlen(entry.Name.data()) >= entry.Name.size() ||
            std::strlen(entry.Record.data()) < std::strlen("00:00:00:0000, 00000"))
            std::abort();
    return 0;
}
