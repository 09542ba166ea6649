// zarextctl where no process has the module loaded, and so no shared section is there.
#include "e2e/ctl_fixture.h"

namespace zarext::test {
namespace {

class Unloaded : public CtlTest {
 protected:
  // Neither this process nor a child of an earlier test has it.
  void SetUp() override {
    const UniqueKernelObject section(
        OpenFileMappingA(FILE_MAP_READ, FALSE, "$zarvel_csp_store_map_name"));
    ASSERT_FALSE(section);
  }
};

TEST_F(Unloaded, TheListingIsAbsent) {
  ExpectGolden("cache-absent", RunTool({"cache"}));
  ExpectGolden("cache-absent-json", RunTool({"cache", "--json"}));
  EXPECT_THAT(
      RunTool({"status"}).out,
      testing::HasSubstr(
          "\nlisting     absent: no process of this session has the module loaded\n\nnote: "));
}

}  // namespace
}  // namespace zarext::test
