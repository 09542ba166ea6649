#include "support/import_patch.h"

#include <cstring>
#include <stdexcept>
#include <string>

namespace zarext::test {
namespace {

void WriteSlot(ULONG_PTR* slot, ULONG_PTR value) {
  DWORD old = 0;
  VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &old);
  *slot = value;
  VirtualProtect(slot, sizeof *slot, old, &old);
}

ULONG_PTR* FindSlot(HMODULE module, const char* library, const char* function) {
  const auto base = reinterpret_cast<BYTE*>(module);
  const auto dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& imports =
      nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  for (auto entry = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports.VirtualAddress);
       entry->Name != 0; ++entry) {
    if (_stricmp(reinterpret_cast<const char*>(base + entry->Name), library) != 0) {
      continue;
    }
    auto name = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + entry->OriginalFirstThunk);
    auto slot = reinterpret_cast<IMAGE_THUNK_DATA*>(base + entry->FirstThunk);
    for (; name->u1.AddressOfData != 0; ++name, ++slot) {
      const auto byName = reinterpret_cast<const char*>(base + name->u1.AddressOfData + 2);
      if (std::strcmp(byName, function) == 0) {
        return reinterpret_cast<ULONG_PTR*>(&slot->u1.Function);
      }
    }
  }
  throw std::runtime_error(std::string("not imported: ") + library + " " + function);
}

}  // namespace

ImportPatch::ImportPatch(HMODULE module, const char* library, const char* function,
                         void* replacement)
    : slot_(FindSlot(module, library, function)), original_(*slot_) {
  WriteSlot(slot_, reinterpret_cast<ULONG_PTR>(replacement));
}

ImportPatch::~ImportPatch() { WriteSlot(slot_, original_); }

}  // namespace zarext::test
