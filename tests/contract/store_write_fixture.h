// An open store whose write callback is called.
#ifndef ZAREXT_TESTS_CONTRACT_STORE_WRITE_FIXTURE_H_
#define ZAREXT_TESTS_CONTRACT_STORE_WRITE_FIXTURE_H_

#include <string>

#include "contract/store_fixture.h"

namespace zarext::test {

using WriteFunction = BOOL WINAPI(HCERTSTOREPROV, PCCERT_CONTEXT, DWORD);

class StoreWrite : public StoreTest {
 public:
  StoreWrite() {
    EXPECT_EQ(1, Open(store));
    provider.ClearCalls();
    trace.Clear();
  }
  BOOL Write(const Octets& certificate) {
    const UniqueCertContext context = MakeContext(certificate);
    EXPECT_TRUE(context);
    SetLastError(4711);
    const BOOL written = Callback<WriteFunction>(2)(store.Get(), context.Get(), 1);
    lastError = GetLastError();
    return written;
  }
  // Three containers with a key each, without certificates; chains are empty.
  void AddThree() {
    AddContainer("c1", {KeyWith(0x11, {}, {})});
    AddContainer("c2", {KeyWith(0x21, {}, {})});
    AddContainer("c3", {KeyWith(0x31, {}, {})});
  }
  int Opened(const std::string& url) const {
    return provider.CountCalls("AcquireContext(" + url + ",");
  }
  MemoryStore store;
  DWORD lastError = 0;  // behind the last Write, which starts with 4711
  const Octets leaf = MakeCertificate({.serial = {0x12, 0x34, 0x56}});
  const Octets root = MakeCertificate({.serial = {0x77}, .issuer = "Root", .subject = "Root"});
};

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_STORE_WRITE_FIXTURE_H_
