// Memory that is held, counted to the block.
#pragma once

#include <cstddef>

/// Blocks allocated with new and not deleted yet, by all threads of the program. Any thread.
std::size_t LiveAllocations() noexcept;
