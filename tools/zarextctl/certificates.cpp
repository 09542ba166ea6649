#include "zarextctl/certificates.h"

#include <algorithm>
#include <array>

#include "frame/encoding_type.h"
#include "registration/function_bindings.h"
#include "zarextctl/der_kind.h"
#include "zarextctl/failure.h"
#include "zarextctl/registration_state.h"
#include "zarextctl/registry.h"
#include "zarextctl/text.h"
#include "zarextctl/windows_text.h"

namespace zarext::ctl {
namespace {

constexpr DWORD kLargestFile = 1U << 20U;

std::string NameText(CERT_NAME_BLOB name) {
  std::vector<wchar_t> text(1024);
  const DWORD size = CertNameToStrW(kBothEncodings, &name, CERT_X500_NAME_STR, text.data(),
                                    static_cast<DWORD>(text.size()));
  return size <= 1 ? "(no name)" : Printable(Utf8(text.data()));
}

std::string SerialText(const CRYPT_INTEGER_BLOB& serial) {
  std::vector<std::uint8_t> octets(serial.pbData, serial.pbData + serial.cbData);
  std::ranges::reverse(octets);
  return HexOctets(octets);
}

std::vector<BYTE> ReadFileOctets(const std::string& path) {
  HANDLE handle = CreateFileW(Wide(path).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                              OPEN_EXISTING, 0, nullptr);
  const DWORD code = GetLastError();
  const UniqueKernelObject file(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
  if (!file) {
    throw Failure("open \"" + path + "\"", code, "check the path of the certificate's file");
  }
  std::vector<BYTE> octets(kLargestFile);
  DWORD size = 0;
  if (!ReadFile(file.Get(), octets.data(), kLargestFile, &size, nullptr)) {
    throw Failure("read \"" + path + "\"", GetLastError(), "check the file");
  }
  octets.resize(size);
  return octets;
}

// The DER of every certificate of a PEM file.
std::vector<std::vector<BYTE>> DecodePem(const std::vector<BYTE>& octets) {
  constexpr std::string_view kBegin = "-----BEGIN CERTIFICATE-----";
  const std::string text(octets.begin(), octets.end());
  std::vector<std::vector<BYTE>> decoded;
  for (std::size_t at = text.find(kBegin); at != std::string::npos;) {
    const std::size_t next = text.find(kBegin, at + kBegin.size());
    const std::string part = text.substr(at, next == std::string::npos ? next : next - at);
    DWORD size = 0;
    std::vector<BYTE> der(part.size());
    size = static_cast<DWORD>(der.size());
    if (CryptStringToBinaryA(part.c_str(), static_cast<DWORD>(part.size()),
                             CRYPT_STRING_BASE64HEADER, der.data(), &size, nullptr, nullptr)) {
      der.resize(size);
      decoded.push_back(der);
    }
    at = next;
  }
  return decoded;
}

UniqueCertContext Decode(const std::vector<BYTE>& der) {
  return UniqueCertContext(
      CertCreateCertificateContext(kBothEncodings, der.data(), static_cast<DWORD>(der.size())));
}

[[noreturn]] void RefuseFile(const std::string& path, const std::string& why, DWORD code) {
  throw Failure("take \"" + path + "\" for a certificate: it " + why, code,
                "give a file with an X.509 certificate, DER or PEM (.cer, .crt, .pem)");
}

std::vector<BYTE> ThumbprintOctets(const std::string& text) {
  std::string digits;
  std::ranges::copy_if(text, std::back_inserter(digits),
                       [](char letter) { return letter != ' ' && letter != ':'; });
  std::vector<BYTE> octets;
  for (std::size_t i = 0; i + 2 <= digits.size(); i += 2) {
    const std::string pair = digits.substr(i, 2);
    char* end = nullptr;
    octets.push_back(static_cast<BYTE>(std::strtoul(pair.c_str(), &end, 16)));
    if (*end != '\0') {
      octets.clear();
      break;
    }
  }
  constexpr std::size_t kSha1Size = 20;
  if (octets.size() != kSha1Size || digits.size() != 2 * kSha1Size) {
    throw Failure("read the thumbprint \"" + text + "\"", 0,
                  "give 40 hexadecimal digits; zarextctl store show prints them");
  }
  return octets;
}

// Open until the process ends, with the module loaded: Wine's framework frees the module after the
// open and calls it for the close all the same, twice.
UniqueStore OpenProviderStore() {
  static const UniqueModule module([] {
    const RegistryKey binding(HKEY_LOCAL_MACHINE,
                              std::string(kOidKey) + "\\" + BindingKey(bindings::kStore.At(0)));
    return LoadLibraryW(Wide(binding.Text("Dll").value_or("")).c_str());
  }());
  auto* const kept = CertOpenStore(kStoreProvider, 0, 0, 0, nullptr);
  return UniqueStore(kept == nullptr ? nullptr : CertDuplicateStore(kept));
}

}  // namespace

CertificateText Describe(PCCERT_CONTEXT certificate) {
  const CERT_INFO& info = *certificate->pCertInfo;
  CertificateText text;
  text.subject = NameText(info.Subject);
  text.issuer = NameText(info.Issuer);
  text.serial = SerialText(info.SerialNumber);
  text.notBefore = LocalTime(info.NotBefore);
  text.notAfter = LocalTime(info.NotAfter);
  text.keyOid = info.SubjectPublicKeyInfo.Algorithm.pszObjId;
  text.signatureOid = info.SignatureAlgorithm.pszObjId;
  std::array<BYTE, 20> hash = {};
  auto size = static_cast<DWORD>(hash.size());
  if (CertGetCertificateContextProperty(certificate, CERT_SHA1_HASH_PROP_ID, hash.data(), &size)) {
    text.thumbprint = HexOctets(hash);
  }
  return text;
}

std::optional<KeyTie> ReadTie(PCCERT_CONTEXT certificate) {
  DWORD size = 0;
  if (!CertGetCertificateContextProperty(certificate, CERT_KEY_PROV_INFO_PROP_ID, nullptr, &size) ||
      size < sizeof(CRYPT_KEY_PROV_INFO)) {
    return std::nullopt;
  }
  std::vector<BYTE> buffer(size);
  if (!CertGetCertificateContextProperty(certificate, CERT_KEY_PROV_INFO_PROP_ID, buffer.data(),
                                         &size)) {
    return std::nullopt;
  }
  const auto& info = *reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(buffer.data());
  const auto text = [](const wchar_t* wide) { return std::wstring(wide == nullptr ? L"" : wide); };
  return KeyTie{text(info.pwszContainerName), text(info.pwszProvName), info.dwProvType,
                info.dwKeySpec};
}

const char* KeySpecName(DWORD keySpec) {
  return keySpec == AT_KEYEXCHANGE ? "AT_KEYEXCHANGE"
         : keySpec == AT_SIGNATURE ? "AT_SIGNATURE"
                                   : "no key specification";
}

std::vector<BYTE> PublicBlobOf(HCRYPTKEY key) {
  DWORD size = 0;
  if (!CryptExportKey(key, 0, PUBLICKEYBLOB, 0, nullptr, &size)) {
    return {};
  }
  std::vector<BYTE> blob(size);
  if (!CryptExportKey(key, 0, PUBLICKEYBLOB, 0, blob.data(), &size)) {
    return {};
  }
  blob.resize(size);
  return blob;
}

KeyProbe ProbeKey(const KeyTie& tie) {
  KeyProbe probe;
  const ULONGLONG start = GetTickCount64();
  UniqueCryptProvider provider;
  if (!CryptAcquireContextW(provider.Put(), tie.container.c_str(),
                            tie.provider.empty() ? nullptr : tie.provider.c_str(), tie.type,
                            CRYPT_SILENT)) {
    probe.openCode = GetLastError();
    probe.keyCode = probe.openCode;
  } else {
    UniqueCryptKey key;
    if (CryptGetUserKey(provider.Get(), tie.keySpec, key.Put())) {
      probe.publicBlob = PublicBlobOf(key.Get());
    } else {
      probe.keyCode = GetLastError();
    }
  }
  probe.milliseconds = static_cast<DWORD>(GetTickCount64() - start);
  return probe;
}

std::vector<UniqueCertContext> ReadCertificateFile(const std::string& path) {
  const std::vector<BYTE> octets = ReadFileOctets(path);
  const std::string pem = PemName(octets);
  std::vector<std::vector<BYTE>> encoded =
      pem.empty() ? std::vector<std::vector<BYTE>>(1, octets) : DecodePem(octets);
  if (encoded.empty()) {
    RefuseFile(path, "is a PEM file of \"" + pem + "\"", 0);
  }
  std::vector<UniqueCertContext> certificates;
  for (const std::vector<BYTE>& der : encoded) {
    const std::string why = WhyNoCertificate(der);
    if (!why.empty()) {
      RefuseFile(path, why, 0);
    }
    UniqueCertContext certificate = Decode(der);
    if (!certificate) {
      RefuseFile(path, "is damaged: the framework cannot decode it", GetLastError());
    }
    certificates.push_back(std::move(certificate));
  }
  return certificates;
}

UniqueStore OpenNamedStore(const std::string& name) {
  UniqueStore store;
  if (SameIgnoringCase(name, kProviderStoreName)) {
    store = OpenProviderStore();
  } else {
    store.Reset(CertOpenStore(
        CERT_STORE_PROV_SYSTEM_W, 0, 0,
        CERT_SYSTEM_STORE_CURRENT_USER | CERT_STORE_READONLY_FLAG | CERT_STORE_OPEN_EXISTING_FLAG,
        Wide(name).c_str()));
  }
  if (!store) {
    throw Failure("open the store \"" + name + "\"", GetLastError(),
                  "run zarextctl status; stores are MY, ROOT, CA and so on, or provider");
  }
  return store;
}

std::vector<UniqueCertContext> Select(HCERTSTORE store, const Selection& selection) {
  std::vector<BYTE> hash =
      selection.thumbprint.empty() ? std::vector<BYTE>() : ThumbprintOctets(selection.thumbprint);
  std::vector<UniqueCertContext> found;
  PCCERT_CONTEXT context = nullptr;
  while ((context = CertEnumCertificatesInStore(store, context)) != nullptr) {
    const CertificateText text = Describe(context);
    if ((hash.empty() || text.thumbprint == HexOctets(hash)) &&
        ContainsIgnoringCase(text.subject, selection.subject)) {
      found.emplace_back(CertDuplicateCertificateContext(context));
    }
  }
  return found;
}

}  // namespace zarext::ctl
