// Why the last load on this thread gave nothing, or less than its file promises: a short text that
// names the thing, such as "CCITT Group 4 compression" or "cut after 312 of 480 rows". The
// libraries never print it. Every thread has its own.
#pragma once

#include <cstddef>
#include <new>

#pragma GCC visibility push(default)

/// Bytes that a reason may have, its NUL included.
constexpr size_t Reason_MaxSize = 160;

/// Forgets the reason. Loads begin with this.
void Reason_Clear();

/// Keeps a text in the format of printf, truncated to 159 characters, unless there is one already:
/// the first cause is the one that explains the rest.
[[gnu::format(printf, 1, 2)]] void Reason_Set(const char *format, ...);

/// The reason, "" when nothing is missing. Valid until this thread's next load.
const char *Reason_Get();

/// What `body` returns; without memory a value-initialised result and the reason "out of memory".
/// Decoders run under it, so that they throw nothing.
template <typename Body>
auto Reason_Guard(const Body &body) -> decltype(body())
{
    try {
        return body();
    } catch (const std::bad_alloc &) {
        Reason_Clear();
        Reason_Set("out of memory");
        return decltype(body())();
    }
}

#pragma GCC visibility pop
