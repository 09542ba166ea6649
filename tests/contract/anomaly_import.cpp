#include "contract/anomaly_import.h"

#include <cstring>

namespace zarext::test {

std::map<std::string, const ULONG_PTR*> ImportsOf(HMODULE module, const char* library) {
  std::map<std::string, const ULONG_PTR*> names;
  const auto base = reinterpret_cast<const BYTE*>(module);
  const auto dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& directory =
      nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  auto entry = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
  for (; entry->Name != 0; ++entry) {
    if (_stricmp(reinterpret_cast<const char*>(base + entry->Name), library) != 0) {
      continue;
    }
    auto name = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + entry->OriginalFirstThunk);
    auto slot = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + entry->FirstThunk);
    for (; name->u1.AddressOfData != 0; ++name, ++slot) {
      names[reinterpret_cast<const char*>(base + name->u1.AddressOfData + 2)] =
          reinterpret_cast<const ULONG_PTR*>(&slot->u1.Function);
    }
  }
  return names;
}

}  // namespace zarext::test
