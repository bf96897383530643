#include "kdbx/Random.h"

#include "kdbx/Check.h"

#include <cerrno>
#include <cstdlib>

#if defined(__linux__)
#include <sys/random.h>
#endif

namespace quillon::kdbx {

void randomFill(std::span<std::uint8_t> out) noexcept
{
#if defined(__APPLE__)
    arc4random_buf(out.data(), out.size());
#else
    std::size_t done = 0;
    while (done < out.size()) {
        const ssize_t got = getrandom(out.data() + done, out.size() - done, 0);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            fatal("The system could not provide random bytes.");
        }
        done += static_cast<std::size_t>(got);
    }
#endif
}

std::vector<std::uint8_t> randomBytes(std::size_t count)
{
    std::vector<std::uint8_t> out(count);
    randomFill(out);
    return out;
}

SecureBytes randomSecret(std::size_t count)
{
    SecureBytes out(count);
    randomFill(out.span());
    return out;
}

} // namespace quillon::kdbx
