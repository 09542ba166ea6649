// The functions of the module that no export calls. They are part of it all the same: frame
// routines for diagnostics, and functions of the framework's interfaces that no table and no
// ordinal leads to. A linker drops what nobody refers to, so they stand here, in a section of their
// own in which a debugger, and the test of the DLL, finds them. The order is the test's.
#include <windows.h>
#include <wincrypt.h>

#include "frame/file_routines.h"
#include "frame/trace.h"
#include "store/store_callbacks.h"

extern "C" BOOL WINAPI ZarCryptDecodeObjectEx(DWORD, LPCSTR, const BYTE*, DWORD, DWORD,
                                              PCRYPT_DECODE_PARA, void*, DWORD*);

namespace zarext {
namespace {

template <typename Function>
void* AddressOf(Function* function) noexcept {
  return reinterpret_cast<void*>(function);
}

[[gnu::section(".kept"), gnu::used]] void* keptFunctions[] = {
    AddressOf(ZarCryptDecodeObjectEx),
    AddressOf(InternalFileLog),
    AddressOf(QueryFileSize),
    AddressOf(ReadWholeFile),
    AddressOf(WriteWholeFile),
    AddressOf(CertStoreProvSetCertPropertyCallback),
    AddressOf(CertStoreProvWriteCRLCallback),
};

}  // namespace
}  // namespace zarext
