// What a round of the anomaly loop is to show, from its scenario and the point that failed.
#ifndef ZAREXT_TESTS_CONTRACT_ANOMALY_EFFECTS_H_
#define ZAREXT_TESTS_CONTRACT_ANOMALY_EFFECTS_H_

#include <string>

#include "contract/anomaly_scenario.h"

namespace zarext::test {

// What the failure leads to by the scenario's first rule that matches, or by what holds for all;
// null where nothing says it.
const Effect* FindEffect(const Scenario& scenario, const FailurePoint& point);

// What an exception out of the call leads to.
Effect ThrownEffect(const Scenario& scenario, const FailurePoint& point, Manner manner);

Lines ExpectedLines(const Scenario& scenario, const FailurePoint& point, const Effect& effect);

// A test's failure where the lines differ; "*" stands for the digits of a handle.
void ExpectLines(const Lines& expected, const Lines& actual);

// One line of text each, for a failure.
std::string Joined(const Lines& lines);

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_ANOMALY_EFFECTS_H_
