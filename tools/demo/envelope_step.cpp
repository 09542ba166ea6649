// Step 5: enveloped messages: what the platform refuses, what works, and what works behind a hook.
#include <string>

#include "demo/actors.h"
#include "demo/steps.h"
#include "demo/story.h"
#include "support/child_process.h"
#include "support/enveloped_message.h"
#include "support/issued_certificate.h"
#include "support/message_gaps.h"
#include "support/module_calls.h"
#include "support/platform.h"
#include "support/provider_handle_as_key.h"

namespace zarext::demo {
namespace {

// A content algorithm that the module is bound to, and one that it is not.
constexpr char kBoundOid[] = "1.3.6.1.4.1.32473.1.2.4";
constexpr char kOlderKeyOid[] = "1.3.6.1.4.1.32473.1.4.4";
constexpr std::size_t kMebibyte = 1U << 20U;
constexpr char kImportFunction[] = "CryptMsgDllImportKeyTrans";

// A content algorithm, and what a wrapped key of it has: head, key and the sender's public key.
struct ContentAlgorithm {
  const char* oid;
  std::size_t wrappedSize;
};
constexpr ContentAlgorithm kBound = {kBoundOid, 152};
constexpr ContentAlgorithm kAes128 = {kAes128Oid, 136};

// Wine looks the import of a key up by the content's algorithm, so that one more binding is needed.
class ImportBinding {
 public:
  explicit ImportBinding(const char* contentOid) : contentOid_(contentOid) {
    if (test::DispatchOfImport().byContent) {
      const std::string path = test::ProgramFolder() + "ZAREXT.dll";
      const std::wstring wide(path.begin(), path.end());
      test::Must(CryptRegisterOIDFunction(X509_ASN_ENCODING, kImportFunction, contentOid_,
                                          wide.c_str(), "ZarMsgImportKeyTrans"),
                 "CryptRegisterOIDFunction");
      Note("on Wine: ZarMsgImportKeyTrans is bound by the content's algorithm, too");
    }
  }
  ~ImportBinding() {
    if (test::DispatchOfImport().byContent) {
      CryptUnregisterOIDFunction(X509_ASN_ENCODING, kImportFunction, contentOid_);
    }
  }
  ImportBinding(const ImportBinding&) = delete;
  ImportBinding& operator=(const ImportBinding&) = delete;

 private:
  const char* contentOid_;
};

struct Party {
  explicit Party(const Actor& actor)
      : context(NewContainer(actor)), key(GenerateKey(context, actor)) {}
  test::Context context;
  test::Key key;
};

UniqueCertContext Certify(const Actor& actor, const Party& party, std::uint8_t serial) {
  const test::Context authority = OpenContainer(kAuthority);
  Call(std::string("CryptSignAndEncodeCertificate(\"") + actor.container + "\", by \"" +
       kAuthority.container + "\")");
  return test::CertificateContext(test::IssueCertificate(
      {authority.Get(), kAuthority.keySpec, kAuthority.signatureOid, kAuthority.container},
      actor.container, test::SubjectKey::Makers(actor.keyOid, party.key), serial));
}

// CryptEncryptMessage; the code, or 0 and the message.
DWORD Envelope(const char* contentOid, const Party& sender,
               const std::vector<PCCERT_CONTEXT>& recipients, const Octets& content,
               Octets* message) {
  CRYPT_ENCRYPT_MESSAGE_PARA para = {};
  para.cbSize = sizeof para;
  para.dwMsgEncodingType = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
  para.hCryptProv = sender.context.Get();
  para.ContentEncryptionAlgorithm.pszObjId = const_cast<char*>(contentOid);
  Call("CryptEncryptMessage(" + std::to_string(content.size()) + " octets, content " + contentOid +
       ", " + std::to_string(recipients.size()) + " recipients)");
  return test::CodeOf(test::EncryptMessage(&para, recipients, content, message));
}

// Opens the message; the code, or 0 and the content.
DWORD Open(const Octets& message, const Party& party, const char* who, DWORD recipient,
           Octets* content) {
  const test::Message received(message);
  Call(std::string("CryptMsgControl(CMSG_CTRL_DECRYPT, as \"") + who + "\")");
  const DWORD code = test::CodeOf(received.Decrypt(party.context.Get(), recipient));
  if (code == 0) {
    *content = received.Content();
  }
  return code;
}

void OpenAs(const Octets& message, const Party& party, const char* who, DWORD recipient,
            const Octets& expected) {
  Octets content;
  ExpectCode(0, Open(message, party, who, recipient, &content), std::string(who) + " can open it");
  ExpectTraced("EXT : ZarMsgImportKeyTrans : CryptImportKey - OK.");
  Expect(content == expected, "the content came back octet for octet");
}

struct Parties {
  Party sender{kSender};
  Party first{kFirst};
  Party second{kSecond};
  UniqueCertContext firstCertificate = Certify(kFirst, first, 5);
  UniqueCertContext secondCertificate = Certify(kSecond, second, 6);

