// A tool's exceptions end in a message.
#pragma once

#include <cstdio>
#include <exception>
#include <new>

/// Returns what `body` returns; if memory runs out, or the system refuses what it needs, 1 after a
/// line on standard error.
template <typename Body>
int Guard_Run(const char *tool, const Body &body)
{
    try {
        return body();
    } catch (const std::bad_alloc &) {
        std::fprintf(stderr, "%s: out of memory\n", tool);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s: %s\n", tool, error.what());
    }
    return 1;
}
