#include "demo/actors.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "demo/steps.h"
#include "support/issued_certificate.h"
#include "support/module_under_test.h"

namespace zarext::demo {
namespace {

constexpr std::array kAllContainers = {kNational.container,  kMaker.container,     kRsa.container,
                                       kAuthority.container, kSender.container,    kFirst.container,
                                       kSecond.container,    kMakersRsa.container, kNationalCopy,
                                       kMakersRsaCopy};
constexpr char kProvider[] = "Zarvel CSP";

std::string Variable(const char* name) {
  char value[MAX_PATH] = {};
  const DWORD length = GetEnvironmentVariableA(name, value, sizeof value);
  return {value, length < sizeof value ? length : 0};
}

Octets ReadWhole(const std::string& path) {
  const UniqueFile file(std::fopen(path.c_str(), "rb"));
  if (!file) {
    throw std::runtime_error("cannot read " + path);
  }
  Octets octets(65536);
  octets.resize(std::fread(octets.data(), 1, octets.size(), file.Get()));
  return octets;
}

std::string HandedOnPath(const Actor& actor) {
  char folder[MAX_PATH] = {};
  GetTempPathA(sizeof folder, folder);
  return std::string(folder) + actor.container + ".cer";
}

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

test::Context Acquire(const char* container, DWORD providerType, DWORD flags) {
  Call("CryptAcquireContext(" + Quoted(container) + ", type " + std::to_string(providerType) +
       (flags == CRYPT_NEWKEYSET ? ", CRYPT_NEWKEYSET)" : ")"));
  return test::Acquire(container, flags, providerType);
}

}  // namespace

Host::Host() : provider_(test::Acquire(nullptr, CRYPT_VERIFYCONTEXT)), fixes_(test::Module()) {}

test::Context NewContainer(const char* container, DWORD providerType) {
  return Acquire(container, providerType, CRYPT_NEWKEYSET);
}

test::Context NewContainer(const Actor& actor) {
  return NewContainer(actor.container, actor.providerType);
}

test::Context OpenContainer(const Actor& actor) {
  return Acquire(actor.container, actor.providerType, 0);
}

test::Key GenerateKey(const test::Context& context, const Actor& actor) {
  Call("CryptGenKey(0x" + Hex(actor.algorithm) + ", CRYPT_EXPORTABLE)");
  return test::Generate(context, actor.algorithm, CRYPT_EXPORTABLE);
}

Octets ReadCertificate(const std::string& name) {
  return ReadWhole(Variable(kCertificatesVariable) + "\\" + name);
}

Octets ReadHandedOn(const Actor& actor) { return ReadWhole(HandedOnPath(actor)); }

void HandOn(const Actor& actor, const Octets& certificate) {
  const UniqueFile file(std::fopen(HandedOnPath(actor).c_str(), "wb"));
  if (!file ||
      std::fwrite(certificate.data(), 1, certificate.size(), file.Get()) != certificate.size()) {
    throw std::runtime_error("cannot write " + HandedOnPath(actor));
  }
}

std::string SubjectName(PCCERT_CONTEXT certificate) {
  wchar_t name[256] = {};
  CertGetNameStringW(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, name, 256);
  return Utf8(name);
}

DWORD Verify(const UniqueCertContext& certificate, const UniqueCertContext& issuer) {
  Call("CryptVerifyCertificateSignatureEx(\"" + SubjectName(certificate.Get()) + "\", issuer \"" +
       SubjectName(issuer.Get()) + "\")");
  return test::CertificateSignatureCode(certificate.Get(), issuer.Get());
}

// What is not there cannot be deleted, and need not be.
void CleanUp() {
  for (const char* container : kAllContainers) {
    HCRYPTPROV none = 0;
    (void)CryptAcquireContextA(&none, container, kProvider, 25, CRYPT_DELETEKEYSET);
  }
  for (const Actor& actor : {kNational, kMaker, kRsa, kAuthority}) {
    std::error_code ignored;
    std::filesystem::remove(HandedOnPath(actor), ignored);
  }
}

}  // namespace zarext::demo
