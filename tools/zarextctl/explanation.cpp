#include "zarextctl/explanation.h"

#include <algorithm>
#include <cstring>

#include "asn1/oid.h"
#include "frame/provider_binding.h"
#include "frame/provider_type.h"
#include "registration/function_bindings.h"
#include "store/key_provider.h"
#include "zarextctl/failure.h"
#include "zarextctl/names.h"
#include "zarextctl/oid_names.h"
#include "zarextctl/own_trace.h"
#include "zarextctl/registry.h"
#include "zarextctl/text.h"
#include "zarextctl/windows_text.h"

namespace zarext::ctl {
namespace {

constexpr char kImportFunction[] = "CryptDllImportPublicKeyInfoEx";

void FreeChain(PCCERT_CHAIN_CONTEXT chain) { CertFreeCertificateChain(chain); }
using UniqueChain = UniqueHandle<PCCERT_CHAIN_CONTEXT, FreeChain>;

struct Trust {
  DWORD bit;
  DWORD code;
  const char* words;
  const char* next;
};
constexpr char kAskIssuer[] = "ask the issuer for a new certificate";
constexpr Trust kTrusts[] = {
    {CERT_TRUST_IS_NOT_SIGNATURE_VALID, static_cast<DWORD>(NTE_BAD_SIGNATURE),
     "a signature in the chain is not right", kAskIssuer},
    // A circle is a chain without a root as well.
    {CERT_TRUST_IS_CYCLIC, static_cast<DWORD>(CERT_E_CHAINING), "the chain goes in a circle",
     kAskIssuer},
    {CERT_TRUST_IS_PARTIAL_CHAIN, static_cast<DWORD>(CERT_E_CHAINING),
     "the issuer's certificate is not there",
     "get the issuer's certificate and run: certutil -user -addstore CA FILE"},
    {CERT_TRUST_IS_UNTRUSTED_ROOT, static_cast<DWORD>(CERT_E_UNTRUSTEDROOT),
     "the root is not a trusted one",
     "if you trust it, run: certutil -user -addstore ROOT FILE (the root's certificate)"},
    {CERT_TRUST_IS_NOT_TIME_VALID, static_cast<DWORD>(CERT_E_EXPIRED),
     "a certificate has expired, or is not valid yet",
     "check the computer's clock; else ask the issuer for a new certificate"},
    {CERT_TRUST_IS_NOT_VALID_FOR_USAGE, static_cast<DWORD>(CERT_E_WRONG_USAGE),
     "it is not meant for this use", kAskIssuer},
    {CERT_TRUST_INVALID_BASIC_CONSTRAINTS, static_cast<DWORD>(CERT_E_ROLE),
     "an issuer in the chain may not issue certificates", kAskIssuer},
    {CERT_TRUST_INVALID_EXTENSION, static_cast<DWORD>(CERT_E_CRITICAL),
     "it has an extension that is not understood", kAskIssuer},
};

Step Skipped(const char* id, const std::string& why) {
  Step step{id};
  step.state = StepState::kSkipped;
  step.what = why;
  return step;
}

void Fail(Step* step, DWORD code, const std::string& cause, const std::string& next) {
  step->state = StepState::kFailed;
  step->code = code;
  step->cause = cause;
  step->next = next;
}

// Whose certificate, what is known of the framework's answers.
class Walk {
 public:
  explicit Walk(const ExplainRequest& request)
      : request_(request),
        text_(Describe(request.certificate)),
        family_(KeyFamilyOf(text_.keyOid.c_str())) {}

  Explanation Run() {
    Add(&Walk::CheckBinding);
    Add(&Walk::CheckRecord);
    Add(&Walk::CheckProvider);
    Add(&Walk::CheckImport);
    Add(&Walk::CheckSignatures);
    Add(&Walk::CheckTrust);
    Add(&Walk::CheckTie);
    Add(&Walk::CheckOpen);
    Add(&Walk::CheckMatch);
    return {text_, std::move(steps_)};
  }

 private:
  template <typename Check>
  void Add(Check check) {
    trace_.Take();
    Step step = (this->*check)();
    if (step.trace.empty()) {
      step.trace = trace_.Take();
    }
    steps_.push_back(std::move(step));
  }

