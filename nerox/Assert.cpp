#include "nerox/Assert.hpp"

#include <cstdio>
#include <cstdlib>

namespace nerox {

void AssertionFailed(char const* condition, char const* file, int line) noexcept {
    std::fprintf(stderr, "ASSERTION FAILED: (%s) in %s:%d\n", condition, file, line);
    std::fflush(stderr);
    std::abort();
}

} // namespace nerox
