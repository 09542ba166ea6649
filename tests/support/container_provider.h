// A provider with containers, keys and certificates that a test describes, behind the scripted
// provider DLL. It records every call with its arguments and fails where the test says so.
#ifndef ZAREXT_TESTS_SUPPORT_CONTAINER_PROVIDER_H_
#define ZAREXT_TESTS_SUPPORT_CONTAINER_PROVIDER_H_

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/event_log.h"
#include "support/scripted_provider.h"

namespace zarext::test {

using Octets = std::vector<std::uint8_t>;

// What CPGetProvParam(45) returns, 88 octets.
struct KeyRecord {
  std::uint64_t handle;
  std::uint32_t algorithm;
  std::uint32_t word12;
  std::uint64_t word16;
  const char* container;
  std::uint64_t word32;
  std::uint32_t serialSize;
  std::uint32_t word44;
  const std::uint8_t* serial;
  std::uint64_t words56[2];
  std::uint32_t certificateSize;
  std::uint32_t word76;
  const std::uint8_t* certificate;
};
static_assert(sizeof(KeyRecord) == 88);

struct TestKey {
  std::uint64_t handle = 0;
  std::uint32_t algorithm = 0;
  Octets serial;
  Octets certificate;     // in the record
  Octets chain;           // 69; empty: answered with length 0
  bool hasChain = true;   // false: reading it fails
  Octets ownCertificate;  // 26; empty: reading it fails
  // Makes the record something else before it goes out.
  std::function<void(KeyRecord&)> alter;
};

struct TestContainer {
  std::string name;
  std::string kind = "file";
  std::string secondText;
  std::string thirdText;
  std::vector<TestKey> keys;
};

class ContainerProvider : public ProviderScript {
 public:
  std::vector<TestContainer> containers;
  // Further addresses under which a container can be opened, by its index.
  std::map<std::string, std::size_t> aliases;
  // Changes to what goes out; called after the answer has been written.
  std::function<void(BYTE* record)> alterProfile;
  std::function<void(BYTE* data, DWORD* size)> alterKeyParam;
  // Calls in place of the answer, e.g. to throw.
  std::function<void(const std::string& call)> onCall;
  // What a failed AcquireContext leaves in the place for the context; 0: nothing is written.
  HCRYPTPROV leavesBehind = 0;
  // The handle of the next context; those behind it count on.
  HCRYPTPROV nextContext = 1;
  // Where they are set, lists start over instead of ending.
  bool endlessContainers = false;
  bool endlessKeys = false;

  // The `count`-th call (from 1) of a function fails with `error`, e.g. FailCall("AcquireContext",
  // 2, 5); with a parameter, the count-th call for it: FailCall("GetProvParam 64", 1, 5).
  void FailCall(const std::string& function, int count, DWORD error);

  // One text a call, in order: "AcquireContext(null, f0000000) = 1",
  // "GetProvParam(1, 57, 260, 1) = name", "GetKeyParam(2, 11, 69, 32784, 0)",
  // "SetKeyParam(2, 11, 68, 0)". Contexts are numbered from 1; numbers are decimal but for flags
  // and key handles. A failed call ends with "! <error in hexadecimal>".
  [[nodiscard]] std::vector<std::string> Calls() const { return calls_.Texts(); }
  [[nodiscard]] int CountCalls(const std::string& beginning) const;
  void ClearCalls() { calls_.Clear(); }
  [[nodiscard]] std::size_t OpenContexts() const { return contexts_.size(); }
  // False once a buffer arrived that was not zeroed (but for the address in a profile record).
  [[nodiscard]] bool BuffersWereClean() const { return buffersWereClean_; }
  DWORD providerType = 25;  // PP_PROVTYPE
  // False for runs that only count time.
  bool records = true;

  BOOL AcquireContext(HCRYPTPROV* provider, const char* container, DWORD flags,
                      void* table) override;
  BOOL ReleaseContext(HCRYPTPROV provider, DWORD flags) override;
  BOOL GetProvParam(HCRYPTPROV provider, DWORD parameter, BYTE* data, DWORD* size,
                    DWORD flags) override;
  BOOL GetKeyParam(HCRYPTPROV provider, HCRYPTKEY key, DWORD parameter, BYTE* data, DWORD* size,
                   DWORD flags) override;
  BOOL SetKeyParam(HCRYPTPROV provider, HCRYPTKEY key, DWORD parameter, const BYTE* data,
                   DWORD flags) override;

  // What SetKeyParam was given: the octets of the DER element there.
  std::vector<Octets> written;
  // Whether a written certificate becomes the key's, as a real provider has it.
  bool keepsWritten = true;

 private:
  struct Context {
    TestContainer* container;
    std::size_t next = 0;
  };
  template <typename Work>
  BOOL Record(const std::string& function, const std::string& detail, const std::string& arguments,
              Work work);
  DWORD NextContainer(Context& context, BYTE* data, DWORD* size, std::string& text);
  DWORD NextKey(Context& context, BYTE* data, DWORD* size);
  DWORD Profile(BYTE* data, std::string& text);
  TestKey* FindKey(HCRYPTPROV provider, HCRYPTKEY key);
  TestContainer* FindContainer(const std::string& url);

  std::map<std::string, int> counts_;
  std::map<std::string, std::map<int, DWORD>> failures_;
  EventView calls_{EventKind::kProvider, this};
  std::map<HCRYPTPROV, Context> contexts_;
  bool buffersWereClean_ = true;
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_CONTAINER_PROVIDER_H_
