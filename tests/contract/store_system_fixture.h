// The exports that maintain the system stores, their log, and what the registry then holds.
#ifndef ZAREXT_TESTS_CONTRACT_STORE_SYSTEM_FIXTURE_H_
#define ZAREXT_TESTS_CONTRACT_STORE_SYSTEM_FIXTURE_H_

#include <stdio.h>

#include <string>
#include <vector>

#include "contract/store_fixture.h"

namespace zarext::test {

inline constexpr char kLog[] = "c:\\zarext.log";

inline const wchar_t* const kNames[] = {L"ROOT",         L"TRUST", L"CA",
                                        L"Other People", L"MY",    L"Personal"};

inline BOOL SetOther(int machine, DWORD store, const Octets& certificate) {
  return Export<BOOL WINAPI(int, DWORD, const BYTE*, DWORD)>("SetOtherCert")(
      machine, store, certificate.data(), static_cast<DWORD>(certificate.size()));
}
inline BOOL DelOther(int machine, DWORD store, const Octets& certificate) {
  return Export<BOOL WINAPI(int, DWORD, const BYTE*, DWORD)>("DelOtherCert")(
      machine, store, certificate.data(), static_cast<DWORD>(certificate.size()));
}
inline BOOL SetSelf(int machine, const char* container, DWORD keySpec, const Octets& certificate) {
  return Export<BOOL WINAPI(int, const char*, DWORD, const BYTE*, DWORD)>("SetSelfCert")(
      machine, container, keySpec, certificate.data(), static_cast<DWORD>(certificate.size()));
}

inline std::string Thumbprint(const Octets& certificate) {
  BYTE hash[20] = {};
  DWORD size = sizeof hash;
  CertGetCertificateContextProperty(MakeContext(certificate).Get(), CERT_SHA1_HASH_PROP_ID, hash,
                                    &size);
  std::string text;
  for (const BYTE octet : hash) {
    char digits[3] = {};
    snprintf(digits, sizeof digits, "%02X", octet);
    text += digits;
  }
  return text;
}

// Whether the registry of one location has the certificate in the store of that name.
inline bool IsStored(int machine, DWORD store, const Octets& certificate) {
  const std::wstring name = kNames[store];
  const std::string path = "Software\\Microsoft\\SystemCertificates\\" +
                           std::string(name.begin(), name.end()) + "\\Certificates\\" +
                           Thumbprint(certificate);
  UniqueRegistryKey key;
  return RegOpenKeyExA(machine != 0 ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER, path.c_str(), 0,
                       KEY_READ, key.Put()) == ERROR_SUCCESS;
}

inline std::vector<StoredCertificate> MyContent(DWORD location = CERT_SYSTEM_STORE_CURRENT_USER) {
  const UniqueCertStore<0> store(CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, location, L"MY"));
  return Content(store.Get());
}

inline std::vector<StoredCertificate> Found(const Octets& certificate) {
  std::vector<StoredCertificate> found;
  for (const StoredCertificate& candidate : MyContent()) {
    if (candidate.encoded == certificate) {
      found.push_back(candidate);
    }
  }
  return found;
}

// The messages of the log's lines, each checked for its beginning.
inline std::vector<std::string> LogMessages() {
  std::vector<std::string> messages;
  const UniqueFile file(fopen(kLog, "rb"));
  if (!file) {
    return {"no log"};
  }
  std::string content;
  char buffer[4096];
  for (std::size_t count = 0; (count = fread(buffer, 1, sizeof buffer, file.Get())) != 0;) {
    content.append(buffer, count);
  }
  for (std::size_t start = 0; start < content.size();) {
    const std::size_t end = content.find("\r\n", start);
    if (end == std::string::npos) {
      messages.push_back("unfinished: " + content.substr(start));
      break;
    }
    const std::string line = content.substr(start, end - start);
    start = end + 2;
    int thread = 0;
    int length = 0;
    // "thid=268 : time=Sat Nov 21 10:55:22.438 : "
    if (sscanf(line.c_str(), "thid=%d : time=%n", &thread, &length) != 1 ||
        line.compare(static_cast<std::size_t>(length) + 19, 1, ".") != 0 ||
        line.compare(static_cast<std::size_t>(length) + 23, 3, " : ") != 0) {
      messages.push_back("bad: " + line);
    } else {
      messages.push_back(line.substr(static_cast<std::size_t>(length) + 26));
    }
  }
  return messages;
}

class SystemStores : public testing::Test {
 public:
  SystemStores() {
    lastErrorsSet = 0;
    DeleteFileA(kLog);
    const UniqueFile log(fopen(kLog, "wb"));
  }
  ~SystemStores() override {
    // GoogleTest writes its failures there too.
    EXPECT_TRUE(HasFailure() || trace.Messages().empty());
    // Whatever these exports do, they set no last error.
    EXPECT_EQ(0, lastErrorsSet);
    DeleteFileA(kLog);
  }
  StoreFixes fixes{Module()};
  TraceCapture trace;

 private:
  static inline int lastErrorsSet;
  ImportPatch setLastError{Module(), "KERNEL32.dll", "SetLastError", +[](DWORD code) WINAPI {
                             ++lastErrorsSet;
                             SetLastError(code);
                           }};
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_STORE_SYSTEM_FIXTURE_H_
