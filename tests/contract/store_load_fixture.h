// An open of the provider store that loads the containers' certificates.
#ifndef ZAREXT_TESTS_CONTRACT_STORE_LOAD_FIXTURE_H_
#define ZAREXT_TESTS_CONTRACT_STORE_LOAD_FIXTURE_H_

#include <algorithm>
#include <string>
#include <vector>

#include "store_fixture.h"

namespace zarext::test {

class StoreLoad : public StoreTest {
 public:
  // The lines between the open's first and last.
  [[nodiscard]] std::vector<std::string> LoadLines() const {
    auto lines = trace.Messages();
    EXPECT_GE(lines.size(), 2u);
    lines.erase(lines.begin());
    EXPECT_EQ("EXT : ZarOpenStoreProv : FINISH", lines.back());
    lines.pop_back();
    return lines;
  }
  // Opens, and gives what the store then holds.
  std::vector<StoredCertificate> Load() {
    const MemoryStore store;
    EXPECT_EQ(1, Open(store));
    return Content(store.Get());
  }
};

inline bool RootStoreHolds(const Octets& certificate) {
  const UniqueCertStore<0> root(
      CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"ROOT"));
  const auto all = Encodings(root.Get());
  return std::find(all.begin(), all.end(), certificate) != all.end();
}

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_CONTRACT_STORE_LOAD_FIXTURE_H_
