#include "extra/pages.h"

#include <cerrno>
#include <cstdint>

#ifdef __linux__
#include <sys/mman.h>
#endif

constexpr size_t Pages_Huge = size_t{2} << 20;

void *Pages_Advise(void *block, size_t size)
{
#ifdef MADV_HUGEPAGE
    if (block && size >= Pages_Huge) {
        // Whole pages inside the block, of the largest size that kernels have, instead of asking.
        constexpr uintptr_t page = 65536;
        const auto address = reinterpret_cast<uintptr_t>(block);
        const uintptr_t first = (address + page - 1) / page * page;
        const uintptr_t end = (address + size) / page * page;
        const int before = errno;  // kernels without huge pages refuse, which does not matter
        madvise(reinterpret_cast<void *>(first), end - first, MADV_HUGEPAGE);
        errno = before;
    }
#endif
    return block;
}
