// Enveloped messages through the framework's functions.
#ifndef ZAREXT_TESTS_SUPPORT_ENVELOPED_MESSAGE_H_
#define ZAREXT_TESTS_SUPPORT_ENVELOPED_MESSAGE_H_

#include <windows.h>

#include <wincrypt.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <vector>

#include "support/import_patch.h"
#include "support/platform.h"
#include "support/provider_calls.h"

namespace zarext::test {

// When the key generation fails, Wine's message layer releases a message record that it has filled
// only in part: the memory behind its recipients and the key is whatever the heap held. With zeroed
// memory the clean-up is harmless, and its refused destruction of key 0 leaves the 87 that callers
// see. Nothing of it on Windows.
class ZeroedFrameworkMemory {
 public:
  ZeroedFrameworkMemory() {
    if (IsWine()) {
      patch_.emplace(GetModuleHandleA("crypt32.dll"), "ucrtbase.dll", "malloc", &Allocate);
    }
  }

 private:
  static void* Allocate(std::size_t size) {
    using CAlloc = void*(std::size_t, std::size_t);
    static const auto allocate = reinterpret_cast<CAlloc*>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("ucrtbase.dll"), "calloc")));
    return allocate(1, size);
  }

  std::optional<ImportPatch> patch_;
};

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

  BOOL Decrypt(HCRYPTPROV provider, DWORD recipient = 0) const {
    CMSG_CTRL_DECRYPT_PARA para = {};
    para.cbSize = sizeof para;
    para.hCryptProv = provider;
    para.dwKeySpec = AT_KEYEXCHANGE;
    para.dwRecipientIndex = recipient;
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

// A definite-length DER element within octets: where it, its content and what follows it begin.
struct DerElement {
  std::size_t begin;
  std::size_t content;
  std::size_t end;
};
inline DerElement ReadElement(const Octets& octets, std::size_t begin) {
  std::size_t content = begin + 2;
  std::size_t size = octets.at(begin + 1);
  if (size > 0x80) {
    const std::size_t count = size - 0x80;
    size = 0;
    for (std::size_t i = 0; i < count; ++i) {
      size = size << 8 | octets.at(content++);
    }
  }
  return {begin, content, content + size};
}

// The same message with the first recipient's record behind the second's: they are a SET, and
// Wine hands out the one that comes first, whichever is asked for.
inline Octets SecondRecipientFirst(Octets message) {
  const auto contentType = ReadElement(message, ReadElement(message, 0).content);
  const auto enveloped = ReadElement(message, ReadElement(message, contentType.end).content);
  const auto version = ReadElement(message, enveloped.content);
  const auto first = ReadElement(message, ReadElement(message, version.end).content);
  const auto second = ReadElement(message, first.end);
  const auto place = [&](std::size_t at) { return message.begin() + static_cast<long long>(at); };
  std::rotate(place(first.begin), place(second.begin), place(second.end));
  return message;
}

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_ENVELOPED_MESSAGE_H_
