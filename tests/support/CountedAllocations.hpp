#pragma once
// Counts every operator new of a test program, for tests that check a steady
// frame allocates nothing. It replaces the global allocation functions: include
// it from exactly one source file of the program. The aligned forms are left
// to the library: they pair with their own deletes.
#include <atomic>
#include <cstdlib>
#include <new>

namespace testsupport {

/// Number of operator new calls so far in this program.
inline std::atomic<long> allocations{0};

} // namespace testsupport

// GCC cannot see that these pairs match once they are inlined into the library's allocators.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void* operator new(std::size_t size) {
    testsupport::allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
// The nothrow forms too: every allocation that our deletes free must come from malloc.
void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
    testsupport::allocations.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size == 0 ? 1 : size);
}
void* operator new[](std::size_t size, std::nothrow_t const& tag) noexcept {
    return operator new(size, tag);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete(void* p, std::nothrow_t const&) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::nothrow_t const&) noexcept {
    std::free(p);
}
