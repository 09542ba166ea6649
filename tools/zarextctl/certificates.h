// Certificates of files and stores, and the keys that they are tied to.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_CERTIFICATES_H_
#define ZAREXT_TOOLS_ZAREXTCTL_CERTIFICATES_H_

#include <windows.h>

#include <wincrypt.h>

#include <optional>
#include <string>
#include <vector>

#include "frame/handles.h"

namespace zarext::ctl {

inline void ReleaseProvider(HCRYPTPROV provider) { CryptReleaseContext(provider, 0); }
using UniqueCryptProvider = UniqueHandle<HCRYPTPROV, ReleaseProvider>;
using UniqueStore = UniqueCertStore<0>;

struct CertificateText {
  std::string subject;
  std::string issuer;
  std::string serial;     // hexadecimal, as it stands in the certificate
  std::string notBefore;  // local time
  std::string notAfter;
  std::string keyOid;
  std::string signatureOid;
  std::string thumbprint;  // SHA-1
};
CertificateText Describe(PCCERT_CONTEXT certificate);

// Where the private key is, by the certificate's key-provider property.
struct KeyTie {
  std::wstring container;
  std::wstring provider;  // empty: none is named
  DWORD type = 0;
  DWORD keySpec = 0;
};
std::optional<KeyTie> ReadTie(PCCERT_CONTEXT certificate);
const char* KeySpecName(DWORD keySpec);

// What happens when the container is opened without a dialogue.
struct KeyProbe {
  DWORD openCode = 0;            // 0: it opens
  DWORD keyCode = 0;             // 0: the key is there
  DWORD milliseconds = 0;        // for both
  std::vector<BYTE> publicBlob;  // of the container's key; empty if it cannot be exported
};
KeyProbe ProbeKey(const KeyTie& tie);

// A PUBLICKEYBLOB of a key.
std::vector<BYTE> PublicBlobOf(HCRYPTKEY key);

// The certificates of a file, DER or PEM; the first is the one that is meant. Throws Failure.
std::vector<UniqueCertContext> ReadCertificateFile(const std::string& path);

// A store by name: "provider" for the provider's own, otherwise a system store of the user. Throws
// Failure.
UniqueStore OpenNamedStore(const std::string& name);
inline constexpr char kProviderStoreName[] = "provider";

struct Selection {
  std::string subject;     // part of the subject, in any case
  std::string thumbprint;  // hexadecimal
};
// The certificates of a store that are meant, in its order. Throws Failure for a thumbprint that is
// none.
std::vector<UniqueCertContext> Select(HCERTSTORE store, const Selection& selection);

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_CERTIFICATES_H_
