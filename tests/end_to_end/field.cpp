// Prints the field that the game generates for the given parameters at this time of day, one row
// per line: '*' mine, '.' none. With a fixed time of day it tells a test where the mines are.
#include <cstdio>

#include "platform/state.h"
#include "platform/system.h"
#include "tests/field.h"

int main(int argc, char **argv)
{
    System_ParamCount = argc;
    for (size_t i = 0; i < static_cast<size_t>(argc) && i < System_ParamSlots; i++)
        std::snprintf(&System_ParamStr[i * System_ParamLength], System_ParamLength, "%s", argv[i]);
    System_RaNDomize();
    ReadParameters();
    GenerateMinefield();
    std::fputs(MinesToText().c_str(), stdout);
}
