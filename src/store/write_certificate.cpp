#include <algorithm>
#include <optional>
#include <span>
#include <string_view>

#include "frame/export_frame.h"
#include "keyinfo/last_import.h"
#include "store/certificates.h"
#include "store/container_profile.h"
#include "store/container_walk.h"
#include "store/key_address.h"
#include "store/key_value.h"
#include "store/provider_context.h"
#include "store/store_callbacks.h"

namespace zarext {
namespace {

constexpr DWORD kWritableNameSize = 1024;
constexpr std::size_t kUrlSize = 2048;

// The address under which the container can be written, if there is one. A container on a token is
// written only if the last private-key import put its key there. Kept: with no import so far, a
// container without a name on a token without a kind is "there" too, and the provider is asked for
// the container "".
std::optional<FixedText<kUrlSize>> WritableUrl(const char* name, const FixedText<kUrlSize>& url,
                                               const CNT_PROFILE& profile) {
  if (IsProfileWritable(profile)) {
    return url;
  }
  FixedText<kUrlSize> imported;
  imported.Append(LastContainerUrlText());
  const bool isThisOne = imported.View().find(name) != std::string_view::npos &&
                         imported.View().find(profile.tokenKind) != std::string_view::npos;
  return isThisOne ? std::optional(imported) : std::nullopt;
}

// The context of a container that can be written.
UniqueProviderContext OpenWritable(HCRYPTPROV provider, const char* name) {
  const auto url = ContainerUrl<kUrlSize>(name);
  Trace("EXT : CertStoreProvWriteCertCallback [URL = %s]", url.Text());
  const auto profile = QueryProfile(provider, url.View());
  if (!profile) {
    return {};
  }
  auto writable = WritableUrl(name, url, *profile);
  return writable ? OpenContainer(writable->Text()) : UniqueProviderContext();
}

// Calls visit(container) for every container that can be written.
template <typename Visit>
void ForEachWritableContainer(Visit visit) {
  ForEachContainer<kWritableNameSize>([&](HCRYPTPROV provider, const char* name) {
    const UniqueProviderContext container = OpenWritable(provider, name);
    return container ? visit(*container.Get()) : Walk::kGoOn;
  });
}

// Calls visit(key) for the keys of a container, up to a record without a handle.
template <typename Visit>
void ForEachKeyHandle(HCRYPTPROV container, Visit visit) {
  ForEachKey(container, [&](const CNT_KEY_INFO& record, DWORD /*returnedLength*/) {
    return record.hKey == 0 ? Walk::kStop : visit(HCRYPTKEY{record.hKey});
  });
}

bool SetKeyValue(HCRYPTPROV container, HCRYPTKEY key, DWORD parameter,
                 const CERT_CONTEXT& certificate) {
  return Provider().CPSetKeyParam(container, key, parameter, certificate.pbCertEncoded, 0) != FALSE;
}

// The self-signed certificate of the same holder. The octets of issuer and subject are compared
// over the length of the new certificate's issuer, as they were when the chains in use were filled.
// A name that is shorter is another one.
bool IsSameRoot(const CERT_INFO& held, const CERT_INFO& added) noexcept {
  const DWORD length = added.Issuer.cbData;
  return held.Issuer.cbData == held.Subject.cbData && length <= held.Issuer.cbData &&
         std::equal(held.Issuer.pbData, held.Issuer.pbData + length, held.Subject.pbData) &&
         IsSameBlob(held.Subject, added.Subject);
}

bool ChainHolds(std::span<const BYTE> chain, const CERT_INFO& added) {
  const UniqueForcedStore message = OpenChain(chain, [](ErrorCode) {});
  if (!message) {
    return false;
  }
  bool holds = false;
  ForEachCertificate(message.Get(), [&](PCCERT_CONTEXT context) {
    const CERT_INFO& held = *context->pCertInfo;
    Trace(
        "EXT : CertStoreProvWriteCertCallback : CertEnumCertificatesInStore : size = %i, oid = "
        "%s, [s/n= %x %x...]",
        Int(chain.size()), held.SignatureAlgorithm.pszObjId, SerialOctet(held, 0),
        SerialOctet(held, 1));
    holds = holds || IsSameRoot(held, added);
  });
  return holds;
}

// Adds a self-signed certificate, in every container, to the chain of the first key that lacks it
// and takes it. TRUE if the chain of a key has it now.
BOOL WriteRoot(const CERT_CONTEXT& root) {
  BOOL result = FALSE;
  ForEachWritableContainer([&](HCRYPTPROV container) {
    ForEachKeyHandle(container, [&](HCRYPTKEY key) {
      const KeyValue chain(container, key, KP_CERT_CHAIN);
      if (chain.IsTooLong()) {
        return Walk::kGoOn;
      }
      if (ChainHolds(chain.Octets().value_or(std::span<const BYTE>()), *root.pCertInfo)) {
        result = TRUE;
        return Walk::kGoOn;
      }
      if (!SetKeyValue(container, key, KP_ADD_CHAIN_CERT, root)) {
        return Walk::kGoOn;
      }
      result = TRUE;
      return Walk::kStop;
    });
    return Walk::kGoOn;
  });
  return result;
}

// Whether the key has the certificate, which it is given if it has none.
bool HasOrTakes(HCRYPTPROV container, HCRYPTKEY key, const CERT_CONTEXT& certificate) {
  const KeyValue value(container, key, KP_CERTIFICATE);
  if (value.IsTooLong()) {
    return false;
  }
  const auto held = value.Octets();
  if (held && !held->empty()) {
    return std::equal(held->begin(), held->end(), certificate.pbCertEncoded,
                      certificate.pbCertEncoded + certificate.cbCertEncoded);
  }
  return SetKeyValue(container, key, KP_CERTIFICATE, certificate);
}

// Gives any other certificate to the first key without one that takes it. TRUE if a key has it now.
BOOL WriteEndCertificate(const CERT_CONTEXT& certificate) {
  Walk walk = Walk::kGoOn;
  ForEachWritableContainer([&](HCRYPTPROV container) {
    ForEachKeyHandle(container, [&](HCRYPTKEY key) {
      walk = HasOrTakes(container, key, certificate) ? Walk::kStop : Walk::kGoOn;
      return walk;
    });
    return walk;
  });
  return walk == Walk::kStop ? TRUE : FALSE;
}

BOOL WriteCertificate(ExportTrace& trace, const CERT_CONTEXT& certificate) {
  const CERT_INFO& info = *certificate.pCertInfo;
  const char* const oid = info.SubjectPublicKeyInfo.Algorithm.pszObjId;
  trace.WholeLine("EXT : CertStoreProvWriteCertCallback [Algorithm.pszObjId = %s][s/n= %x %x...]",
                  oid, SerialOctet(info, 0), SerialOctet(info, 1));
  if (KeyFamilyOf(oid) == KeyFamily::kOther) {
    return FALSE;
  }
  RequireProvider();
  return IsSelfSigned(info) ? WriteRoot(certificate) : WriteEndCertificate(certificate);
}

}  // namespace

BOOL WINAPI CertStoreProvWriteCertCallback(HCERTSTOREPROV hStoreProv, PCCERT_CONTEXT pCertContext,
                                           DWORD dwFlags) {
  return RunExport("CertStoreProvWriteCertCallback", [&](ExportTrace& trace) {
    BOOL result = FALSE;
    // Unlike an export, this one leaves the last error alone if anything but a code is thrown.
    RunGuarded([](ErrorCode code) { SetLastError(code); }, [] {},
               [&] {
                 trace.WholeLine(
                     "EXT : CertStoreProvWriteCertCallback [hStoreProv = %x] [dwFlags = %X]",
                     Hex(hStoreProv), Hex(dwFlags));
                 if (pCertContext != nullptr && hStoreProv != nullptr &&
                     pCertContext->pCertInfo != nullptr) {
                   result = WriteCertificate(trace, *pCertContext);
                 }
               });
    return result;
  });
}

}  // namespace zarext