  [[nodiscard]] std::vector<PCCERT_CONTEXT> Certificates() const {
    return {firstCertificate.Get(), secondCertificate.Get()};
  }
};

// The module names the key to wrap by the provider's handle, and the platform takes that for no
// key.
void ShowRefusal(const Parties& parties, const Octets& content) {
  Octets message;
  const DWORD code = Envelope(kBoundOid, parties.sender, parties.Certificates(), content, &message);
  if (!test::IsWine()) {
    Note("ended with " + std::to_string(code) + "; Wine refuses with 87");
    return;
  }
  ExpectCode(ERROR_INVALID_PARAMETER, code,
             "refused, as with every content algorithm that is bound");
  ExpectTraced("EXT : ZarMsgGenContentEncryptKey : CryptExportKey = 57.");
}

void ShowPassage(const ContentAlgorithm& algorithm, const Parties& parties, const Octets& content) {
  const ImportBinding binding(algorithm.oid);
  Octets message;
  ExpectCode(0, Envelope(algorithm.oid, parties.sender, parties.Certificates(), content, &message),
             "enveloped for both");
  ExpectTraced("EXT : ZarMsgExportKeyTrans : EncryptedKeySize=" +
               std::to_string(algorithm.wrappedSize) + ".");
  Expect(message.size() > content.size() + 2 * algorithm.wrappedSize,
         "a message of " + std::to_string(message.size()) + " octets");
  OpenAs(message, parties.first, kFirst.container, 0, content);
  const bool firstOnly = test::DispatchOfImport().recipient == 0;
  if (firstOnly) {
    Note(
        "Wine hands out the first recipient's record only: the same message, with the two records "
        "the other way round");
  }
  const Octets turned = firstOnly ? test::SecondRecipientFirst(message) : message;
  OpenAs(turned, parties.second, kSecond.container, firstOnly ? 0 : 1, content);
  Octets none;
  ExpectCode(static_cast<DWORD>(NTE_BAD_DATA),
             Open(message, parties.sender, kSender.container, 0, &none),
             "refused: it was not meant for its own sender");
}

CRYPT_ALGORITHM_IDENTIFIER Algorithm(const char* oid) {
  CRYPT_ALGORITHM_IDENTIFIER algorithm = {};
  algorithm.pszObjId = const_cast<char*>(oid);
  return algorithm;
}

// A recipient's key in the older form.
class OlderRecipient {
 public:
  explicit OlderRecipient(const Party& party) : blob_(test::Export(party.key, PUBLICKEYBLOB)) {
    info_.Algorithm = Algorithm(kOlderKeyOid);
    info_.PublicKey = {static_cast<DWORD>(blob_.size()), blob_.data(), 0};
  }
  ~OlderRecipient() = default;
  OlderRecipient(const OlderRecipient&) = delete;
  OlderRecipient& operator=(const OlderRecipient&) = delete;
  CERT_PUBLIC_KEY_INFO* Info() { return &info_; }

