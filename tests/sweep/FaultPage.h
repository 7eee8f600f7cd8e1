// docs/faults.md: one section for each kind of mishap in each run, one table row for each pen function and outcome.
#ifndef QUARVEL_TESTS_SWEEP_FAULTPAGE_H
#define QUARVEL_TESTS_SWEEP_FAULTPAGE_H

#include <string>
#include <vector>

#include "tests/sweep/Scenario.h"

// The section of a page under a heading, heading included, up to the next one; "" without it.
std::string PageSection(const std::string& page, const std::string& heading);
// Replaces or appends it.
void ReplaceSection(std::string& page, const std::string& heading, const std::string& section);

// The section of one mishap in one run: `outcomes` are those of the calls 1, 2, 3 and so on.
std::string FaultSection(const std::string& heading, const std::vector<Outcome>& outcomes);

#endif
