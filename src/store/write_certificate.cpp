#include <algorithm>
#include <cstring>
#include <string_view>

#include "frame/export_frame.h"
#include "keyinfo/last_import.h"
#include "store/key_address.h"
#include "store/provider_walk.h"
#include "store/store_callbacks.h"

namespace zarext {
namespace {

constexpr DWORD kContainerNameSize = 1024;

using WriteUrl = FixedText<2048>;

// What one key made of the certificate, and where the search goes on.
enum class Written {
  kNo,             // with the next key
  kHeldAlready,    // with the next key
  kContainerDone,  // with the next container
  kAllDone,
};

bool SetKeyCertificate(HCRYPTPROV container, HCRYPTKEY key, DWORD parameter,
                       const CERT_CONTEXT& certificate) {
  return Provider().CPSetKeyParam(container, key, parameter, certificate.pbCertEncoded, 0) != FALSE;
}

// The self-signed certificate of the same holder. The octets of issuer and subject are compared
// over the length of the new certificate's issuer: a compatibility fact for containers that were
// filled by that rule. A name that is shorter is another one.
bool IsSameRoot(const CERT_INFO& held, const CERT_INFO& added) noexcept {
  const DWORD length = added.Issuer.cbData;
  return held.Issuer.cbData == held.Subject.cbData && length <= held.Issuer.cbData &&
         std::equal(held.Issuer.pbData, held.Issuer.pbData + length, held.Subject.pbData) &&
         IsSameBlob(held.Subject, added.Subject);
}

bool ChainHolds(const KeyBlob& chain, const CERT_INFO& added) {
  const UniqueMessageStore message = OpenChain(chain);
  if (!message) {
    return false;
  }
  bool holds = false;
  ForEachCertificate(message.Get(), [&](PCCERT_CONTEXT context) {
    const CERT_INFO& held = *context->pCertInfo;
    Trace(
        "EXT : CertStoreProvWriteCertCallback : CertEnumCertificatesInStore : size = %i, oid = "
        "%s, [s/n= %x %x...]",
        Int(chain.Size()), held.SignatureAlgorithm.pszObjId, SerialOctet(held, 0),
        SerialOctet(held, 1));
    holds = holds || IsSameRoot(held, added);
  });
  return holds;
}

Written AddToChain(HCRYPTPROV container, HCRYPTKEY key, const CERT_CONTEXT& certificate) {
  KeyBlob chain;
  if (chain.Read(container, key, KP_CERT_CHAIN) == KeyBlob::Outcome::kUnusable) {
    return Written::kNo;
  }
  if (ChainHolds(chain, *certificate.pCertInfo)) {
    return Written::kHeldAlready;
  }
  return SetKeyCertificate(container, key, KP_ADD_CHAIN_CERT, certificate) ? Written::kContainerDone
                                                                           : Written::kNo;
}

Written GiveToKey(HCRYPTPROV container, HCRYPTKEY key, const CERT_CONTEXT& certificate) {
  KeyBlob held;
  if (held.Read(container, key, KP_CERTIFICATE) == KeyBlob::Outcome::kUnusable) {
    return Written::kNo;
  }
  if (held.Size() != 0) {
    const bool isSame = held.Size() == certificate.cbCertEncoded &&
                        std::memcmp(held.Data(), certificate.pbCertEncoded, held.Size()) == 0;
    return isSame ? Written::kAllDone : Written::kNo;
  }
  return SetKeyCertificate(container, key, KP_CERTIFICATE, certificate) ? Written::kAllDone
                                                                        : Written::kNo;
}

// The address under which the container can be written; empty for none. A container on a token is
// written only if the last private-key import put its key there.
WriteUrl WritableUrl(const char* name, const WriteUrl& url, const CNT_PROFILE& profile) {
  if (IsProfileWritable(profile)) {
    return url;
  }
  WriteUrl imported;
  imported.Append(LastContainerUrlText());
  const bool isThisOne = imported.View().find(name) != std::string_view::npos &&
                         imported.View().find(profile.tokenKind) != std::string_view::npos;
  return isThisOne ? imported : WriteUrl();
}

// The search for a place for one certificate.
class CertificateWriter {
 public:
  explicit CertificateWriter(const CERT_CONTEXT& certificate) noexcept
      : certificate_(certificate), isSelfSigned_(IsSelfSigned(*certificate.pCertInfo)) {}

