// What a registration leaves in the registry, and what its removal leaves of it.
#ifndef ZAREXT_TESTS_CONTRACT_REGISTRATION_REGISTRY_H_
#define ZAREXT_TESTS_CONTRACT_REGISTRATION_REGISTRY_H_

#include <string>
#include <vector>

#include "contract/registration_expected.h"

namespace zarext::test {

// Of the records with one OID and group the last, as the framework has it.
std::vector<ExpectedRecord> LastRecords();
// What is not removed.
const std::vector<ExpectedRecord>& RemainingRecords();
std::vector<ExpectedBinding> RemainingBindings();

// Everything that registration adds to the registry, as lines of ReadRegistry.
std::vector<std::string> AllLines();
// What unregistration leaves of it.
std::vector<std::string> RemainingLines();

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_REGISTRATION_REGISTRY_H_
