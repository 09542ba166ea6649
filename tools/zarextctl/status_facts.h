// What status looks at, as plain facts.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_STATUS_FACTS_H_
#define ZAREXT_TOOLS_ZAREXTCTL_STATUS_FACTS_H_

#include <optional>
#include <string>
#include <vector>

#include "zarextctl/file_facts.h"
#include "zarextctl/registration_state.h"
#include "zarextctl/session_objects.h"

namespace zarext::ctl {

struct ProviderFacts {
  std::string name;
  std::uint32_t expectedType = 0;
  bool isRegistered = false;
  std::string imagePath;      // as registered, or what is wrong with it
  bool isPathUsable = false;  // text with an end, short enough for the module
  bool isPathFull = false;    // names a folder
  std::optional<std::uint32_t> type;
  ModuleFile file;
  std::vector<std::string> writers;  // broad groups that may write the file or its folder
};

struct LogFacts {
  bool exists = false;
  bool isFile = false;
  bool isReadOnly = false;  // by its attribute
  DWORD writeCode = 0;      // why this user cannot write it; 0 if it can
  std::vector<std::string> replacers;
};

struct StatusFacts {
  ModuleFile module;  // the one that is registered, else the one beside the tool
  bool isAnyRegistered = false;
  RegistrationState registration;
  std::vector<ProviderFacts> providers;
  std::string defaultOfType;  // the provider of type 25 when none is named; empty: none
  LogFacts log;
  ListingState listing;
  MutexState mutex;
  std::vector<ProcessName> processes;  // with the module loaded
};

// `dll`: a path to compare with, or empty for the one that most bindings name.
StatusFacts GatherStatus(const std::string& dll);

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_STATUS_FACTS_H_
