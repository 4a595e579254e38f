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
        constexpr size_t page = 65536;
        const size_t skipped = (page - reinterpret_cast<uintptr_t>(block) % page) % page;
        const size_t whole = (size - skipped) / page * page;
        const int before = errno;  // kernels without huge pages refuse, which does not matter
        madvise(static_cast<uint8_t *>(block) + skipped, whole, MADV_HUGEPAGE);
        errno = before;
    }
#endif
    return block;
}
