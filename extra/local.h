// A thread's globals in loops.
#pragma once

/// The same global, its address looked up here and now. Compilers take the address of a thread's
/// global for a constant and look it up again in every turn of a loop, in shared libraries by a
/// call; the one given here they cannot know.
template <typename Global>
Global &Extra_Local(Global &global)
{
    Global *address = &global;
    asm("" : "+r"(address));
    return *address;
}
