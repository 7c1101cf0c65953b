#include "alloc_Counter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<bool> gCounting{false};
std::atomic<unsigned int> gCount{0};
std::atomic<std::size_t> gFirstSize{0};

void Note(std::size_t size) {
    if (gCounting.load(std::memory_order_relaxed)) {
        if (gCount.fetch_add(1, std::memory_order_relaxed) == 0) {
            gFirstSize.store(size, std::memory_order_relaxed);
        }
    }
}

void* Take(std::size_t size) {
    Note(size);
    return std::malloc(size == 0 ? 1 : size);
}

void* TakeAligned(std::size_t size, std::align_val_t alignment) {
    Note(size);
    std::size_t align = static_cast<std::size_t>(alignment);
    if (align < sizeof(void*)) {
        align = sizeof(void*);
    }
    void* p = nullptr;
    return ::posix_memalign(&p, align, size == 0 ? 1 : size) == 0 ? p : nullptr;
}

void* OrThrow(void* p) {
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    return p;
}
}  // namespace

namespace alloc {
void Begin() {
    gCount.store(0);
    gFirstSize.store(0);
    gCounting.store(true);
}
unsigned int End() {
    gCounting.store(false);
    return gCount.load();
}
std::size_t FirstSize() {
    return gFirstSize.load();
}
}  // namespace alloc

void* operator new(std::size_t size) {
    return OrThrow(Take(size));
}
void* operator new[](std::size_t size) {
    return OrThrow(Take(size));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Take(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Take(size);
}
void* operator new(std::size_t size, std::align_val_t a) {
    return OrThrow(TakeAligned(size, a));
}
void* operator new[](std::size_t size, std::align_val_t a) {
    return OrThrow(TakeAligned(size, a));
}
void* operator new(std::size_t size, std::align_val_t a, const std::nothrow_t&) noexcept {
    return TakeAligned(size, a);
}
void* operator new[](std::size_t size, std::align_val_t a, const std::nothrow_t&) noexcept {
    return TakeAligned(size, a);
}

void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete(void* p, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept {
    std::free(p);
}
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept {
    std::free(p);
}