 private:
  Octets blob_;
  CERT_PUBLIC_KEY_INFO info_ = {};
};

test::Key Generate(const Party& sender, OlderRecipient* first) {
  CRYPT_ALGORITHM_IDENTIFIER algorithm = Algorithm(kBoundOid);
  HCRYPTPROV provider = sender.context.Get();
  test::Key key;
  BYTE* parameters = nullptr;
  DWORD size = 0;
  Call(std::string("ZarGenEncryptKey(content ") + kBoundOid + ")");
  test::Must(
      test::Export<test::GenEncryptKey>("ZarGenEncryptKey")(
          &provider, &algorithm, nullptr, first->Info(), nullptr, key.Out(), &parameters, &size),
      "ZarGenEncryptKey");
  const UniqueLocalMemory owner(parameters);
  return key;
}

void PassInOlderForm(const Party& sender, const test::Key& key, const Party& party, const char* who,
                     const Octets& encrypted, const Octets& content) {
  OlderRecipient recipient(party);
  Call(std::string("ZarExportEncryptKey(for \"") + who + "\")");
  Octets wrapped = test::Fetch("ZarExportEncryptKey", [&](BYTE* data, DWORD* size) {
    return test::Export<test::ExportEncryptKey>("ZarExportEncryptKey")(
        sender.context.Get(), key.Get(), recipient.Info(), data, size);
  });
  CRYPT_ALGORITHM_IDENTIFIER contentAlgorithm = Algorithm(kBoundOid);
  CRYPT_ALGORITHM_IDENTIFIER keyAlgorithm = Algorithm(kOlderKeyOid);
  test::Key received;
  Call(std::string("ZarImportEncryptKey(as \"") + who + "\")");
  const DWORD code = test::CodeOf(test::Export<test::ImportEncryptKey>("ZarImportEncryptKey")(
      party.context.Get(), AT_KEYEXCHANGE, &contentAlgorithm, &keyAlgorithm, wrapped.data(),
      static_cast<DWORD>(wrapped.size()), received.Out()));
  ExpectCode(0, code, std::string(who) + " can unwrap the key");
  Call("CryptDecrypt()");
  Expect(test::Decrypt(received.Get(), encrypted) == content,
         "the content came back octet for octet");
}

void ShowOlderForm(const Parties& parties, const Octets& content) {
  Note(
      "the functions of the older form are called as the framework would call them; Wine's never "
      "does");
  OlderRecipient first(parties.first);
  const test::Key key = Generate(parties.sender, &first);
  Call("CryptEncrypt(" + std::to_string(content.size()) + " octets)");
  const Octets encrypted = test::Encrypt(key.Get(), content);
  Expect(encrypted != content, "the content is not readable");
  PassInOlderForm(parties.sender, key, parties.first, kFirst.container, encrypted, content);
  PassInOlderForm(parties.sender, key, parties.second, kSecond.container, encrypted, content);
}

}  // namespace

void OpenEnvelopes() {
  const Parties parties;
  Octets content(kMebibyte);
  for (std::size_t i = 0; i < content.size(); ++i) {
    content[i] = static_cast<std::uint8_t>(i * 2654435761U >> 24);
  }
  // The clean-up of a refused message needs it.
  const test::ZeroedFrameworkMemory zeroedMemory;
  ShowRefusal(parties, content);
  Note("a content algorithm that is not bound: the framework has the provider generate the key");
  ShowPassage(kAes128, parties, content);
  ShowOlderForm(parties, content);
  if (test::IsWine()) {
    Note(
        "behind a hook, for this demo alone, in the module's import of CryptExportKey: a "
        "provider's handle goes to the provider's own CPExportKey, which takes it for the key "
        "generated last");
    const test::ProviderHandleAsKey providerHandleAsKey;
    ShowPassage(kBound, parties, content);
  }
}

}  // namespace zarext::demo
