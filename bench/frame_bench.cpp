// A trace line against a bare OutputDebugStringA of the same text, and loading and unloading the
// module against an empty one.
#include <windows.h>

#include "bench/support/ratio.h"
#include "frame/trace.h"

int main() {
  using zarext::bench::Compare;
  zarext::bench::PrintHead();
  constexpr char kText[] =
      "id=268 : tm=Sat Nov 21 10:55:22.438 : EXT : ZarImportPublicKeyInfoEx : hCryptProv = "
      "1234abcd, "
      "aiKeyAlg = aa3a, dwFlags = 0.";
  Compare(
      "one trace line : OutputDebugStringA of the same text", 2000, 20, 1.2,
      [] {
        zarext::Trace(
            "EXT : ZarImportPublicKeyInfoEx : hCryptProv = %x, aiKeyAlg = %x, dwFlags = %x.",
            0x1234ABCDu, 0xAA3Au, 0u);
      },
      [&] { OutputDebugStringA(kText); });
  // Held, so that only the two modules themselves come and go.
  LoadLibraryA("crypt32.dll");
  LoadLibraryA("advapi32.dll");
  Compare(
      "load and unload : the same of an empty module", 300, 1, 1.5,
      [] { FreeLibrary(LoadLibraryA("ZAREXT.dll")); },
      [] { FreeLibrary(LoadLibraryA("empty_module.dll")); });
  return 0;
}
