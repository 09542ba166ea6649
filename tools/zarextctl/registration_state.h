// What of this version's registrations the registry holds.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_REGISTRATION_STATE_H_
#define ZAREXT_TOOLS_ZAREXTCTL_REGISTRATION_STATE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "registration/function_bindings.h"
#include "registration/oid_records.h"

namespace zarext::ctl {

enum class ItemState : std::uint8_t {
  kPresent,
  kMissing,
  kDiffers,        // a value is not what this version registers, or has a wrong type
  kOtherDll,       // the binding names another DLL
  kOtherFunction,  // the binding names another function of the DLL
};
// "present", "missing", "differs", "another DLL", "another function".
const char* StateName(ItemState state);

struct RecordState {
  OidRecord record;
  ItemState state;
  std::string detail;  // what differs
  std::string key;     // below kOidKey
};

struct BindingState {
  Binding binding;
  ItemState state;
  std::string dll;       // as the registry has it
  std::string function;  // the same
  std::string key;       // below kOidKey
};

struct PhysicalStoreState {
  ItemState state;
  std::string detail;
};

// A binding to a file of our DLL's name that this version does not register.
struct ForeignBinding {
  std::string key;
  std::string dll;
  std::string function;
};

struct RegistrationState {
  std::vector<RecordState> records;    // the 68 rows
  std::vector<BindingState> bindings;  // the 475
  PhysicalStoreState physicalStore;    // of the user who asks
  std::vector<ForeignBinding> foreign;
};

// Where the registry keeps it, below kOidKey.
std::string RecordKey(const OidRecord& record);
std::string BindingKey(const Binding& binding);
// Below the user's key.
std::string PhysicalStoreKey();

// Visits all 475 bindings in the order of registration.
std::vector<Binding> AllBindings();

// A row that a later one with the same key overwrites is present as soon as that one is.
RecordState ReadRecord(const OidRecord& record);

// `dll`: the path that a binding has to name; an empty one suits any.
BindingState ReadBinding(const Binding& binding, const std::string& dll);

PhysicalStoreState ReadPhysicalStore();

RegistrationState ReadRegistration(const std::string& dll);

// The path that most bindings name; empty without any.
std::string RegisteredDll();

// What unregistering leaves behind: the records and bindings that it does not remove.
bool StaysBehind(const OidRecord& record);
bool StaysBehind(const Binding& binding);

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_REGISTRATION_STATE_H_
