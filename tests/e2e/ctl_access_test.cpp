// Who may write, by an access list. The tests' platform keeps none with its files, so that the list
// is judged by itself.
#include <gmock/gmock.h>
#include <windows.h>

#include <sddl.h>

#include "frame/handles.h"
#include "zarextctl/file_facts.h"

namespace zarext::test {
namespace {

struct Row {
  const char* list;
  std::vector<std::string> groups;
};

class Access : public testing::TestWithParam<Row> {};

TEST_P(Access, OfBroadGroups) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorA(GetParam().list, SDDL_REVISION_1,
                                                                   &descriptor, nullptr));
  const UniqueLocalMemory owner(descriptor);
  PACL list = nullptr;
  BOOL isThere = FALSE;
  BOOL isDefault = FALSE;
  ASSERT_TRUE(GetSecurityDescriptorDacl(descriptor, &isThere, &list, &isDefault));
  EXPECT_EQ(GetParam().groups, ctl::BroadGroupsIn(list, FILE_WRITE_DATA | DELETE));
}

INSTANTIATE_TEST_SUITE_P(Lists, Access,
                         testing::Values(Row{"D:(A;;FA;;;WD)", {"Everyone"}},
                                         Row{"D:(A;;FA;;;AU)", {"Authenticated Users"}},
                                         Row{"D:(A;;FW;;;BU)(A;;SD;;;IU)",
                                             {"Users", "Interactive"}},
                                         Row{"D:(A;;FW;;;WD)(A;;SD;;;WD)", {"Everyone"}},
                                         Row{"D:(A;;FR;;;WD)", {}},    // reads
                                         Row{"D:(D;;FA;;;WD)", {}},    // is denied
                                         Row{"D:(A;IO;FA;;;WD)", {}},  // for what is made below
                                         Row{"D:(A;;FA;;;BA)", {}},    // administrators
                                         Row{"D:", {}}));

TEST(AccessList, WithoutAListIsEveryones) {
  EXPECT_EQ(std::vector<std::string>{"Everyone"}, ctl::BroadGroupsIn(nullptr, FILE_WRITE_DATA));
}

}  // namespace
}  // namespace zarext::test
