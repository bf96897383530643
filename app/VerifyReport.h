// app/VerifyReport.h: --verify: open a database, save it to memory, open it again, compare the documents.
#pragma once

#include "kdbx/SecureBytes.h"

#include <pugixml.hpp>

#include <filesystem>
#include <ostream>

namespace quillon::app {

// Prints the report to out and returns the exit status: 0 when the document survived unchanged.
// Protected values never appear in the output or in the files it writes.
int runVerify(const std::filesystem::path& path, const kdbx::SecureBytes& password, std::ostream& out);

// The comparison half of the report: the documents before and after the round trip. Files with the
// masked texts go to $TMPDIR (or /tmp) when they differ; errors writing them are thrown.
int reportRoundTrip(const pugi::xml_document& first, const pugi::xml_document& second, std::ostream& out);

} // namespace quillon::app
