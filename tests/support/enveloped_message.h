// Enveloped messages through the framework's functions.
#ifndef ZAREXT_TESTS_SUPPORT_ENVELOPED_MESSAGE_H_
#define ZAREXT_TESTS_SUPPORT_ENVELOPED_MESSAGE_H_

#include <windows.h>

#include <wincrypt.h>

#include <cstddef>
#include <vector>

#include "support/import_patch.h"
#include "support/provider_calls.h"

namespace zarext::test {

// When the key generation fails, Wine's message layer releases a message record that it has filled
// only in part: the memory behind its recipients and the key is whatever the heap held. With zeroed
// memory the clean-up is harmless, and its refused destruction of key 0 leaves the 87 that callers
// see.
class ZeroedFrameworkMemory {
 private:
  static void* Allocate(std::size_t size) {
    using CAlloc = void*(std::size_t, std::size_t);
    static const auto allocate = reinterpret_cast<CAlloc*>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("ucrtbase.dll"), "calloc")));
    return allocate(1, size);
  }

  ImportPatch patch_{GetModuleHandleA("crypt32.dll"), "ucrtbase.dll", "malloc", &Allocate};
};

// Wine's message layer passes a shorter record than the documented one. The two fields behind its
// end then lie in a saved register of its caller, xmm6, which may come back changed: said to the
// compiler here.
inline BOOL EncryptMessage(CRYPT_ENCRYPT_MESSAGE_PARA* para,
                           const std::vector<PCCERT_CONTEXT>& recipients, const Octets& content,
                           Octets* message) {
  const auto count = static_cast<DWORD>(recipients.size());
  auto** certificates = const_cast<PCCERT_CONTEXT*>(recipients.data());
  DWORD size = static_cast<DWORD>(content.size()) + 4096;
  message->resize(size);
  const BOOL result =
      CryptEncryptMessage(para, count, certificates, content.data(),
                          static_cast<DWORD>(content.size()), message->data(), &size);
  asm volatile("" ::: "xmm6", "memory");
  message->resize(result ? size : 0);
  return result;
}

// A received message; to be destroyed before its provider is released.
class Message {
 public:
  explicit Message(const Octets& encoded)
      : handle_(CryptMsgOpenToDecode(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, 0, 0, 0, nullptr,
                                     nullptr)) {
    Must(CryptMsgUpdate(handle_, encoded.data(), static_cast<DWORD>(encoded.size()), TRUE),
         "CryptMsgUpdate");
  }
  ~Message() { CryptMsgClose(handle_); }
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;

  BOOL Decrypt(HCRYPTPROV provider) const {
    CMSG_CTRL_DECRYPT_PARA para = {};
    para.cbSize = sizeof para;
    para.hCryptProv = provider;
    para.dwKeySpec = AT_KEYEXCHANGE;
    return CryptMsgControl(handle_, 0, CMSG_CTRL_DECRYPT, &para);
  }
  [[nodiscard]] Octets Content() const {
    return Fetch("CryptMsgGetParam", [&](BYTE* data, DWORD* size) {
      return CryptMsgGetParam(handle_, CMSG_CONTENT_PARAM, 0, data, size);
    });
  }

 private:
  HCRYPTMSG handle_;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_ENVELOPED_MESSAGE_H_