  // TRUE if a key has it now.
  BOOL Run() {
    UniqueProviderContext provider;
    if (!AcquireVerifyContext(&provider)) {
      return FALSE;
    }
    ForEachContainer<kContainerNameSize>(
        *provider.Get(), [&](const char* name) { return VisitContainer(*provider.Get(), name); });
    return result_;
  }

 private:
  Walk VisitContainer(HCRYPTPROV provider, const char* name) {
    const WriteUrl url = ContainerUrl<2048>(name);
    Trace("EXT : CertStoreProvWriteCertCallback [URL = %s]", url.Text());
    CNT_PROFILE profile;
    if (!QueryProfile(provider, url.View(), &profile)) {
      return Walk::kGoOn;
    }
    WriteUrl writable = WritableUrl(name, url, profile);
    UniqueProviderContext container;
    if (writable.View().empty() || !OpenContainer(writable.Text(), &container)) {
      return Walk::kGoOn;
    }
    Walk walk = Walk::kGoOn;
    ForEachKey(*container.Get(), [&](const CNT_KEY_INFO& record, DWORD /*returnedSize*/) {
      if (record.hKey == 0) {
        return Walk::kStop;
      }
      const Written written = VisitKey(*container.Get(), record.hKey);
      if (written != Written::kNo) {
        result_ = TRUE;
      }
      walk = written == Written::kAllDone ? Walk::kStop : Walk::kGoOn;
      return written == Written::kAllDone || written == Written::kContainerDone ? Walk::kStop
                                                                                : Walk::kGoOn;
    });
    return walk;
  }

  Written VisitKey(HCRYPTPROV container, HCRYPTKEY key) const {
    return isSelfSigned_ ? AddToChain(container, key, certificate_)
                         : GiveToKey(container, key, certificate_);
  }

  const CERT_CONTEXT& certificate_;
  bool isSelfSigned_;
  BOOL result_ = FALSE;
};

BOOL WriteCertificate(ExportTrace& trace, const CERT_CONTEXT& certificate) {
  const CERT_INFO& info = *certificate.pCertInfo;
  const char* const oid = info.SubjectPublicKeyInfo.Algorithm.pszObjId;
  trace.WholeLine("EXT : CertStoreProvWriteCertCallback [Algorithm.pszObjId = %s][s/n= %x %x...]",
                  oid, SerialOctet(info, 0), SerialOctet(info, 1));
  if (KeyFamilyOf(oid) == KeyFamily::kOther) {
    return FALSE;
  }
  RequireProvider();
  return CertificateWriter(certificate).Run();
}

}  // namespace

BOOL WINAPI CertStoreProvWriteCertCallback(HCERTSTOREPROV hStoreProv, PCCERT_CONTEXT pCertContext,
                                           DWORD dwFlags) {
  return RunExport("CertStoreProvWriteCertCallback", [&](ExportTrace& trace) {
    trace.WholeLine("EXT : CertStoreProvWriteCertCallback [hStoreProv = %x] [dwFlags = %X]",
                    Hex(hStoreProv), Hex(dwFlags));
    if (pCertContext == nullptr || hStoreProv == nullptr || pCertContext->pCertInfo == nullptr) {
      return FALSE;
    }
    return RunGuarded(
        [](ErrorCode code) -> BOOL {
          SetLastError(code);
          return FALSE;
        },
        // Unlike an export, this one leaves the last error alone: a compatibility fact.
        []() -> BOOL { return FALSE; }, [&] { return WriteCertificate(trace, *pCertContext); });
  });
}

}  // namespace zarext
