#pragma once
// The contract clauses a media stack must keep, one check each.

#include <functional>
#include <string>
#include <vector>

#include "Browser.h"
#include "Harness.h"

namespace Check {

enum class Outcome { Pass, Fail, Skip };

struct Verdict {
    Outcome outcome = Outcome::Pass;
    std::string evidence;
};

// What a check may use besides the stack.
struct Context {
    Harness& harness;
    double budgetMs;  // the longest a browser call may wait on the stack
    Feed feed;        // what the sessions play
    // Says what the check does next, so that a check cut by its timeout can say where it hung.
    std::function<void(const std::string&)> step;
};

struct CheckDefinition {
    const char* name;
    const char* clause;  // the rule, as the report states it
    Verdict (*run)(Context&);
};

// Every check, in the order they run. The first one creates the stack and nothing else; when it fails
// the others cannot run.
const std::vector<CheckDefinition>& AllChecks();

}  // namespace Check
