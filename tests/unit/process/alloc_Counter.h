// Counts the heap allocations of this test program: its global operator new and delete are
// replaced, and allocations made between Begin and End are counted.
#pragma once

namespace alloc {

void Begin();
// The allocations since Begin; counting stops.
unsigned int End();

// The allocations made while `work` runs.
template <typename Work>
unsigned int During(Work work) {
    Begin();
    work();
    return End();
}

}  // namespace alloc
