// app/VerifyReport.h: the --verify report: opens a database, saves it to memory, opens it again, compares.
#pragma once

#include "kdbx/SecureBytes.h"

#include <filesystem>
#include <ostream>

namespace quillon::app {

// Prints the report to `out`, one line per message; returns the exit status.
int runVerify(const std::filesystem::path& path, const quillon::kdbx::SecureBytes& password, std::ostream& out);

} // namespace quillon::app
