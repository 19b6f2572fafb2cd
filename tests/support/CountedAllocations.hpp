#pragma once
// Counts every operator new of a test program, for tests that check a steady
// frame allocates nothing. It replaces the global allocation functions: include
// it from exactly one source file of the program.
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
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
