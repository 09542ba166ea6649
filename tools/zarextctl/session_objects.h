// The objects that the module's processes share, as a visitor sees them: nothing here creates or
// changes one.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_SESSION_OBJECTS_H_
#define ZAREXT_TOOLS_ZAREXTCTL_SESSION_OBJECTS_H_

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "zarextctl/shared_listing.h"

namespace zarext::ctl {

struct MutexState {
  bool exists = false;
  bool isHeld = false;  // it could not be had within the wait
  DWORD watched = 0;    // milliseconds for which it was seen held
  DWORD owner = 0;      // process; 0 if the system does not tell
  std::string ownerName;
};

struct ListingState {
  bool exists = false;  // a process of this session has the module loaded
  bool isRead = false;
  DWORD code = 0;  // why it could not be read
  std::uint64_t size = 0;
  SharedListing listing;
  std::int64_t age = 0;  // seconds
};

struct ProcessName {
  DWORD id;
  std::string name;
};

// Waits at most `patience` milliseconds for it, and gives it back at once.
MutexState ReadMutex(DWORD patience);

// Takes the mutex for the copy as the module does, but waits `patience` milliseconds only, and
// reads all the same when it does not get it.
ListingState ReadListing(DWORD patience);

// The processes of the system that have the module loaded, as far as they may be looked into.
std::vector<ProcessName> ProcessesWithModule();

// "notepad.exe", or "" for a process that cannot be looked into.
std::string NameOfProcess(DWORD id);

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_SESSION_OBJECTS_H_
