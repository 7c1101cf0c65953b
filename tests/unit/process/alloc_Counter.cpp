#include "alloc_Counter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<bool> gCounting{false};
std::atomic<unsigned int> gCount{0};
}  // namespace

namespace alloc {
void Begin() {
    gCount = 0;
    gCounting = true;
}
unsigned int End() {
    gCounting = false;
    return gCount;
}
}  // namespace alloc

// The array, nothrow and sized forms reach these by default. No type of the project is
// over-aligned, so the aligned forms are left alone. In a file of their own, so that no caller
// sees malloc and free paired with new and delete.
void* operator new(std::size_t size) {
    void* p = std::malloc(size == 0 ? 1 : size);
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    gCount += gCounting ? 1 : 0;
    return p;
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
