#include "e2e/soak_worker.h"

#include <vector>

namespace zarext::test {
namespace {

std::vector<void*>& Blocks() {
  static thread_local std::vector<void*> blocks;
  return blocks;
}

}  // namespace

std::atomic<long>& WrongCalls() {
  static std::atomic<long> calls{0};
  return calls;
}

HCRYPTKEY& LastImported() {
  static thread_local HCRYPTKEY key = 0;
  return key;
}

void* WINAPI AllocateForSoak(size_t size) {
  Blocks().push_back(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size));
  return Blocks().back();
}

const std::array<SoakWorker::Operation, 24> SoakWorker::kOperations = {{
    {"ZarCryptEncodeObject",
     [](SoakWorker& worker) { return worker.PassThrough("ZarCryptEncodeObject"); }},
    {"ZarCryptEncodeObjectEx",
     [](SoakWorker& worker) { return worker.PassThrough("ZarCryptEncodeObjectEx"); }},
    {"ZarCryptDecodeObject",
     [](SoakWorker& worker) { return worker.PassThrough("ZarCryptDecodeObject"); }},
    {"ZarCryptFormatObject",
     [](SoakWorker& worker) { return worker.PassThrough("ZarCryptFormatObject"); }},
    {"ZarCertVerifyRevocation",
     [](SoakWorker& worker) { return worker.PassThrough("ZarCertVerifyRevocation"); }},
    {"ZarCertVerifyCTLUsage",
     [](SoakWorker& worker) { return worker.PassThrough("ZarCertVerifyCTLUsage"); }},
    {"ZarCryptFindLocalizedName", [](SoakWorker& worker) { return worker.LocalizedName(); }},
    {"ZarExportPublicKeyInfo", [](SoakWorker& worker) { return worker.ExportPublic(); }},
    {"ZarExportPublicKeyInfoEx", [](SoakWorker& worker) { return worker.ExportPublicEx(); }},
    {"ZarImportPublicKeyInfo", [](SoakWorker& worker) { return worker.ImportPublic(); }},
    {"ZarImportPublicKeyInfoEx", [](SoakWorker& worker) { return worker.ImportPublicEx(); }},
    {"ZarConvertPublicKeyInfo", [](SoakWorker& worker) { return worker.Convert(); }},
    {"ZarEncodePublicKeyAndParameters", [](SoakWorker& worker) { return worker.Encode(); }},
    {"ZarExportPrivKeyFunc", [](SoakWorker& worker) { return worker.ExportPrivate(); }},
    {"ZarImportPrivKeyFunc", [](SoakWorker& worker) { return worker.ImportPrivate(); }},
    {"ZarMsgGenContentEncryptKey", [](SoakWorker& worker) { return worker.GenerateForMessage(); }},
    {"ZarGenEncryptKey", [](SoakWorker& worker) { return worker.Generate(); }},
    {"ZarMsgExportKeyTrans", [](SoakWorker& worker) { return worker.ExportForMessage(); }},
    {"ZarExportEncryptKey", [](SoakWorker& worker) { return worker.ExportForKey(); }},
    {"ZarImportEncryptKey", [](SoakWorker& worker) { return worker.ImportEncoded(); }},
    {"ZarMsgImportKeyTrans", [](SoakWorker& worker) { return worker.ImportForMessage(); }},
    {"ZarOpenStoreProv and callbacks", [](SoakWorker& worker) { return worker.UseStore(); }},
    {"SetOtherCert, SetSelfCert, DelOtherCert",
     [](SoakWorker& worker) { return worker.UseSystemStores(); }},
    {"DllRegisterServer, DllUnregisterServer",
     [](SoakWorker& worker) { return worker.Registration(); }},
}};

SoakWorker::SoakWorker(unsigned seed)
    : random_(seed), mine_(MakeCertificate({.serial = {0x5A, static_cast<std::uint8_t>(seed)}})) {
  CryptGenKey(context_.Get(), 0x681F, CRYPT_EXPORTABLE, &contentKey_);
  bits_.resize(80, 0x22);
  octetString_.assign(66, 0x33);
  octetString_[0] = 0x04;
  octetString_[1] = 0x40;
  wrapped_.assign(180, 0x44);
  block_.resize(4096);
}

SoakWorker::~SoakWorker() { CryptDestroyKey(contentKey_); }

void SoakWorker::Run(long calls, Counts& counts) {
  for (long done = 0; done < calls;) {
    const unsigned choice = random_() % 20000;
    const std::size_t operation = choice == 0     ? 23
                                  : choice <= 10  ? 22
                                  : choice <= 600 ? 21
                                                  : choice % 21;
    const int made = kOperations[operation].call(*this);
    counts[operation] += made;
    done += made;
    NextFailure() = {};
    for (void* block : Blocks()) HeapFree(GetProcessHeap(), 0, block);
    Blocks().clear();
  }
}

bool SoakWorker::Fail(const char* function) {
  if (!Sometimes()) return false;
  NextFailure().function = function;
  // Above the platform's own codes: one of those has a meaning.
  NextFailure().code = 0x80091000U + random_() % 0x7000;
  return true;
}

CERT_PUBLIC_KEY_INFO SoakWorker::Info(const char* oid, Octets& bits) {
  CERT_PUBLIC_KEY_INFO info = {};
  info.Algorithm.pszObjId = const_cast<char*>(oid);
  info.PublicKey = {static_cast<DWORD>(bits.size()), bits.data(), 0};
  return info;
}

}  // namespace zarext::test
