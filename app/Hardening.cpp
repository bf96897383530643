#include "app/Hardening.h"

#include <sys/resource.h>
#ifdef __linux__
#include <sys/prctl.h>
#elif defined(__APPLE__)
#include <sys/ptrace.h>
#endif

namespace quillon::app {

void hardenProcess() noexcept
{
#ifdef QUILLON_HARDENED
    // Best effort: a failure leaves the process as the system started it, which is no reason not to run.
    const rlimit none{0, 0};
    (void)setrlimit(RLIMIT_CORE, &none);
#ifdef __linux__
    (void)prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
#elif defined(__APPLE__)
    // macOS has no dumpable flag; refusing debuggers is its nearest counterpart.
    (void)ptrace(PT_DENY_ATTACH, 0, nullptr, 0);
#endif
#endif
}

bool isProcessHardened() noexcept
{
    rlimit core{};
    if (getrlimit(RLIMIT_CORE, &core) != 0)
        return false;
#ifdef __linux__
    if (prctl(PR_GET_DUMPABLE, 0, 0, 0, 0) != 0)
        return false;
#endif
    return core.rlim_cur == 0 && core.rlim_max == 0;
}

} // namespace quillon::app
