// Step 6: a private key in a second container.
#include <string>
#include <utility>

#include "demo/actors.h"
#include "demo/steps.h"
#include "demo/story.h"
#include "support/module_calls.h"

namespace zarext::demo {
namespace {

constexpr ALG_ID kNationalHash = 0x8022;

struct Copy {
  test::Context original;
  test::Context copy;
};

void ImportInto(const test::Context& target, CRYPT_PRIVATE_KEY_INFO* info) {
  Call("ZarImportPrivKeyFunc(CRYPT_EXPORTABLE)");
  // An algorithm that is not the module's comes back as a result that is not TRUE either.
  const BOOL imported = test::Export<test::ImportPrivKeyFunc>("ZarImportPrivKeyFunc")(
      target.Get(), info, CRYPT_EXPORTABLE, nullptr);
  const DWORD code = test::CodeOf(imported == TRUE);
  ExpectCode(0, code, "the second container takes it");
}

Copy CopyKey(const Actor& actor, test::Context original, const char* copyName) {
  Call("ZarExportPrivKeyFunc(AT_SIGNATURE)");
  test::PrivateKeyInfo info(original.Get(), actor.keySpec);
  Expect(info.Get()->Algorithm.pszObjId == std::string(actor.keyOid),
         std::string("a PKCS #8 key of algorithm ") + actor.keyOid);
  Copy result{std::move(original), NewContainer(copyName, actor.providerType)};
  ImportInto(result.copy, info.Get());
  Expect(test::Export(test::UserKey(result.original, actor.keySpec), PUBLICKEYBLOB) ==
             test::Export(test::UserKey(result.copy, actor.keySpec), PUBLICKEYBLOB),
         "both containers have the same public key");
  return result;
}

Octets Sign(const test::Context& context, ALG_ID hash, const Octets& data) {
  Call("CryptSignHash(" + test::TextParam(context, PP_CONTAINER) + ")");
  return test::SignData(context, AT_SIGNATURE, hash, data);
}

void VerifyWith(const test::Context& context, ALG_ID hash, const Octets& data,
                const Octets& signature, const char* what) {
  Call("CryptVerifySignature(" + test::TextParam(context, PP_CONTAINER) + ")");
  const test::Key key = test::UserKey(context, AT_SIGNATURE);
  ExpectCode(0, test::VerifyCode(context, key.Get(), hash, data, signature), what);
}

}  // namespace

void MovePrivateKey() {
  Note(
      "functions for private keys are called as the framework would call them; Wine's never does, "
      "Windows' does in CryptExportPKCS8 and CryptImportPKCS8");
  const Octets data = {'s', 'i', 'g', 'n', ' ', 't', 'h', 'i', 's'};
  const Copy national = CopyKey(kNational, OpenContainer(kNational), kNationalCopy);
  const Octets byOriginal = Sign(national.original, kNationalHash, data);
  const Octets byCopy = Sign(national.copy, kNationalHash, data);
  Note("a signature of this kind has a random part, so that no two are equal");
  VerifyWith(national.copy, kNationalHash, data, byOriginal, "the copy takes the original's");
  VerifyWith(national.original, kNationalHash, data, byCopy, "the original takes the copy's");

  test::Context original = NewContainer(kMakersRsa);
  (void)GenerateKey(original, kMakersRsa);
  const Copy rsa = CopyKey(kMakersRsa, std::move(original), kMakersRsaCopy);
  const Octets byRsaOriginal = Sign(rsa.original, CALG_SHA_256, data);
  const Octets byRsaCopy = Sign(rsa.copy, CALG_SHA_256, data);
  Expect(byRsaOriginal == byRsaCopy, "both RSA signatures are the same, octet for octet");
}

}  // namespace zarext::demo
