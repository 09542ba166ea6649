// The load test's calls of the functions that pass through and of those for keys.
#include <cstring>

#include "e2e/soak_worker.h"

namespace zarext::test {

int SoakWorker::PassThrough(const char* name) {
  Check(false, 0, [&] {
    return Export<BOOL WINAPI(DWORD, const void*, DWORD, DWORD, void*, void*, DWORD, void*, void*)>(
        name)(1, nullptr, 0, 0, nullptr, nullptr, 0, nullptr, nullptr);
  });
  return 1;
}

int SoakWorker::LocalizedName() {
  Check(false, 0, [] {
    return static_cast<long>(
        *Export<const char * WINAPI(const wchar_t*)>("ZarCryptFindLocalizedName")(L"MY") == '\0');
  });
  return 1;
}

int SoakWorker::ExportPublic() {
  const bool fails = Fail(Sometimes() ? "GetUserKey" : "ExportKey");
  Check(fails, NextFailure().code, [&] {
    DWORD size = 4096;
    return Export<BOOL WINAPI(HCRYPTPROV, DWORD, DWORD, void*, DWORD*)>("ZarExportPublicKeyInfo")(
        context_.Get(), 2, 1, block_.data(), &size);
  });
  return 1;
}

int SoakWorker::ExportPublicEx() {
  const bool fails = Fail(Sometimes() ? "GetProvParam" : "ExportKey");
  Check(fails, NextFailure().code, [&] {
    DWORD size = 0;
    return Export<BOOL WINAPI(HCRYPTPROV, DWORD, DWORD, LPSTR, DWORD, void*, void*, DWORD*)>(
        "ZarExportPublicKeyInfoEx")(context_.Get(), 2, 1, nullptr, 0, nullptr, nullptr, &size);
  });
  return 1;
}

int SoakWorker::ImportPublic() {
  CERT_PUBLIC_KEY_INFO info = Info(kMakersOid, bits_);
  HCRYPTKEY key = 0;
  const bool fails = Fail("ImportKey");
  if (Check(fails, NextFailure().code, [&] {
        return Export<BOOL WINAPI(HCRYPTPROV, DWORD, CERT_PUBLIC_KEY_INFO*, HCRYPTKEY*)>(
            "ZarImportPublicKeyInfo")(context_.Get(), 1, &info, &key);
      })) {
    CryptDestroyKey(key);
  }
  return 1;
}

int SoakWorker::ImportPublicEx() {
  CERT_PUBLIC_KEY_INFO info = Info(kNationalOid, octetString_);
  HCRYPTKEY key = 0;
  const bool fails = Fail("ImportKey");
  if (Check(fails, NextFailure().code, [&] {
        return Export<BOOL WINAPI(HCRYPTPROV, DWORD, CERT_PUBLIC_KEY_INFO*, ALG_ID, DWORD, void*,
                                  HCRYPTKEY*)>("ZarImportPublicKeyInfoEx")(
            context_.Get(), 1, &info, 0x201D, 0, nullptr, &key);
      })) {
    CryptDestroyKey(key);
  }
  return 1;
}

int SoakWorker::Convert() {
  CERT_PUBLIC_KEY_INFO info = Info(kNationalOid, octetString_);
  BYTE* copy = nullptr;
  DWORD size = 0;
  const bool fails = Sometimes();
  Check(fails, ERROR_INVALID_PARAMETER, [&] {
    return Export<BOOL WINAPI(DWORD, CERT_PUBLIC_KEY_INFO*, DWORD, DWORD, BYTE**, DWORD*)>(
        "ZarConvertPublicKeyInfo")(fails ? 2 : 1, &info, 0, 0, &copy, &size);
  });
  LocalFree(copy);
  return 1;
}

int SoakWorker::Encode() {
  Octets blob = {0x06, 0x02, 0x00, 0x00, 0x3A, 0xAA, 0x00, 0x00, 0x01, 0x02};
  BYTE* copy = nullptr;
  DWORD size = 0;
  const bool fails = Sometimes();
  Check(fails, static_cast<DWORD>(NTE_BAD_ALGID), [&] {
    return Export<BOOL WINAPI(DWORD, const char*, BYTE*, DWORD, DWORD, void*, BYTE**, DWORD*,
                              BYTE**, DWORD*)>("ZarEncodePublicKeyAndParameters")(
        1, fails ? "1.2.840.113549.1.1.1" : kMakersOid, blob.data(),
        static_cast<DWORD>(blob.size()), 0, nullptr, &copy, &size, nullptr, nullptr);
  });
  LocalFree(copy);
  return 1;
}

int SoakWorker::ExportPrivate() {
  std::memset(block_.data(), 0, block_.size());
  const bool fails = Fail("ExportKey");
  Check(fails, NextFailure().code, [&] {
    DWORD size = 4096;
    return Export<BOOL WINAPI(HCRYPTPROV, DWORD, LPSTR, DWORD, void*, void*, DWORD*)>(
        "ZarExportPrivKeyFunc")(context_.Get(), 1, nullptr, 0, nullptr, block_.data(), &size);
  });
  return 1;
}

int SoakWorker::ImportPrivate() {
  Octets key = Sometimes() ? kSoakDocument : Octets{1, 2, 3, 4};
  CRYPT_PRIVATE_KEY_INFO info = {};
  info.Algorithm.pszObjId = const_cast<char*>(kMakersOid);
  info.PrivateKey = {static_cast<DWORD>(key.size()), key.data()};
  const bool fails = Fail("ImportKey");
  if (Check(fails, NextFailure().code, [&] {
        return Export<BOOL WINAPI(HCRYPTPROV, CRYPT_PRIVATE_KEY_INFO*, DWORD, void*)>(
            "ZarImportPrivKeyFunc")(context_.Get(), &info, 0, nullptr);
      })) {
    CryptDestroyKey(LastImported());
  }
  return 1;
}

}  // namespace zarext::test
