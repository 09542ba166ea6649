#include <gmock/gmock.h>

#include "support/recording_provider.h"

namespace zarext::test {
namespace {

TEST(ScriptedProvider, AnswersBehindTheRealFramework) {
  RecordingProvider provider;
  UseScript(&provider);
  {
    const ProviderContext context;
    EXPECT_EQ(0x1001u, context.Own());
    HCRYPTKEY key = 0;
    ASSERT_TRUE(CryptGetUserKey(context.Get(), 2, &key));
    EXPECT_EQ(0x2001u, OwnKey(key));
    CryptDestroyKey(key);
  }
  UseScript(nullptr);
  EXPECT_THAT(
      provider.Calls(),
      testing::ElementsAre("AcquireContext(null, f0000000) = 1001", "GetUserKey(1001, 2) = 2001",
                           "DestroyKey(1001, 2001)", "ReleaseContext(1001, 0)"));
}

}  // namespace
}  // namespace zarext::test
