// Where the framework of the tests is not Windows': each gap that a harmless call shows. The day
// that Wine closes one, its test says so, and the patch for it is used no longer.
#include <gtest/gtest.h>

#include "support/framework_patches/framework_patches.h"
#include "support/platform.h"
#include "support/store_fixes.h"

namespace zarext::test {
namespace {

TEST(FrameworkGaps, RecordsOf48OctetsAreRefused) { EXPECT_EQ(IsWine(), RefusesShortRecords()); }

TEST(FrameworkGaps, PhysicalStoresAreNotKept) { EXPECT_EQ(IsWine(), HasNoPhysicalStores()); }

TEST(FrameworkGaps, AWalkThatDeletesDoesNotEnd) {
  EXPECT_EQ(IsWine(), EnumerationRepeatsADeletedCertificate());
}

}  // namespace
}  // namespace zarext::test
