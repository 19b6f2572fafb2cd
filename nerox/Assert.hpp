#pragma once
// Invariant checks. A failed check prints
//   ASSERTION FAILED: (condition) in path/to/file.cpp:LINE
// to the standard error stream and aborts. They stay on in release builds.

namespace nerox {
/// Prints the failure line for an assertion and aborts the process.
[[noreturn]] void AssertionFailed(char const* condition, char const* file, int line) noexcept;
} // namespace nerox

#define NEROX_ASSERT(condition)                                                                                        \
    do {                                                                                                               \
        if (!(condition)) [[unlikely]]                                                                                 \
            ::nerox::AssertionFailed(#condition, __FILE__, __LINE__);                                                  \
    } while (0)
