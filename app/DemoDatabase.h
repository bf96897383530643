// app/DemoDatabase.h: the bundled demo database (password "demo"), made by our own writer.
#pragma once

#include "kdbx/KdbxFile.h"

#include <memory>

namespace quillon::app {

// A few groups, entries with history, an attachment, a protected custom field and one-time-password settings.
std::unique_ptr<kdbx::KdbxFile> makeDemoDatabase();

} // namespace quillon::app
