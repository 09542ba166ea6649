// Owners for advapi32's handles, and its calls in the two steps that they take. Each throws
// CallFailed where it fails.
#ifndef ZAREXT_TESTS_SUPPORT_PROVIDER_CALLS_H_
#define ZAREXT_TESTS_SUPPORT_PROVIDER_CALLS_H_

#include <windows.h>

#include <wincrypt.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace zarext::test {

using Octets = std::vector<std::uint8_t>;

// Thrown where a call that has to work for the test to go on did not.
class CallFailed : public std::runtime_error {
 public:
  CallFailed(const char* call, DWORD code)
      : std::runtime_error(std::string(call) + " failed: " + std::to_string(code)), code_(code) {}
  [[nodiscard]] DWORD Code() const { return code_; }

 private:
  DWORD code_;
};

inline void Must(BOOL result, const char* call) {
  if (!result) throw CallFailed(call, GetLastError());
}

// The last error of a call that failed, or kNoCode where it left 0; 0 if it did not fail.
inline constexpr DWORD kNoCode = 0xFFFFFFFF;
inline DWORD CodeOf(BOOL result) {
  if (result) return 0;
  const DWORD code = GetLastError();
  return code != 0 ? code : kNoCode;
}

template <typename Handle, auto release>
class Owner {
 public:
  Owner() = default;
  explicit Owner(Handle handle) : handle_(handle) {}
  ~Owner() { Reset(); }
  Owner(const Owner&) = delete;
  Owner& operator=(const Owner&) = delete;
  Owner(Owner&& other) noexcept : handle_(std::exchange(other.handle_, 0)) {}
  Owner& operator=(Owner&& other) noexcept {
    Reset();
    handle_ = std::exchange(other.handle_, 0);
    return *this;
  }
  [[nodiscard]] Handle Get() const { return handle_; }
  Handle* Out() {
    Reset();
    return &handle_;
  }
  void Reset() {
    if (handle_ != 0) release(handle_);
    handle_ = 0;
  }

 private:
  Handle handle_ = 0;
};

inline void ReleaseProvider(HCRYPTPROV provider) { CryptReleaseContext(provider, 0); }
using Context = Owner<HCRYPTPROV, &ReleaseProvider>;
using Key = Owner<HCRYPTKEY, &CryptDestroyKey>;
using HashHandle = Owner<HCRYPTHASH, &CryptDestroyHash>;

inline Context Acquire(const char* container, DWORD flags, DWORD type = 25) {
  Context context;
  Must(CryptAcquireContextA(context.Out(), container, type == 1 ? "Zarvel CSP RSA" : "Zarvel CSP",
                            type, flags),
       "CryptAcquireContext");
  return context;
}

inline Context NewContainer(const char* container, DWORD type = 25) {
  return Acquire(container, CRYPT_NEWKEYSET, type);
}

inline Key Generate(const Context& context, ALG_ID algorithm, DWORD flags = 0) {
  Key key;
  Must(CryptGenKey(context.Get(), algorithm, flags, key.Out()), "CryptGenKey");
  return key;
}

inline Key UserKey(const Context& context, DWORD keySpec) {
  Key key;
  Must(CryptGetUserKey(context.Get(), keySpec, key.Out()), "CryptGetUserKey");
  return key;
}

inline Key Import(const Context& context, const Octets& blob, HCRYPTKEY other = 0,
                  DWORD flags = 0) {
  Key key;
  Must(CryptImportKey(context.Get(), blob.data(), static_cast<DWORD>(blob.size()), other, flags,
                      key.Out()),
       "CryptImportKey");
  return key;
}

// The code that an import fails with; 0 if it works.
inline DWORD ImportCode(const Context& context, const Octets& blob, HCRYPTKEY other = 0) {
  Key key;
  return CodeOf(CryptImportKey(context.Get(), blob.data(), static_cast<DWORD>(blob.size()), other,
                               0, key.Out()));
}

// Runs a call of the platform's size protocol twice: call(buffer, &length).
template <typename Call>
Octets Fetch(const char* name, Call call) {
  DWORD length = 0;
  Must(call(nullptr, &length), name);
  Octets out(length);
  Must(call(out.data(), &length), name);
  out.resize(length);
  return out;
}

inline Octets Export(const Key& key, DWORD type, HCRYPTKEY other = 0) {
  return Fetch("CryptExportKey", [&](BYTE* data, DWORD* length) {
    return CryptExportKey(key.Get(), other, type, 0, data, length);
  });
}

inline HashHandle StartHash(const Context& context, ALG_ID algorithm, const Octets& data) {
  HashHandle hash;
  Must(CryptCreateHash(context.Get(), algorithm, 0, 0, hash.Out()), "CryptCreateHash");
  Must(CryptHashData(hash.Get(), data.data(), static_cast<DWORD>(data.size()), 0), "CryptHashData");
  return hash;
}

inline Octets HashValue(const HashHandle& hash) {
  return Fetch("CryptGetHashParam", [&](BYTE* data, DWORD* length) {
    return CryptGetHashParam(hash.Get(), HP_HASHVAL, data, length, 0);
  });
}

inline Octets SignData(const Context& context, DWORD keySpec, ALG_ID algorithm,
                       const Octets& data) {
  const HashHandle hash = StartHash(context, algorithm, data);
  return Fetch("CryptSignHash", [&](BYTE* out, DWORD* length) {
    return CryptSignHashA(hash.Get(), keySpec, nullptr, 0, out, length);
  });
}

// 0 if the signature is right.
inline DWORD VerifyCode(const Context& context, HCRYPTKEY key, ALG_ID algorithm, const Octets& data,
                        const Octets& signature) {
  const HashHandle hash = StartHash(context, algorithm, data);
  return CodeOf(CryptVerifySignatureA(hash.Get(), signature.data(),
                                      static_cast<DWORD>(signature.size()), key, nullptr, 0));
}

// Whole content, padded.
inline Octets Encrypt(HCRYPTKEY key, Octets octets) {
  auto size = static_cast<DWORD>(octets.size());
  octets.resize(size + 64);
  Must(CryptEncrypt(key, 0, TRUE, 0, octets.data(), &size, static_cast<DWORD>(octets.size())),
       "CryptEncrypt");
  octets.resize(size);
  return octets;
}

inline Octets Decrypt(HCRYPTKEY key, Octets octets) {
  auto size = static_cast<DWORD>(octets.size());
  Must(CryptDecrypt(key, 0, TRUE, 0, octets.data(), &size), "CryptDecrypt");
  octets.resize(size);
  return octets;
}

inline std::string TextParam(const Context& context, DWORD parameter) {
  const Octets octets = Fetch("CryptGetProvParam", [&](BYTE* data, DWORD* length) {
    return CryptGetProvParam(context.Get(), parameter, data, length, 0);
  });
  return reinterpret_cast<const char*>(octets.data());
}

inline DWORD NumberParam(const Context& context, DWORD parameter) {
  DWORD value = 0;
  DWORD length = sizeof(value);
  Must(CryptGetProvParam(context.Get(), parameter, reinterpret_cast<BYTE*>(&value), &length, 0),
       "CryptGetProvParam");
  return value;
}

inline DWORD KeyNumberParam(const Key& key, DWORD parameter) {
  DWORD value = 0;
  DWORD length = sizeof(value);
  Must(CryptGetKeyParam(key.Get(), parameter, reinterpret_cast<BYTE*>(&value), &length, 0),
       "CryptGetKeyParam");
  return value;
}

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_PROVIDER_CALLS_H_
