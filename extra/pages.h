// Huge pages for large blocks.
#pragma once

#include <cstddef>

/// Asks Linux for huge pages under a new block that may hold one (2 MiB), so that filling it costs
/// a page fault a huge page instead of one every 4 KiB. Does nothing for smaller blocks, for null,
/// and on other systems. Returns the block.
void *Pages_Advise(void *block, size_t size);