  // Which function of the framework reads the key, and whose it is.
  Step CheckBinding() {
    Step step{"binding"};
    const RegistryKey key(HKEY_LOCAL_MACHINE, std::string(kOidKey) + "\\EncodingType 1\\" +
                                                  kImportFunction + "\\" + text_.keyOid);
    const std::string dll = key.Text("Dll").value_or("");
    if (family_ != KeyFamily::kOwn) {
      step.what = dll.empty() ? "the framework itself reads keys of " + OidLabel(text_.keyOid)
                              : std::string(kImportFunction) + " -> " + dll + ", not ZAREXT's";
      return step;
    }
    step.what = std::string(kImportFunction) + " for " + text_.keyOid + " -> " + dll;
    if (!key) {
      step.what = std::string(kImportFunction) + " for " + text_.keyOid + " is not bound";
      Fail(&step, ERROR_FILE_NOT_FOUND, "ZAREXT.dll is not registered for this kind of key",
           "zarextctl register");
    } else if (!SameIgnoringCase(FileName(dll), "ZAREXT.dll")) {
      Fail(&step, 0, "another product reads these keys", "zarextctl register");
    } else {
      step.what += " " + key.Text("FuncName").value_or("");
      if (GetFileAttributesW(Wide(dll).c_str()) == INVALID_FILE_ATTRIBUTES) {
        Fail(&step, GetLastError(), "the DLL that was registered is not there any more",
             "zarextctl register");
      }
    }
    return step;
  }

  // Without the record the framework does not know the signature's hash.
  [[nodiscard]] Step CheckRecord() const {
    Step step{"record"};
    std::string oid = text_.signatureOid;
    const PCCRYPT_OID_INFO info =
        CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, oid.data(), CRYPT_SIGN_ALG_OID_GROUP_ID);
    if (info != nullptr) {
      step.what = "signature " + text_.signatureOid + ": " + Utf8(info->pwszName);
      return step;
    }
    step.what = "signature " + text_.signatureOid + " has no record";
    Fail(&step, static_cast<DWORD>(NTE_BAD_ALGID), "the framework does not know this algorithm",
         IsOwnAlgorithmOid(oid.c_str())
             ? "zarextctl register, then start the program again"
             : "install the provider that the certificate's issuer names");
    return step;
  }

  Step CheckProvider() {
    if (family_ == KeyFamily::kOther) {
      return Skipped("provider", "no provider of ZAREXT's is needed");
    }
    Step step{"provider"};
    // What verifies needs only the type; RSA is any provider's.
    const bool isOwn = family_ == KeyFamily::kOwn;
    const DWORD type = isOwn ? kProviderType : PROV_RSA_FULL;
    if (!CryptAcquireContextW(provider_.Put(), nullptr, nullptr, type,
                              CRYPT_VERIFYCONTEXT | CRYPT_SILENT)) {
      const DWORD code = GetLastError();
      step.what = "no provider of type " + ProviderTypeLabel(type);
      const ErrorText* error = FindError(code);
      Fail(&step, code, error == nullptr ? "the provider cannot be used" : error->meaning,
           "zarextctl status says what is wrong with the provider");
      return step;
    }
    char name[256] = {};
    DWORD size = sizeof name;
    CryptGetProvParam(provider_.Get(), PP_NAME, reinterpret_cast<BYTE*>(name), &size, 0);
    step.what = "type " + std::to_string(type) + ": " + Utf8FromAnsi(name);
    return step;
  }

  Step CheckImport() {
    if (!provider_) {
      return Skipped("import", family_ == KeyFamily::kOther ? "the framework reads the key itself"
                                                            : "there is no provider");
    }
    Step step{"import"};
    step.what = "the provider takes the public key";
    if (!CryptImportPublicKeyInfoEx(provider_.Get(), X509_ASN_ENCODING,
                                    &request_.certificate->pCertInfo->SubjectPublicKeyInfo, 0, 0,
                                    nullptr, key_.Put())) {
      const DWORD code = GetLastError();
      step.what = "the public key is refused";
      Fail(&step, code,
           code == static_cast<DWORD>(NTE_NO_MEMORY)
               ? "its octets are not in the form that this kind of key has"
               : "the module or the provider refuses the key",
           "compare with another certificate of the same issuer; report both to the issuer");
    }
    return step;
  }

