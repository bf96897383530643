// app/SelfTest.h: the --self-test checks: a table of named known-answer checks, one registration per area.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace quillon::app {

struct SelfCheck {
    std::string name;
    // True when the check passed; a thrown exception is reported as an error.
    std::function<bool()> run;
};

using SelfChecks = std::vector<SelfCheck>;

// One registration function per area; a new area adds its own and a call in allSelfChecks().
void addHashChecks(SelfChecks& checks);
void addEncodingChecks(SelfChecks& checks);
void addHeaderChecks(SelfChecks& checks);
void addCipherChecks(SelfChecks& checks);
void addFileChecks(SelfChecks& checks);
void addProcessChecks(SelfChecks& checks);

SelfChecks allSelfChecks();

// Prints "  ok    <name>", "  FAIL  <name>" or "  ERROR <name>" per check, then
// "<passed> passed, <failed> failed"; returns 0 when nothing failed, 1 otherwise.
int runSelfTest(const SelfChecks& checks, std::ostream& out);

} // namespace quillon::app
