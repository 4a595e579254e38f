// Why the last load on this thread gave nothing, or less than its file promises: a short text that
// names the cause, such as "CCITT Group 4 compression" or "cut after 312 of 480 rows". The
// libraries never print it. Reasons are per thread.
#pragma once

#include <cstddef>
#include <new>

#pragma GCC visibility push(default)

/// Size of a reason in bytes, its NUL included.
constexpr size_t Reason_MaxSize = 160;

/// Clears the reason. Every load starts with this.
void Reason_Clear();

/// Stores a printf-formatted text, truncated to 159 characters, unless a reason is already set: the
/// first cause explains the rest.
[[gnu::format(printf, 1, 2)]] void Reason_Set(const char *format, ...);

/// The reason, or "" if nothing is missing. Valid until this thread's next load.
const char *Reason_Get();

/// Returns what `body` returns; if memory runs out, a value-initialised result with the reason "out
/// of memory". Decoders run inside it, so they throw nothing.
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
