#include "tests/faults.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>

#include <fcntl.h>
#include <unistd.h>

constinit thread_local FAULT Faults_Memory, Faults_Reads, Faults_Files;
unsigned Faults_FileTime;
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

int __real_open(const char *path, int flags, mode_t mode);
int __real_fsync(int file);
int __real_rename(const char *from, const char *to);
size_t __real_fread(void *out, size_t size, size_t count, FILE *file);
int __real_fgetc(FILE *file);
FILE *__real_fopen(const char *path, const char *mode);
FILE *__real_fdopen(int file, const char *mode);

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

static bool Fails(FAULT &fault = Faults_Files)
{
    if (&fault == &Faults_Files && Faults_FileTime != 0)
        usleep(Faults_FileTime);
    errno = EIO;
    return fault.Strikes();
}

ssize_t __wrap_pread(int file, void *out, size_t count, off_t position)
{
    return Fails(Faults_Reads) ? -1 : __real_pread(file, out, count, position);
}

static int Number(void *cookie)
{
    return static_cast<int>(reinterpret_cast<intptr_t>(cookie));
}

int __wrap_open(const char *path, int flags, mode_t mode)
{
    return Fails() ? -1 : __real_open(path, flags, mode);
}

static bool ReadFails(FILE *file)
{
    if (!Fails(Faults_Reads))
        return false;
    file->_flags |= 0x20;  // what ferror() tells
    return true;
}

int __wrap_fsync(int file)
{
    return Fails() ? -1 : __real_fsync(file);
}

int __wrap_rename(const char *from, const char *to)
{
    return Fails() ? -1 : __real_rename(from, to);
}

size_t __wrap_fread(void *out, size_t size, size_t count, FILE *file)
{
    return ReadFails(file) ? 0 : __real_fread(out, size, count, file);
}

int __wrap_fgetc(FILE *file)
{
    return ReadFails(file) ? EOF : __real_fgetc(file);
}

// A stream with calls of its own, since the C library's are out of reach.
static FILE *Writer(int file, const char *mode)
{
    cookie_io_functions_t calls = {};
    calls.write = [](void *cookie, const char *bytes, size_t size) -> ssize_t {
        const ssize_t count = Fails() ? 0 : write(Number(cookie), bytes, size);
        return count < 0 ? 0 : count;
    };
    calls.seek = [](void *cookie, off64_t *offset, int whence) {
        *offset = lseek(Number(cookie), *offset, whence);
        return *offset < 0 ? -1 : 0;
    };
    calls.close = [](void *cookie) {
        const bool fails = Fails();
        return close(Number(cookie)) != 0 || fails ? -1 : 0;
    };
    FILE *stream = fopencookie(reinterpret_cast<void *>(intptr_t{file}), mode, calls);
    stream->_fileno = file;  // for fileno()
    return stream;
}

FILE *__wrap_fdopen(int file, const char *mode)
{
    return Fails() ? nullptr : mode[0] == 'w' ? Writer(file, mode) : __real_fdopen(file, mode);
}

FILE *__wrap_fopen(const char *path, const char *mode)
{
    if (Fails())
        return nullptr;
    if (mode[0] != 'w')
        return __real_fopen(path, mode);
    const int file = __real_open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    return file < 0 ? nullptr : Writer(file, mode);
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