  Step CheckSignatures() {
    CERT_CHAIN_PARA para = {};
    para.cbSize = sizeof para;
    Step step{"signatures"};
    if (!CertGetCertificateChain(nullptr, request_.certificate, nullptr, request_.others, &para,
                                 CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL, nullptr, chain_.Put())) {
      Fail(&step, GetLastError(), "the framework cannot build a chain", "zarextctl status");
      return step;
    }
    const CERT_SIMPLE_CHAIN& chain = *chain_.Get()->rgpChain[0];
    for (DWORD i = 0; i < chain.cElement; ++i) {
      CheckSignature(chain, i, &step);
    }
    if (checked_ == 0) {
      step.state = StepState::kSkipped;
      step.what = "there is no issuer to check a signature with";
    } else if (step.state == StepState::kPassed) {
      step.what = Count(checked_, "signature") + " checked, all right";
    }
    return step;
  }

  void CheckSignature(const CERT_SIMPLE_CHAIN& chain, DWORD index, Step* step) {
    const PCCERT_CONTEXT subject = chain.rgpElement[index]->pCertContext;
    const bool isLast = index + 1 == chain.cElement;
    const PCCERT_CONTEXT issuer = isLast ? subject : chain.rgpElement[index + 1]->pCertContext;
    const std::string name = Describe(subject).subject;
    if (isLast && !CertCompareCertificateName(X509_ASN_ENCODING, &subject->pCertInfo->Subject,
                                              &subject->pCertInfo->Issuer)) {
      step->details.push_back(name + ": not checked, its issuer \"" + Describe(subject).issuer +
                              "\" is not there");
      return;
    }
    ++checked_;
    trace_.Take();
    if (CryptVerifyCertificateSignatureEx(0, X509_ASN_ENCODING, CRYPT_VERIFY_CERT_SIGN_SUBJECT_CERT,
                                          const_cast<CERT_CONTEXT*>(subject),
                                          CRYPT_VERIFY_CERT_SIGN_ISSUER_CERT,
                                          const_cast<CERT_CONTEXT*>(issuer), 0, nullptr)) {
      step->details.push_back(name + ": signed by \"" + Describe(issuer).subject + "\"");
      return;
    }
    const DWORD code = GetLastError();
    const bool isWrong = code == static_cast<DWORD>(NTE_BAD_SIGNATURE);
    step->details.push_back(name + (isWrong ? ": NOT signed by \"" : ": not checked against \"") +
                            Describe(issuer).subject + "\", " + ErrorLabel(code));
    if (step->state == StepState::kPassed) {
      step->trace = trace_.Take();
      step->what = "the signature of \"" + name + "\" " +
                   (isWrong ? "is not right" : "could not be checked");
      Fail(step, code,
           isWrong ? "the certificate was changed, or another key than the issuer's signed it"
                   : "the issuer's key or the signature's algorithm could not be used",
           isWrong ? "get the certificate anew from its issuer" : "mend the steps above first");
    }
  }

  Step CheckTrust() {
    if (!chain_) {
      return Skipped("trust", "there is no chain");
    }
    Step step{"trust"};
    const DWORD status = chain_.Get()->TrustStatus.dwErrorStatus;
    step.what = "the chain is trusted";
    for (const Trust& trust : kTrusts) {
      if ((status & trust.bit) == 0) {
        continue;
      }
      if (step.state == StepState::kPassed) {
        step.what = trust.words;
        Fail(&step, trust.code, FirstElementWith(trust.bit), trust.next);
      } else {
        step.details.emplace_back(trust.words);
      }
    }
    // It needs lists that need not be reachable.
    step.details.emplace_back("whether a certificate was revoked is not looked up");
    return step;
  }

  // "CN=name" of the certificate of the chain to which a bit belongs.
  std::string FirstElementWith(DWORD bit) const {
    const CERT_SIMPLE_CHAIN& chain = *chain_.Get()->rgpChain[0];
    for (DWORD i = 0; i < chain.cElement; ++i) {
      if ((chain.rgpElement[i]->TrustStatus.dwErrorStatus & bit) != 0) {
        return "it is about " + Describe(chain.rgpElement[i]->pCertContext).subject;
      }
    }
    return "the last certificate is " +
           Describe(chain.rgpElement[chain.cElement - 1]->pCertContext).subject + ", issued by " +
           Describe(chain.rgpElement[chain.cElement - 1]->pCertContext).issuer;
  }

