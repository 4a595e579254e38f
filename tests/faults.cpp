#include "tests/faults.h"

#include <cerrno>
#include <cstdlib>
#include <new>

#include <sys/types.h>

constinit thread_local FAULT Faults_Memory, Faults_Reads;
static constinit thread_local long live = 0;

long Faults_Live()
{
    return live;
}

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void __real_free(void *memory);
ssize_t __real_pread(int file, void *out, size_t count, off_t position);

static void *Count(void *memory)
{
    live += memory != nullptr;
    return memory;
}

void *__wrap_malloc(size_t size)
{
    return Faults_Memory.Strikes() ? nullptr : Count(__real_malloc(size));
}

void *__wrap_calloc(size_t count, size_t size)
{
    return Faults_Memory.Strikes() ? nullptr : Count(__real_calloc(count, size));
}

void __wrap_free(void *memory)
{
    live -= memory != nullptr;
    __real_free(memory);
}

ssize_t __wrap_pread(int file, void *out, size_t count, off_t position)
{
    errno = EIO;
    return Faults_Reads.Strikes() ? -1 : __real_pread(file, out, count, position);
}
}

void *operator new(size_t size)
{
    if (void *memory = __wrap_malloc(size))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void *memory) noexcept
{
    __wrap_free(memory);
}

void operator delete(void *memory, size_t) noexcept
{
    __wrap_free(memory);
}
