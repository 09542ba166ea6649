#include <gmock/gmock.h>
#include <windows.h>

#include <wincrypt.h>

#include "support/module_under_test.h"
#include "support/recording_provider.h"
#include "support/trace_capture.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;

TEST(PassThrough, DecodeObjectTracesAndWritesNothing) {
  auto* decode = Export<BOOL WINAPI(DWORD, LPCSTR, const BYTE*, DWORD, DWORD, void*, DWORD*)>(
      "ZarCryptDecodeObject");
  DWORD size = 77;
  char output[4] = {1, 2, 3, 4};
  TraceCapture trace;
  EXPECT_EQ(TRUE, decode(0x10001, "1.2", nullptr, 5, 0, output, &size));
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre("EXT : ZarCryptDecodeObject : dwCertEncodingType = 10001 (cbEncoded=5)."));
  EXPECT_EQ(77u, size);
  EXPECT_THAT(output, ElementsAre(1, 2, 3, 4));
}

TEST(ScriptedProvider, AnswersBehindTheRealFramework) {
  RecordingProvider provider;
  UseScript(&provider);
  {
    ProviderContext context;
    HCRYPTKEY key = 0;
    ASSERT_TRUE(CryptGetUserKey(context.Get(), 2, &key));
    CryptDestroyKey(key);
  }
  UseScript(nullptr);
  EXPECT_THAT(provider.Calls(),
              ElementsAre("AcquireContext(null, f0000000) = 1001", "GetUserKey(1001, 2) = 2001",
                          "DestroyKey(1001, 2001)", "ReleaseContext(1001, 0)"));
}

}  // namespace
}  // namespace zarext::test
