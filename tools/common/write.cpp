#include "tools/common/write.h"

#include <cerrno>
#include <cstring>

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
    if (const std::string reason = fill(file); !reason.empty())
        return reason;
    const int error = Replace_Commit(file);
    return error != 0 ? Write_Reason(error) : "";
}
