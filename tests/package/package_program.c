/* An installer as somebody else writes it: the package's header and import library, and C. The
 * argument is a file with an RSA certificate. */
#include "zarext.h"

#include <stdio.h>
#include <string.h>
#include <wchar.h>
#include <windows.h>

#include <wincrypt.h>

static int failures = 0;

static void Expect(int holds, const char* what) {
  if (!holds) {
    printf("FAILED: %s\n", what);
    ++failures;
  }
}

/* The module comes from the folder of this program. */
static void ExpectOwnFolder(void) {
  char program[MAX_PATH] = "";
  char module[MAX_PATH] = "";
  GetModuleFileNameA(NULL, program, MAX_PATH);
  GetModuleFileNameA(GetModuleHandleA("ZAREXT.dll"), module, MAX_PATH);
  strcpy(strrchr(program, '\\') + 1, "ZAREXT.dll");
  Expect(_stricmp(program, module) == 0, "the module lies beside the program");
}

static PCCERT_CONTEXT Find(const wchar_t* store, const BYTE* certificate, DWORD size) {
  const DWORD type = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
  const HCERTSTORE opened =
      CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, store);
  const PCCERT_CONTEXT given = CertCreateCertificateContext(type, certificate, size);
  const PCCERT_CONTEXT found =
      CertFindCertificateInStore(opened, type, 0, CERT_FIND_EXISTING, given, NULL);
  CertFreeCertificateContext(given);
  CertCloseStore(opened, 0);
  return found;
}

static void ExpectKeyProperty(PCCERT_CONTEXT certificate) {
  union {
    CRYPT_KEY_PROV_INFO info;
    BYTE room[1024];
  } property;
  DWORD size = sizeof property;
  memset(&property, 0, sizeof property);
  Expect(certificate != NULL && CertGetCertificateContextProperty(
                                    certificate, CERT_KEY_PROV_INFO_PROP_ID, &property, &size),
         "the certificate in \"MY\" names its key");
  if (failures == 0) {
    Expect(wcscmp(property.info.pwszContainerName, L"some container") == 0, "its container");
    Expect(wcscmp(property.info.pwszProvName, L"Zarvel CSP RSA") == 0, "its provider");
    Expect(property.info.dwProvType == 1, "its provider's type");
    Expect(property.info.dwKeySpec == AT_KEYEXCHANGE, "its key specification");
  }
}

int main(int argc, char** argv) {
  static BYTE certificate[4096];
  FILE* const file = argc == 2 ? fopen(argv[1], "rb") : NULL;
  DWORD size = 0;
  if (file == NULL) {
    return 2;
  }
  size = (DWORD)fread(certificate, 1, sizeof certificate, file);
  fclose(file);

  ExpectOwnFolder();
  Expect(!SetOtherCert(FALSE, ZAREXT_STORE_PERSONAL + 1, certificate, size), "no store 6");
  Expect(!SetOtherCert(FALSE, ZAREXT_STORE_TRUST, certificate, size - 1), "no cut certificate");
  Expect(DelOtherCert(FALSE, ZAREXT_STORE_TRUST, certificate, size), "nothing to delete");
  Expect(SetOtherCert(FALSE, ZAREXT_STORE_TRUST, certificate, size), "SetOtherCert");
  Expect(Find(L"TRUST", certificate, size) != NULL, "the certificate is in \"TRUST\"");
  Expect(Find(L"MY", certificate, size) == NULL, "it is not in \"MY\"");
  Expect(SetSelfCert(FALSE, "some container", AT_KEYEXCHANGE, certificate, size), "SetSelfCert");
  ExpectKeyProperty(Find(L"MY", certificate, size));
  Expect(DllUnregisterServer() == S_OK, "unregistering what was never registered");
  puts(failures == 0 ? "the package works" : "the package does not work");
  return failures == 0 ? 0 : 1;
}
