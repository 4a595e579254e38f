#include "extra/reason.h"

#include <array>
#include <cstdarg>
#include <cstdio>

static constinit thread_local std::array<char, Reason_MaxSize> reason{};

void Reason_Clear()
{
    reason[0] = 0;
}

void Reason_Set(const char *format, ...)  // NOLINT(cert-dcl50-cpp): g++ and clang check the values
{
    if (reason[0] != 0)
        return;
    va_list values;
    va_start(values, format);
    std::vsnprintf(reason.data(), reason.size(), format, values);
    va_end(values);
}

const char *Reason_Get()
{
    return reason.data();
}
