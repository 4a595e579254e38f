// Access to thread-local globals in loops.
#pragma once

/// The same global, with its address looked up once, here. Compilers treat a thread-local's address
/// as a constant and recompute it on every iteration (a call in shared libraries); this one is
/// opaque to them.
template <typename Global>
Global &Extra_Local(Global &global)
{
    Global *address = &global;
    asm("" : "+r"(address));
    return *address;
}
