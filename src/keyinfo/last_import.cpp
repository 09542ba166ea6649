#include "keyinfo/last_import.h"

#include <cstring>

namespace zarext {

unsigned char LastProfile[kLastProfileSize];
char LastContainerUrl[kLastContainerUrlSize];

std::string_view LastContainerUrlText() {
  return {LastContainerUrl, strnlen(LastContainerUrl, kLastContainerUrlSize)};
}

}  // namespace zarext
