#include "kdbx/Check.h"

#include <cstdio>
#include <cstdlib>

namespace quillon {

void checkFailed(const char* condition, const char* file, int line) noexcept
{
    std::fprintf(stderr, "Quillon: internal check failed: %s (%s:%d)\n", condition, file, line);
    std::fflush(stderr);
    std::abort();
}

void fatal(const char* message) noexcept
{
    std::fprintf(stderr, "%s\n", message);
    std::fflush(stderr);
    std::abort();
}

} // namespace quillon
