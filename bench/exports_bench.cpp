// What the exports that carry keys add to the calls that they wrap: one run of each with the
// development provider behind the real advapi32. The time inside the provider's functions and
// inside the debugger output is taken at the module's imports; the rest is the module's own.
//
// Run as exports_bench.exe --child=Bench: the test support's entry point is linked in.
#include <stdio.h>

#include <algorithm>
#include <functional>

#include "bench/support/ratio.h"
#include "bench/support/timed_import.h"
#include "contract/provider_fixture.h"
#include "support/child_process.h"
#include "support/module_under_test.h"

namespace zarext::test {
namespace {

using bench::Median;

long long inProvider = 0;
long long inOutput = 0;

// Every call of the module into the provider, and the debugger output.
struct TimedImports {
  Timed<CryptGetProvParam, &inProvider> getProvParam{"ADVAPI32.dll", "CryptGetProvParam"};
  Timed<CryptSetProvParam, &inProvider> setProvParam{"ADVAPI32.dll", "CryptSetProvParam"};
  Timed<CryptGetUserKey, &inProvider> getUserKey{"ADVAPI32.dll", "CryptGetUserKey"};
  Timed<CryptExportKey, &inProvider> exportKey{"ADVAPI32.dll", "CryptExportKey"};
  Timed<CryptImportKey, &inProvider> importKey{"ADVAPI32.dll", "CryptImportKey"};
  Timed<CryptDestroyKey, &inProvider> destroyKey{"ADVAPI32.dll", "CryptDestroyKey"};
  Timed<CryptGenKey, &inProvider> genKey{"ADVAPI32.dll", "CryptGenKey"};
  Timed<OutputDebugStringA, &inOutput> output{"KERNEL32.dll", "OutputDebugStringA"};
};

void Row(const char* name, const std::function<BOOL()>& call, const std::function<void()>& after) {
  constexpr int kRounds = 201;
  constexpr double kAim = 1.05;
  std::vector<double> totals;
  std::vector<double> provider;
  std::vector<double> output;
  std::vector<double> own;
  std::vector<double> ratios;
  for (int round = 0; round < kRounds; ++round) {
    inProvider = 0;
    inOutput = 0;
    const long long start = Ticks();
    Must(call(), name);
    const double total = Microseconds(Ticks() - start);
    after();
    totals.push_back(total);
    provider.push_back(Microseconds(inProvider));
    output.push_back(Microseconds(inOutput));
    own.push_back(total - provider.back() - output.back());
    ratios.push_back(total / (provider.back() + output.back()));
  }
  printf("| %s | %.1f | %.1f | %.1f | %.1f | %.2f | %.2f |\n", name, Median(totals),
         Median(provider), Median(output), Median(own), Median(ratios), kAim);
}

void PublicKeys() {
  const Context holder = NewContainer("public");
  const Key key = Generate(holder, 0xAA3A);
  auto* exportKey =
      test::Export<BOOL WINAPI(HCRYPTPROV, DWORD, DWORD, LPSTR, DWORD, void*, CERT_PUBLIC_KEY_INFO*,
                               DWORD*)>("ZarExportPublicKeyInfoEx");
  char oid[] = "1.3.6.1.4.1.32473.1.5.8";
  alignas(16) BYTE buffer[1024];
  auto* const info = reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(buffer);
  Row(
      "ZarExportPublicKeyInfoEx",
      [&] {
        DWORD size = sizeof buffer;
        return exportKey(holder.Get(), AT_SIGNATURE, X509_ASN_ENCODING, oid, 0, nullptr, info,
                         &size);
      },
      [] {});
  auto* importKey = test::Export<BOOL WINAPI(HCRYPTPROV, DWORD, CERT_PUBLIC_KEY_INFO*, ALG_ID,
                                             DWORD, void*, HCRYPTKEY*)>("ZarImportPublicKeyInfoEx");
  Key imported;
  Row(
      "ZarImportPublicKeyInfoEx, a whole blob",
      [&] {
        return importKey(holder.Get(), X509_ASN_ENCODING, info, 0, 0, nullptr, imported.Out());
      },
      [&] { imported.Reset(); });
  // The same key as an OCTET STRING, as the other arcs' certificates carry it.
  Octets octets = {0x04, 0x40};
  octets.insert(octets.end(), info->PublicKey.pbData + 16,
                info->PublicKey.pbData + info->PublicKey.cbData);
  CERT_PUBLIC_KEY_INFO rebuilt = {};
  char otherOid[] = "1.2.643.2.2.19";
  rebuilt.Algorithm.pszObjId = otherOid;
  rebuilt.PublicKey = {static_cast<DWORD>(octets.size()), octets.data(), 0};
  Row(
      "ZarImportPublicKeyInfoEx, an OCTET STRING",
      [&] {
        return importKey(holder.Get(), X509_ASN_ENCODING, &rebuilt, 0, 0, nullptr, imported.Out());
      },
      [&] { imported.Reset(); });
}

void PrivateKeys() {
  const Context holder = NewContainer("private");
  const Key key = Generate(holder, 0xAA3A, CRYPT_EXPORTABLE);
  auto* exportKey =
      test::Export<BOOL WINAPI(HCRYPTPROV, DWORD, LPSTR, DWORD, void*, CRYPT_PRIVATE_KEY_INFO*,
                               DWORD*)>("ZarExportPrivKeyFunc");
  alignas(16) BYTE buffer[4096] = {};
  auto* const info = reinterpret_cast<CRYPT_PRIVATE_KEY_INFO*>(buffer);
  Row(
      "ZarExportPrivKeyFunc",
      [&] {
        DWORD size = sizeof buffer;
        return exportKey(holder.Get(), AT_SIGNATURE, nullptr, 0, nullptr, info, &size);
      },
      [] {});
  const Context target = NewContainer("target");
  auto* importKey = test::Export<BOOL WINAPI(HCRYPTPROV, CRYPT_PRIVATE_KEY_INFO*, DWORD, void*)>(
      "ZarImportPrivKeyFunc");
  Row(
      "ZarImportPrivKeyFunc",
      [&] { return importKey(target.Get(), info, CRYPT_EXPORTABLE, nullptr); }, [] {});
}

void ContentKeys() {
  const Context recipient = NewContainer("recipient");
  const Key recipientKey = Generate(recipient, 0xA045);
  Octets blob = test::Export(recipientKey, PUBLICKEYBLOB);
  CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO keyTrans = {};
  char keyOid[] = "1.3.6.1.4.1.32473.1.8.8";
  keyTrans.cbSize = sizeof keyTrans;
  keyTrans.KeyEncryptionAlgorithm.pszObjId = keyOid;
  keyTrans.RecipientPublicKey = {static_cast<DWORD>(blob.size()), blob.data(), 0};
  const Context sender = NewContainer("sender");
  const Key senderKey = Generate(sender, 0xA045);
  Key content = Generate(sender, 0x6611, CRYPT_EXPORTABLE);
  char contentOid[] = "1.3.6.1.4.1.32473.1.2.4";
  CMSG_CONTENT_ENCRYPT_INFO info = {};
  info.cbSize = sizeof info;
  info.hCryptProv = sender.Get();
  info.ContentEncryptionAlgorithm.pszObjId = contentOid;
  info.hContentEncryptKey = content.Get();
  CMSG_RECIPIENT_ENCODE_INFO recipients = {};
  recipients.dwRecipientChoice = CMSG_KEY_TRANS_RECIPIENT;
  recipients.pKeyTrans = &keyTrans;
  info.cRecipients = 1;
  info.rgCmsRecipients = &recipients;
  auto* exportKey =
      test::Export<BOOL WINAPI(CMSG_CONTENT_ENCRYPT_INFO*, CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO*,
                               CMSG_KEY_TRANS_ENCRYPT_INFO*, DWORD, void*)>("ZarMsgExportKeyTrans");
  CMSG_KEY_TRANS_ENCRYPT_INFO output = {};
  Octets encrypted;
  Row(
      "ZarMsgExportKeyTrans",
      [&] {
        output = {};
        output.cbSize = sizeof output;
        return exportKey(&info, &keyTrans, &output, 0, nullptr);
      },
      [&] {
        encrypted.assign(output.EncryptedKey.pbData,
                         output.EncryptedKey.pbData + output.EncryptedKey.cbData);
        LocalFree(output.EncryptedKey.pbData);
      });
  auto* importKey =
      test::Export<BOOL WINAPI(CRYPT_ALGORITHM_IDENTIFIER*, CMSG_CTRL_KEY_TRANS_DECRYPT_PARA*,
                               DWORD, void*, HCRYPTKEY*)>("ZarMsgImportKeyTrans");
  Key imported;
  Row(
      "ZarMsgImportKeyTrans",
      [&] {
        CMSG_KEY_TRANS_RECIPIENT_INFO received = {};
        received.KeyEncryptionAlgorithm = keyTrans.KeyEncryptionAlgorithm;
        received.EncryptedKey = {static_cast<DWORD>(encrypted.size()), encrypted.data()};
        CMSG_CTRL_KEY_TRANS_DECRYPT_PARA para = {};
        para.cbSize = sizeof para;
        para.hCryptProv = recipient.Get();
        para.dwKeySpec = AT_KEYEXCHANGE;
        para.pKeyTrans = &received;
        return importKey(&info.ContentEncryptionAlgorithm, &para, 0, nullptr, imported.Out());
      },
      [&] { imported.Reset(); });
}

ZAREXT_CHILD(Bench) {
  UseDevProvider();
  const DevHome home;
  const TimedImports timed;
  printf(
      "| export | us | in the provider | in the output | own | ratio | aim |\n"
      "| --- | --- | --- | --- | --- | --- | --- |\n");
  PublicKeys();
  PrivateKeys();
  ContentKeys();
  return 0;
}

}  // namespace
}  // namespace zarext::test
