#include "app/Hardening.h"

#include <sys/prctl.h>
#include <sys/resource.h>

namespace quillon::app {

void hardenProcess() noexcept
{
#ifdef QUILLON_HARDENED
    // Best effort: a failure leaves the process as the system started it, which is no reason not to run.
    const rlimit none{0, 0};
    (void)setrlimit(RLIMIT_CORE, &none);
    (void)prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
#endif
}

bool isProcessHardened() noexcept
{
    rlimit core{};
    if (getrlimit(RLIMIT_CORE, &core) != 0)
        return false;
    return core.rlim_cur == 0 && core.rlim_max == 0 && prctl(PR_GET_DUMPABLE, 0, 0, 0, 0) == 0;
}

} // namespace quillon::app
