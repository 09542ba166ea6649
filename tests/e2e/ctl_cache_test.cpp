// zarextctl cache and zarextctl oid.
#include <ctime>

#include "contract/store_fixture.h"
#include "e2e/ctl_fixture.h"

namespace zarext::test {
namespace {

using testing::HasSubstr;

using Cache = CtlTest;
using Oid = CtlTest;

const Octets kBlock = {0x30, 0x1E, 0x30, 0x1C, 0x04, 0x05, 'a',  'l',  'i',  'c',  'e',
                       0x04, 0x03, 0x17, 0x5A, 0x02, 0x04, 0x08, 0x30, 0x06, 0x02, 0x01,
                       0x01, 0x02, 0x01, 0x02, 0x04, 0x04, 0x4A, 0x2A, 0x00, 0x00};

DWORD Now() { return static_cast<DWORD>(std::time(nullptr)); }

// Stamps and ages differ between runs.
const Replacements kTimes = {
    {"stamp: [0-9]+, [0-9]+ seconds? old", "stamp: <time>, <n> seconds old"},
    {"stamp: [0-9]+, stamped", "stamp: <time>, stamped"},
    {"in the future", "in the future"},
    {"[0-9]+ seconds in the", "<n> seconds in the"},
    {"by [a-z_0-9]+\\.exe \\([0-9]+\\)", "by <process>"}};

TEST_F(Cache, AnUnusedSectionWasNeverWritten) {
  Module();
  SharedSection().Wipe();
  ExpectGolden("cache-unused", RunTool({"cache"}));
}

TEST_F(Cache, AListingIsDecoded) {
  Module();
  SharedSection().Put(Now(), kBlock);
  ExpectGolden("cache-listing", RunTool({"cache"}), kTimes);
}

TEST_F(Cache, JsonHasTheSame) {
  Module();
  SharedSection().Put(1000, kBlock);
  ExpectGolden("cache-json", RunTool({"cache", "--json"}),
               {{"\"ageSeconds\": [0-9-]+", "\"ageSeconds\": <n>"}});
}

TEST_F(Cache, AnOldListingAndOneOfTheFutureAreNotUsed) {
  Module();
  SharedSection().Put(Now() - 61, kBlock);
  EXPECT_THAT(RunTool({"cache"}).out, HasSubstr("seconds old: stale, not used"));
  SharedSection().Put(Now() + 100, kBlock);
  EXPECT_THAT(RunTool({"cache"}).out, HasSubstr("seconds in the future: not used"));
}

struct Damage {
  const char* golden;
  DWORD size;  // 0: the block's
  Octets block;
};

TEST_F(Cache, EveryDamageIsNamed) {
  Module();
  const Octets threeElements = {0x30, 0x08, 0x30, 0x06, 0x05, 0x00, 0x05, 0x00, 0x05, 0x00};
  Octets longAlgorithm = {0x30, 0x0D, 0x30, 0x0B, 0x05, 0x00, 0x05, 0x00,
                          0x05, 0x00, 0x04, 0x03, 1,    2,    3};
  const Octets integer = {0x30, 0x0B, 0x30, 0x09, 0x02, 0x01, 0x07,
                          0x05, 0x00, 0x05, 0x00, 0x05, 0x00};
  const Damage damages[] = {
      {"cache-damage-length", 0x40000, kBlock},
      {"cache-damage-start", 0, {0x31, 0x00}},
      {"cache-damage-cut", static_cast<DWORD>(kBlock.size()) - 1, kBlock},
      {"cache-damage-elements", 0, threeElements},
      {"cache-damage-algorithm", 0, longAlgorithm},
      {"cache-damage-tag", 0, integer},
      {"cache-damage-entry", 0, {0x30, 0x02, 0x05, 0x00}},
  };
  for (const Damage& damage : damages) {
    const auto size = static_cast<DWORD>(damage.block.size());
    SharedSection().Put(Now(), damage.size == 0 ? size : damage.size, damage.block);
    ExpectGolden(damage.golden, RunTool({"cache"}), kTimes);
  }
  SharedSection().Wipe();
}

TEST_F(Cache, AHeldMutexIsReportedAndTheListingReadAllTheSame) {
  Module();
  SharedSection().Put(Now(), kBlock);
  const ChildProcess holder = HoldMutex();
  const ToolResult result = RunTool({"cache"});
  EXPECT_EQ(1u, result.exitCode);
  EXPECT_THAT(result.out, HasSubstr("mutex: held"));
  EXPECT_THAT(result.out, HasSubstr("  alice                    175A02"));
  holder.Kill();
  EXPECT_THAT(RunTool({"cache"}).out, HasSubstr("mutex: free"));
  SharedSection().Wipe();
}

TEST_F(Oid, AnIdentifierWithItsRecordsAndBindings) {
  ExpectGolden("oid-national", RunTool({"oid", "1.2.398.3.10.1.1.1.1"}));
  ExpectGolden("oid-three-times", RunTool({"oid", "1.3.6.1.4.1.32473.1.2.2"}));
}

TEST_F(Oid, JsonHasTheSame) {
  ExpectGolden("oid-json", RunTool({"oid", "2.16.840.1.101.3.4.1.42", "--json"}));
}

TEST_F(Oid, AnAlgId) {
  ExpectGolden("oid-algid", RunTool({"oid", "0xAA3A"}));
  EXPECT_EQ(RunTool({"oid", "0xAA3A"}).out, RunTool({"oid", "43578"}).out);
}

TEST_F(Oid, AnIdentifierOfOthersIsAFinding) {
  ExpectGolden("oid-foreign", RunTool({"oid", "1.2.840.113549.1.1.1"}));
}

TEST_F(Oid, AWordIsNeither) {
  ExpectGolden("oid-word", RunTool({"oid", "words"}));
  ExpectGolden("oid-word-json", RunTool({"oid", "words", "--json"}));
}

// Values of a wrong type, without an end, or with an odd number of octets.
TEST_F(Oid, WhatTheRegistryHoldsInsteadIsShown) {
  const std::string record =
      std::string(kOidRoot) + "EncodingType 0\\CryptDllFindOIDInfo\\1.2.643.2.2.19!3";
  const std::string binding =
      std::string(kOidRoot) + "EncodingType 1\\CryptDllImportPublicKeyInfoEx\\1.2.643.2.2.19";
  const auto name =
      RegistryDamage::SetValue(HKEY_LOCAL_MACHINE, record, "Name", REG_BINARY, {1, 2, 3});
  const auto dll =
      RegistryDamage::SetValue(HKEY_LOCAL_MACHINE, binding, "Dll", REG_SZ, {'a', 0, 'b', 0});
  ExpectGolden("oid-damaged", RunTool({"oid", "1.2.643.2.2.19"}));
}

}  // namespace
}  // namespace zarext::test
