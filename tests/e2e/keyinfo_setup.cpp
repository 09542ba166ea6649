#include "e2e/keyinfo_setup.h"

#include <stdexcept>

#include "support/child_process.h"
#include "support/framework_patches/framework_patches.h"
#include "support/prepared_process.h"

namespace zarext::test {
namespace {

void Bind(const char* function, const char* oid, const char* exportName) {
  const std::string path = ProgramFolder() + "ZAREXT.dll";
  const std::wstring wide(path.begin(), path.end());
  Must(CryptRegisterOIDFunction(X509_ASN_ENCODING, function, oid, wide.c_str(), exportName),
       "CryptRegisterOIDFunction");
}

// The module's own registration, and an identifier for each function that the framework would
// otherwise not choose.
void Prepare() {
  RegisterInThisProcess(test::Export<HRESULT WINAPI()>("DllRegisterServer"));
  Bind("CryptDllExportPublicKeyInfoEx", kExportOnlyOid, "ZarExportPublicKeyInfoEx");
  Bind("CryptDllImportPublicKeyInfoEx", kImportOnlyOid, "ZarImportPublicKeyInfoEx");
  Bind("CryptDllConvertPublicKeyInfo", kConvertOnlyOid, "ZarConvertPublicKeyInfo");
}
const PreparedProcess prepared(&Prepare);

}  // namespace
}  // namespace zarext::test
