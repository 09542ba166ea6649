// The exports that put certificates into the system's own stores and take them out. They report to
// a log file instead of the trace.
#include "zarext.h"

#include <iterator>

#include "frame/export_frame.h"
#include "frame/handles.h"
#include "frame/trace.h"
#include "store/certificates.h"
#include "store/key_provider.h"
#include "store/log_file.h"

namespace zarext {
namespace {

constexpr char kSelfFailure[] = "SetSelfCert : Error = %x.";
// Also of the deleting export, as readers of the log know it.
constexpr char kOtherFailure[] = "SetOtherCert : Error = %x.";

// By the callers' store index.
constexpr const wchar_t* kStoreNames[] = {L"ROOT",         L"TRUST", L"CA",
                                          L"Other People", L"MY",    L"Personal"};
static_assert(std::size(kStoreNames) == ZAREXT_STORE_PERSONAL + 1);

using SystemStore = UniqueCertStore<CERT_CLOSE_STORE_CHECK_FLAG>;

// A failure that is only a FALSE result, without a line in the log: no such store, no context, a
// name that does not convert.
struct SilentFailure {};

void RequireSilently(bool condition) {
  if (!condition) {
    throw SilentFailure();
  }
}

// Throws the last error for a call that did not succeed. `line`, if there is one, is logged first;
// it has room for a text: the code in hexadecimal.
void RequireLogged(bool succeeded, const char* line) {
  if (succeeded) {
    return;
  }
  const ErrorCode code = GetLastError();
  if (line != nullptr) {
    char text[16] = {};
    FormatText(text, "%x", Hex(code));
    FileLog(kLogFile, line, text);
  }
  throw code;
}

// Sets no last error: callers find what the last call into the platform left there, the log's calls
// and the closing of the store included.
BOOL RunMaintenance(const char* failureLine, Callback<> work) noexcept {
  BOOL result = FALSE;
  RunGuarded([&](ErrorCode code) { FileLog(kLogFile, failureLine, Hex(code)); }, [] {},
             [&] {
               work();
               result = TRUE;
             });
  return result;
}

// `failureLine` as for RequireLogged.
SystemStore OpenSystemStore(BOOL bLocalMachine, DWORD dwStore, const char* failureLine = nullptr) {
  RequireSilently(dwStore < std::size(kStoreNames));
  const DWORD location =
      bLocalMachine != 0 ? CERT_SYSTEM_STORE_LOCAL_MACHINE : CERT_SYSTEM_STORE_CURRENT_USER;
  SystemStore store(CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, location, kStoreNames[dwStore]));
  RequireLogged(static_cast<bool>(store), failureLine);
  return store;
}

// Name and key specification as given, no "profile://" address and nothing derived: installers
// bring the name that the provider is to open.
void TieToContainer(PCCERT_CONTEXT context, const char* szContainer, DWORD dwKeySpec) {
  auto container = ToWide<256>(szContainer);
  RequireSilently(container.has_value());
  KeyProvider provider(context->pCertInfo->SubjectPublicKeyInfo.Algorithm.pszObjId);
  RequireSilently(provider.IsValid());
  const CRYPT_KEY_PROV_INFO info = provider.Info(container->data(), dwKeySpec);
  RequireSuccess(FALSE !=
                 CertSetCertificateContextProperty(context, CERT_KEY_PROV_INFO_PROP_ID, 0, &info));
}

// Deletes through a second reference: the deletion takes it, and the walk needs its own.
void DeleteOne(PCCERT_CONTEXT context) {
  UniqueCertContext duplicate(CertDuplicateCertificateContext(context));
  if (!duplicate) {
    FileLog(kLogFile, "DelOtherCert : CertDuplicateCertificateContext error = %x.",
            Hex(GetLastError()));
  } else if (!CertDeleteCertificateFromStore(duplicate.Detach())) {
    FileLog(kLogFile, "DelOtherCert : CertDeleteCertificateFromStore error = %x.",
            Hex(GetLastError()));
  }
}

void SetSelf(BOOL bLocalMachine, const char* szContainer, DWORD dwKeySpec, const BYTE* pbCert,
             DWORD cbCert) {
  const SystemStore store = OpenSystemStore(bLocalMachine, ZAREXT_STORE_MY);
  UniqueCertContext context;
  RequireSuccess(FALSE != CertAddEncodedCertificateToStore(store.Get(), kBothEncodings, pbCert,
                                                           cbCert, CERT_STORE_ADD_REPLACE_EXISTING,
                                                           context.Put()));
  RequireSilently(static_cast<bool>(context));
  TieToContainer(context.Get(), szContainer, dwKeySpec);
}

void SetOther(BOOL bLocalMachine, DWORD dwStore, const BYTE* pbCert, DWORD cbCert) {
  const SystemStore store = OpenSystemStore(bLocalMachine, dwStore);
  RequireSuccess(FALSE != CertAddEncodedCertificateToStore(store.Get(), kBothEncodings, pbCert,
                                                           cbCert, CERT_STORE_ADD_REPLACE_EXISTING,
                                                           nullptr));
}

void DelOther(BOOL bLocalMachine, DWORD dwStore, const BYTE* pbCert, DWORD cbCert) {
  const SystemStore store =
      OpenSystemStore(bLocalMachine, dwStore, "DelOtherCert : CertOpenStore error = %s.");
  const UniqueCertContext given(CertCreateCertificateContext(kBothEncodings, pbCert, cbCert));
  RequireLogged(static_cast<bool>(given),
                "DelOtherCert : CertCreateCertificateContext error = %s.");
  ForEachCertificate(store.Get(), [&](PCCERT_CONTEXT context) {
    if (CertCompareCertificate(X509_ASN_ENCODING, given.Get()->pCertInfo, context->pCertInfo)) {
      DeleteOne(context);
    }
  });
}

}  // namespace
}  // namespace zarext

using namespace zarext;

extern "C" {

BOOL WINAPI SetSelfCert(BOOL bLocalMachine, const char* szContainer, DWORD dwKeySpec,
                        const BYTE* pbCert, DWORD cbCert) {
  return RunMaintenance(kSelfFailure,
                        [&] { SetSelf(bLocalMachine, szContainer, dwKeySpec, pbCert, cbCert); });
}

BOOL WINAPI SetOtherCert(BOOL bLocalMachine, DWORD dwStore, const BYTE* pbCert, DWORD cbCert) {
  return RunMaintenance(kOtherFailure, [&] { SetOther(bLocalMachine, dwStore, pbCert, cbCert); });
}

BOOL WINAPI DelOtherCert(BOOL bLocalMachine, DWORD dwStore, const BYTE* pbCert, DWORD cbCert) {
  return RunMaintenance(kOtherFailure, [&] { DelOther(bLocalMachine, dwStore, pbCert, cbCert); });
}

}  // extern "C"
