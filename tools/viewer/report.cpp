#include "tools/viewer/report.h"

#include <cstdio>

#include <unistd.h>

#include "tools/common/text.h"

static bool progressShown;

bool Report(const std::string &name, const std::string &reason)
{
    ProgressEnd();
    std::fprintf(stderr, "tessview: %s: %s\n", Text_Harmless(name).c_str(),
                 Text_Harmless(reason).c_str());
    return false;
}

void Progress(size_t n, size_t count, const std::string &name)
{
    if (!isatty(STDERR_FILENO))
        return;
    ProgressEnd();
    const std::string harmless = Text_Harmless(name);
    std::string_view rest = harmless;
    for (int letters = 0; letters < 60 && !rest.empty(); letters++)
        Text_Take(rest);
    std::fprintf(stderr, "%zu of %zu: %.*s", n, count,
                 static_cast<int>(harmless.size() - rest.size()), harmless.c_str());
    progressShown = true;
}

void ProgressEnd()
{
    if (progressShown)
        std::fputs("\r\033[K", stderr);
    progressShown = false;
}
