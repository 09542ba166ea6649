// Owners of containers and their certificates, for the tests of zarextctl explain and store.
#ifndef ZAREXT_TESTS_E2E_CTL_PEOPLE_H_
#define ZAREXT_TESTS_E2E_CTL_PEOPLE_H_

#include <windows.h>

#include <wincrypt.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "e2e/ctl_fixture.h"
#include "support/issued_certificate.h"

namespace zarext::test {

inline constexpr char kMakersOid[] = "1.3.6.1.4.1.32473.1.5.8";
inline constexpr char kMakersSignature[] = "1.3.6.1.4.1.32473.1.2.2";
inline constexpr char kNationalOid[] = "1.2.398.3.10.1.1.2.1.1";

// A container with a signature key. Its name is in the ANSI code page.
struct Owner25 {
  explicit Owner25(const std::string& container, ALG_ID algId = 0xAA3A)
      : name(container),
        context(NewContainer(container.c_str())),
        key(Generate(context, algId, CRYPT_EXPORTABLE)),
        subject(algId == 0xAA3A ? SubjectKey::Makers(kMakersOid, key)
                                : SubjectKey::National(kNationalOid, key)) {}

  [[nodiscard]] Signer AsSigner() const {
    return {context.Get(), AT_SIGNATURE, kMakersSignature, name};
  }
  [[nodiscard]] Octets Issue(const Owner25& owner, std::uint8_t serial, WORD until = 2049,
                             const CertificateExtensions& extensions = {}) const {
    return IssueCertificate(AsSigner(), owner.name, owner.subject, serial, until, extensions);
  }
  // Puts the certificate into the container.
  void Keep(const Octets& certificate) const {
    Must(CryptSetKeyParam(key.Get(), KP_CERTIFICATE, certificate.data(), 0), "CryptSetKeyParam");
  }

  std::string name;
  Context context;
  Key key;
  SubjectKey subject;
};

// What a certificate in a store says of its key.
struct Tie {
  const wchar_t* container;
  DWORD keySpec = AT_SIGNATURE;
  const wchar_t* provider = L"Zarvel CSP";
};

// A certificate in one of the user's stores while the object lives, tied to a container or not.
class InStore {
 public:
  InStore(const wchar_t* store, const Octets& certificate, const Tie& tie = {nullptr})
      : store_(
            CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, store)) {
    const UniqueCertContext context = CertificateContext(certificate);
    if (tie.container != nullptr) {
      CRYPT_KEY_PROV_INFO info = {};
      info.pwszContainerName = const_cast<wchar_t*>(tie.container);
      info.pwszProvName = const_cast<wchar_t*>(tie.provider);
      info.dwProvType = 25;
      info.dwKeySpec = tie.keySpec;
      Must(CertSetCertificateContextProperty(context.Get(), CERT_KEY_PROV_INFO_PROP_ID, 0, &info),
           "CertSetCertificateContextProperty");
    }
    Must(CertAddCertificateContextToStore(store_.Get(), context.Get(), CERT_STORE_ADD_ALWAYS,
                                          added_.Put()),
         "CertAddCertificateContextToStore");
    CertControlStore(store_.Get(), 0, CERT_STORE_CTRL_COMMIT, nullptr);
  }
  ~InStore() {
    CertDeleteCertificateFromStore(added_.Detach());
    CertControlStore(store_.Get(), 0, CERT_STORE_CTRL_COMMIT, nullptr);
  }
  InStore(const InStore&) = delete;
  InStore& operator=(const InStore&) = delete;

 private:
  UniqueCertStore<0> store_;
  UniqueCertContext added_;
};

inline std::string WriteOctets(const std::filesystem::path& path, const Octets& octets) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(octets.data()),
             static_cast<std::streamsize>(octets.size()));
  return path.string();
}

// Times, thumbprints, handles and keys differ between runs.
inline const Replacements kOfThisRun = {
    {"[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8}", "<time>"},
    {"[0-9A-F]{40}", "<thumbprint>"},
    {"serial      [0-9A-F]{20,34}", "serial      <serial number>"},
    {"[0-9]+ ms", "<n> ms"},
    {"\"milliseconds\": [0-9]+", "\"milliseconds\": <n>"},
    {"hCryptProv = [0-9a-f]+", "hCryptProv = <handle>"},
    {"(PublicKey\\[[0-9]+\\] = )[0-9a-f ]*\\.\\.\\.[0-9a-f ]*", "$1<octets>"},
    {"(Data\\[[0-9]+\\]=)[0-9a-f ]*", "$1<octets>"},
    {"devhome[0-9]+-[0-9]+", "<home>"},
    {"C:\\\\[^\"\n]*\\\\(<home>)", "<temp>\\$1"}};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_E2E_CTL_PEOPLE_H_
