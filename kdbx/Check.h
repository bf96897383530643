// kdbx/Check.h: programming-error checks that stop the process without printing secrets.
#pragma once

namespace quillon {

[[noreturn]] void checkFailed(const char* condition, const char* file, int line) noexcept;

// Stops the program with a fixed message; for failures the program cannot recover from safely.
[[noreturn]] void fatal(const char* message) noexcept;

} // namespace quillon

#define QUILLON_CHECK(cond)                                                                                            \
    do {                                                                                                               \
        if (!(cond))                                                                                                   \
            ::quillon::checkFailed(#cond, __FILE__, __LINE__);                                                         \
    } while (false)
