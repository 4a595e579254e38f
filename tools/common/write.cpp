#include "tools/common/write.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <unistd.h>

namespace
{

// While it lives, a signal that ends the program first removes the unfinished file.
class CLEANER
{
public:
    explicit CLEANER(const std::string &path);
    ~CLEANER();
    CLEANER(const CLEANER &) = delete;
    CLEANER &operator=(const CLEANER &) = delete;

private:
    static constexpr std::array<int, 3> Signals = {SIGINT, SIGTERM, SIGHUP};
    std::array<struct sigaction, Signals.size()> Before;
};

}  // namespace

static std::array<char, 4096> unfinished;  // its path

CLEANER::CLEANER(const std::string &path)
{
    unfinished = {};
    path.copy(unfinished.data(), unfinished.size() - 1);
    struct sigaction action {
    };
    action.sa_handler = [](int signal) {
        unlink(unfinished.data());
        raise(signal);  // takes effect as soon as this returns
    };
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (size_t i = 0; i < Signals.size(); i++) {
        sigaction(Signals[i], nullptr, &Before[i]);
        if (Before[i].sa_handler == SIG_DFL)  // neither ignored nor handled elsewhere
            sigaction(Signals[i], &action, nullptr);
    }
}

CLEANER::~CLEANER()
{
    for (size_t i = 0; i < Signals.size(); i++)
        sigaction(Signals[i], &Before[i], nullptr);
}

std::string Write_Reason(int error)
{
    return error == ENOTSUP ? "it is not a regular file" : std::strerror(error);
}

std::string Write_File(const std::string &path,
                       const std::function<std::string(const REPLACE &file)> &fill)
{
    REPLACE file;
    if (const int error = Replace_Open(file, path))
        return Write_Reason(error);
    const CLEANER cleaner(file.Beside);
    if (std::string reason = fill(file); !reason.empty())
        return reason;
    const int error = Replace_Commit(file);
    return error != 0 ? Write_Reason(error) : "";
}
