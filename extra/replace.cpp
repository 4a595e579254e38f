#include "extra/replace.h"

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

constexpr int Replace_MaxLinks = 40;        // in a chain, the kernel's own limit
constexpr size_t Replace_MaxStem = 200;     // of the old name that the new one keeps
constexpr int Replace_MaxLeftovers = 1000;  // names tried before giving up

static std::atomic<unsigned> replaceCount;

// Repeats a system call that a signal interrupted.
template <typename Call>
static auto Retry(const Call &call) -> decltype(call())
{
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

static int WhyNotReplaceable(const std::string &path, const struct stat &status)
{
    if (S_ISDIR(status.st_mode))
        return EISDIR;
    if (!S_ISREG(status.st_mode))
        return ENOTSUP;
    // Root could still write to it, but somebody made it read-only.
    if ((status.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0)
        return EACCES;
    return faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0 ? 0 : errno;
}

// Creates a file under an unused name in the target's folder; below 0, with errno set, on failure.
static int CreateBeside(REPLACE &file, mode_t mode)
{
    const std::filesystem::path target = file.Target;
    const std::string stem =
        target.filename().string().substr(0, Replace_MaxStem) + '.' + std::to_string(getpid());
    int descriptor = -1;
    for (int i = 0; i < Replace_MaxLeftovers && descriptor < 0; i++) {
        const std::string name = stem + '-' + std::to_string(++replaceCount) + ".new";
        file.Beside = target.parent_path() / name;
        descriptor = Retry([&] {
            return open(file.Beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                        mode);
        });
        if (descriptor < 0 && errno != EEXIST)
            break;
    }
    return descriptor;
}

int Replace_Resolve(std::string &path)
{
    std::filesystem::path target = path;
    std::error_code error;
    for (int i = 0; i < Replace_MaxLinks; i++) {
        if (!std::filesystem::is_symlink(std::filesystem::symlink_status(target, error))) {
            path = target;
            return 0;
        }
        const std::filesystem::path link = std::filesystem::read_symlink(target, error);
        if (error)
            return error.value();
        target = target.parent_path() / link;  // an absolute link replaces the whole path
    }
    return ELOOP;
}

int Replace_Open(REPLACE &file, const std::string &path)
{
    Replace_Discard(file);
    file.Target = path;
    int error = Replace_Resolve(file.Target);
    if (error != 0)
        return error;
    struct stat status;
    const bool exists = stat(file.Target.c_str(), &status) == 0;
    if (!exists && errno != ENOENT)
        return errno;
    if (exists && (error = WhyNotReplaceable(file.Target, status)) != 0)
        return error;
    const int descriptor = CreateBeside(file, exists ? S_IRUSR | S_IWUSR : 0666);
    if (descriptor < 0)
        return errno;
    if (exists) {
        // chown comes first, since it clears the setuid and setgid bits; only root can keep another
        // user's ownership.
        const bool owned = fchown(descriptor, status.st_uid, status.st_gid) == 0;
        const mode_t kept = owned ? 07777 : 0777;
        if (fchmod(descriptor, status.st_mode & kept) != 0)
            error = errno;
    }
    if (error == 0)
        file.File = fdopen(descriptor, "wb");
    if (file.File)
        return 0;
    error = error != 0 ? error : errno;
    close(descriptor);
    unlink(file.Beside.c_str());
    return error;
}

// Syncs the file to the disk and closes it.
static int Finish(FILE *file)
{
    errno = 0;
    int error = 0;
    if (std::fflush(file) != 0 || std::ferror(file))
        error = errno != 0 ? errno : EIO;
    else if (Retry([&] { return fsync(fileno(file)); }) != 0)
        error = errno;
    if (std::fclose(file) != 0 && error == 0)
        error = errno;
    return error;
}

static std::string FolderOf(const std::string &target)
{
    return std::filesystem::path(target).parent_path() / ".";
}

// If the folder cannot be synced the new file still stays in place; only its durability is
// uncertain.
static void SyncFolder(const std::string &folder)
{
    const int descriptor =
        Retry([&] { return open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    if (descriptor < 0)
        return;
    Retry([&] { return fsync(descriptor); });
    close(descriptor);
}

int Replace_Commit(REPLACE &file)
{
    if (!file.File)
        return EBADF;
    const std::string folder = FolderOf(file.Target);  // may throw as long as nothing is replaced
    int error = Finish(std::exchange(file.File, nullptr));
    if (error == 0 && std::rename(file.Beside.c_str(), file.Target.c_str()) != 0)
        error = errno;
    if (error == 0)
        SyncFolder(folder);
    else
        unlink(file.Beside.c_str());
    return error;
}

void Replace_Discard(REPLACE &file)
{
    if (!file.File)
        return;
    std::fclose(std::exchange(file.File, nullptr));
    unlink(file.Beside.c_str());
}

REPLACE::~REPLACE()
{
    Replace_Discard(*this);
}
