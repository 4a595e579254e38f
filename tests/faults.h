// For tests: memory and reads that fail when they are to, in programs that CMake's
// add_fault_tests() makes. Every thread has its own.
#pragma once

/// Counts down with each call of its kind, which fails at 0: that one alone, or all from it on.
struct FAULT {
    long Left = -1;  // below 0: none fails, or it has
    bool Lasting = false, Struck = false;

    bool Strikes()
    {
        if (Left < 0 || Left-- > 0)
            return false;
        Struck = true;
        if (Lasting)
            Left = 0;
        return true;
    }
};

extern constinit thread_local FAULT Faults_Memory, Faults_Reads;

/// Allocations that were not freed. A function, since compilers take operator delete to change no
/// variable.
long Faults_Live();
