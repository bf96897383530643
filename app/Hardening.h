// app/Hardening.h: process-wide protections that every Quillon executable applies first thing.
#pragma once

namespace quillon::app {

// Release-like builds: no core files and a non-dumpable process, so a crash or a debugger attached
// by another user cannot take the decrypted database with it. Debug builds leave both as they are.
void hardenProcess() noexcept;

// Whether this process is currently protected as hardenProcess() leaves it.
bool isProcessHardened() noexcept;

} // namespace quillon::app
