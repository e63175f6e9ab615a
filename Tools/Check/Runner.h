#pragma once
// Runs each check in a child process of its own, so that a stack that crashes or hangs in one check is
// reported for that check and the others still run; then reports on the terminal and as JUnit XML.

#include <string>
#include <vector>

#include "Checks.h"

namespace Check {

struct Settings {
    std::string library;
    std::string options;
    double budgetMs = 5.0;
    int timeoutSeconds = 20;
    Feed feed;
    std::string traceDir;  // where a failing check's session trace goes; empty: no trace
};

struct Report {
    std::string name;
    std::string clause;
    Outcome outcome = Outcome::Pass;
    std::string evidence;
    double seconds = 0.0;
    std::string trace;  // what the library recorded of the failing session, when it records one
};

Report Run(const CheckDefinition& check, const Settings& settings);

const char* Word(Outcome outcome);
void Print(const Report& report);
// False when the file cannot be written.
bool WriteJUnit(const std::string& path, const std::vector<Report>& reports, double seconds);

}  // namespace Check
