// For tests: memory, reads and files that fail on demand, in programs made by CMake's
// add_fault_tests(). Every thread has its own.
#pragma once

/// Counts down with each call of its kind. At 0 the call fails: that one alone, or all from it on.
struct FAULT {
    long Left = -1;  // below 0: none fails, or one has failed
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

/// Faults_Files counts opening, writing, syncing, renaming and closing.
extern constinit thread_local FAULT Faults_Memory, Faults_Reads, Faults_Files;

/// What each call that Faults_Files counts takes in microseconds besides, as on a disk.
extern unsigned Faults_FileTime;

/// Allocations that were not freed. A function, since compilers assume that operator delete changes
/// no variable.
long Faults_Live();
