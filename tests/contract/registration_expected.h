// What registration must write and what unregistration must remove, in order, each list written out
// in full: nothing here is computed from another list or from the module's tables.
#ifndef ZAREXT_TESTS_CONTRACT_REGISTRATION_EXPECTED_H_
#define ZAREXT_TESTS_CONTRACT_REGISTRATION_EXPECTED_H_

#include <windows.h>

#include <array>
#include <span>
#include <string>
#include <vector>

namespace zarext::test {

struct ExpectedRecord {
  std::string oid;
  DWORD group;
  std::string name;  // UTF-8
  DWORD algorithm;
  std::array<DWORD, 3> extra;
};

struct ExpectedBinding {
  DWORD encodingType;
  std::string function;
  std::string oid;
  std::string exportName;
};

const std::vector<ExpectedRecord>& RegisteredRecords();
// The extra values are those that every removal carries.
const std::vector<ExpectedRecord>& RemovedRecords();

// The store provider's binding first; the physical store comes behind it.
std::vector<ExpectedBinding> RegisteredBindings();
// Without export names, which a removal does not state.
std::vector<ExpectedBinding> RemovedBindings();

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_REGISTRATION_EXPECTED_H_
