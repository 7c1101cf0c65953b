// Counts the heap allocations of this test program: its global operator new and delete (every
// form) are replaced, and allocations made between Begin and End are counted.
#pragma once

#include <cstddef>

namespace alloc {

void Begin();
// The allocations since Begin; counting stops.
unsigned int End();
// The size asked for by the first allocation counted in the last window (0 when none).
std::size_t FirstSize();

// The allocations made while `work` runs.
template <typename Work>
unsigned int During(Work work) {
    Begin();
    work();
    return End();
}

}  // namespace alloc