  // The tie of the certificate itself, else of the same one in a store that offers keys.
  Step CheckTie() {
    Step step{"container"};
    tie_ = ReadTie(request_.certificate);
    for (const char* name : {"MY", kProviderStoreName}) {
      if (!tie_ && (request_.lookIntoContainers || std::strcmp(name, "MY") == 0)) {
        tie_ = TieIn(name, &step);
      }
    }
    if (!tie_) {
      step.what = "tied to no container of this user: it can verify, but not sign";
      return step;
    }
    step.what = Printable(Utf8(tie_->container)) + ", " +
                (tie_->provider.empty() ? "no provider named" : Utf8(tie_->provider)) + ", " +
                KeySpecName(tie_->keySpec);
    return step;
  }

  std::optional<KeyTie> TieIn(const char* name, Step* step) const {
    try {
      const UniqueStore store = OpenNamedStore(name);
      const UniqueCertContext found(CertFindCertificateInStore(
          store.Get(), X509_ASN_ENCODING, 0, CERT_FIND_EXISTING, request_.certificate, nullptr));
      return found ? ReadTie(found.Get()) : std::nullopt;
    } catch (const Failure& failure) {
      step->details.push_back(std::string(name) + " does not open: " + ErrorLabel(failure.Code()));
      return std::nullopt;
    }
  }

  Step CheckOpen() {
    if (!tie_) {
      return Skipped("open", "there is no container");
    }
    Step step{"open"};
    probe_ = ProbeKey(*tie_);
    step.what = "it opens without a dialogue, in " + std::to_string(probe_.milliseconds) + " ms";
    if (probe_.openCode != 0) {
      step.what = "it does not open without a dialogue";
      const ErrorText* error = FindError(probe_.openCode);
      Fail(&step, probe_.openCode, error == nullptr ? "the provider refuses it" : error->meaning,
           probe_.openCode == static_cast<DWORD>(NTE_SILENT_CONTEXT)
               ? "enter the password in the program that uses the key"
               : "put the token in, or restore the container from its copy");
    } else if (probe_.keyCode != 0) {
      const bool isMissing = probe_.keyCode == static_cast<DWORD>(NTE_NO_KEY);
      const ErrorText* error = FindError(probe_.keyCode);
      step.what =
          isMissing ? "the container has no such key" : "the container's key cannot be read";
      Fail(&step, probe_.keyCode,
           isMissing          ? "the certificate names a key that is not in the container"
           : error == nullptr ? "the provider refuses it"
                              : error->meaning,
           isMissing ? "zarextctl store show" : "restore the container from its copy");
    }
    return step;
  }

  // aiKeyAlg may differ between two blobs of one key; what follows it may not.
  Step CheckMatch() {
    constexpr std::size_t kHeader = sizeof(PUBLICKEYSTRUC);
    if (!tie_ || probe_.publicBlob.empty()) {
      return Skipped("match", "there is no key to compare with");
    }
    if (!key_) {
      return Skipped("match", "the certificate's key could not be imported");
    }
    Step step{"match"};
    const std::vector<BYTE> own = PublicBlobOf(key_.Get());
    const std::vector<BYTE>& other = probe_.publicBlob;
    step.what = "the container's key is the certificate's key";
    if (own.size() != other.size() || own.size() < kHeader ||
        !std::equal(own.begin() + kHeader, own.end(), other.begin() + kHeader)) {
      step.what = "the container has another key than the certificate";
      Fail(&step, static_cast<DWORD>(NTE_BAD_KEY),
           "the container was made anew, or the certificate was tied to the wrong one",
           "zarextctl store list shows which container has the certificate");
    }
    return step;
  }

  const ExplainRequest& request_;
  CertificateText text_;
  KeyFamily family_;
  OwnTrace trace_;
  std::vector<Step> steps_;
  UniqueCryptProvider provider_;
  UniqueCryptKey key_;
  UniqueChain chain_;
  std::size_t checked_ = 0;
  std::optional<KeyTie> tie_;
  KeyProbe probe_;
};

}  // namespace

bool Explanation::IsAccepted() const {
  return std::ranges::all_of(steps, [](const Step& step) {
    const bool decides =
        std::strcmp(step.id, "signatures") == 0 || std::strcmp(step.id, "trust") == 0;
    return !decides || step.state == StepState::kPassed;
  });
}

const Step* Explanation::FirstFailure() const {
  const auto found = std::ranges::find(steps, StepState::kFailed, &Step::state);
  return found == steps.end() ? nullptr : &*found;
}

Explanation Explain(const ExplainRequest& request) { return Walk(request).Run(); }

}  // namespace zarext::ctl
