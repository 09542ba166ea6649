// The exports that put certificates into the system's own stores and take them out. They report to
// a log file instead of the trace.
#include "zarext.h"

#include <windows.h>

#include <wincrypt.h>

#include <iterator>

#include "frame/export_frame.h"
#include "frame/handles.h"
#include "frame/trace.h"
#include "store/key_provider.h"
#include "store/log_file.h"
#include "store/provider_walk.h"

namespace zarext {
namespace {

constexpr char kSelfFailure[] = "SetSelfCert : Error = %x.";
// Also of the deleting export: a compatibility fact for whoever reads the log.
constexpr char kOtherFailure[] = "SetOtherCert : Error = %x.";

// By the callers' store index.
constexpr const wchar_t* kStoreNames[] = {L"ROOT",         L"TRUST", L"CA",
                                          L"Other People", L"MY",    L"Personal"};
static_assert(std::size(kStoreNames) == ZAREXT_STORE_PERSONAL + 1);

using SystemStore = UniqueCertStore<CERT_CLOSE_STORE_CHECK_FLAG>;

// A failure that is only a FALSE result, without a line in the log: no such store, no context, a
// name that does not convert.
struct SilentFailure {};

// What a 32-bit code becomes where the log's text has room for a string.
class HexText {
 public:
  explicit HexText(DWORD code) noexcept { FormatText(text_, "%x", Hex(code)); }
  [[nodiscard]] const char* Text() const noexcept { return text_; }

 private:
  char text_[16] = {};
};

// Sets no last error, a compatibility fact: what a caller finds there is what the last call into
// the platform left, the log's and the closing of the store among them.
template <typename Work>
BOOL RunMaintenance(const char* failureLine, Work work) noexcept {
  return RunGuarded(
      [&](ErrorCode code) -> BOOL {
        FileLog(kLogFile, failureLine, Hex(code));
        return FALSE;
      },
      []() -> BOOL { return FALSE; },
      [&]() -> BOOL {
        work();
        return TRUE;
      });
}

SystemStore OpenSystemStore(BOOL bLocalMachine, DWORD dwStore) {
  const DWORD location =
      bLocalMachine != 0 ? CERT_SYSTEM_STORE_LOCAL_MACHINE : CERT_SYSTEM_STORE_CURRENT_USER;
  return SystemStore(CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, location, kStoreNames[dwStore]));
}

void RequireStoreIndex(DWORD dwStore) {
  if (dwStore >= std::size(kStoreNames)) {
    throw SilentFailure();
  }
}

void TieToContainer(PCCERT_CONTEXT context, const char* szContainer, DWORD dwKeySpec) {
  wchar_t container[256] = {};
  if (!ToWide(szContainer, container)) {
    throw SilentFailure();
  }
  KeyProvider provider(context->pCertInfo->SubjectPublicKeyInfo.Algorithm.pszObjId);
  if (!provider.IsValid()) {
    throw SilentFailure();
  }
  CRYPT_KEY_PROV_INFO info = {};
  // Name and key specification as given, no "profile://" address and nothing derived: a
  // compatibility fact for installers, which bring the name that the provider is to open.
  info.pwszContainerName = container;
  info.pwszProvName = provider.Name();
  info.dwProvType = provider.Type();
  info.dwKeySpec = dwKeySpec;
  RequireSuccess(FALSE !=
                 CertSetCertificateContextProperty(context, CERT_KEY_PROV_INFO_PROP_ID, 0, &info));
}

// Deletes through a second reference: the deletion takes it, and the walk needs its own.
void DeleteOne(PCCERT_CONTEXT context) {
  UniqueCertContext duplicate(CertDuplicateCertificateContext(context));
  if (!duplicate) {
    FileLog(kLogFile, "DelOtherCert : CertDuplicateCertificateContext error = %x.",
            Hex(GetLastError()));
    return;
  }
  if (!CertDeleteCertificateFromStore(duplicate.Detach())) {
    FileLog(kLogFile, "DelOtherCert : CertDeleteCertificateFromStore error = %x.",
            Hex(GetLastError()));
  }
}

void SetSelf(BOOL bLocalMachine, const char* szContainer, DWORD dwKeySpec, const BYTE* pbCert,
             DWORD cbCert) {
  const SystemStore store = OpenSystemStore(bLocalMachine, ZAREXT_STORE_MY);
  RequireSuccess(static_cast<bool>(store));
  UniqueCertContext context;
  RequireSuccess(FALSE != CertAddEncodedCertificateToStore(store.Get(), kEncodingType, pbCert,
                                                           cbCert, CERT_STORE_ADD_REPLACE_EXISTING,
                                                           context.Put()));
  if (!context) {
    throw SilentFailure();
  }
  TieToContainer(context.Get(), szContainer, dwKeySpec);
}

void SetOther(BOOL bLocalMachine, DWORD dwStore, const BYTE* pbCert, DWORD cbCert) {
  RequireStoreIndex(dwStore);
  const SystemStore store = OpenSystemStore(bLocalMachine, dwStore);
  RequireSuccess(static_cast<bool>(store));
  RequireSuccess(FALSE != CertAddEncodedCertificateToStore(store.Get(), kEncodingType, pbCert,
                                                           cbCert, CERT_STORE_ADD_REPLACE_EXISTING,
                                                           nullptr));
}

void DelOther(BOOL bLocalMachine, DWORD dwStore, const BYTE* pbCert, DWORD cbCert) {
  RequireStoreIndex(dwStore);
  const SystemStore store = OpenSystemStore(bLocalMachine, dwStore);
  if (!store) {
    const ErrorCode code = GetLastError();
    FileLog(kLogFile, "DelOtherCert : CertOpenStore error = %s.", HexText(code).Text());
    throw code;
  }
  const UniqueCertContext given(CertCreateCertificateContext(kEncodingType, pbCert, cbCert));
  if (!given) {
    const ErrorCode code = GetLastError();
    FileLog(kLogFile, "DelOtherCert : CertCreateCertificateContext error = %s.",
            HexText(code).Text());
    throw code;
  }
  ForEachCertificate(store.Get(), [&](PCCERT_CONTEXT context) {
    if (CertCompareCertificate(X509_ASN_ENCODING, given.Get()->pCertInfo, context->pCertInfo)) {
      DeleteOne(context);
    }
  });
}

}  // namespace
}  // namespace zarext

extern "C" {

BOOL WINAPI SetSelfCert(BOOL bLocalMachine, const char* szContainer, DWORD dwKeySpec,
                        const BYTE* pbCert, DWORD cbCert) {
  return zarext::RunMaintenance(zarext::kSelfFailure, [&] {
    zarext::SetSelf(bLocalMachine, szContainer, dwKeySpec, pbCert, cbCert);
  });
}

BOOL WINAPI SetOtherCert(BOOL bLocalMachine, DWORD dwStore, const BYTE* pbCert, DWORD cbCert) {
  return zarext::RunMaintenance(zarext::kOtherFailure,
                                [&] { zarext::SetOther(bLocalMachine, dwStore, pbCert, cbCert); });
}

BOOL WINAPI DelOtherCert(BOOL bLocalMachine, DWORD dwStore, const BYTE* pbCert, DWORD cbCert) {
  return zarext::RunMaintenance(zarext::kOtherFailure,
                                [&] { zarext::DelOther(bLocalMachine, dwStore, pbCert, cbCert); });
}

}  // extern "C"
