// The profile record, addresses and key facts of a container.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "store/container_profile.h"
#include "store/key_address.h"

namespace zarext {
namespace {

TEST(ContainerProfile, IsZeroButForTheAddress) {
  const auto record = PrepareProfile("profile://c");
  ASSERT_TRUE(record);
  const auto* const octets = reinterpret_cast<const char*>(&*record);
  EXPECT_EQ(0, std::memcmp("profile://c", octets + 944, 12));
  for (std::size_t i = 0; i < sizeof *record; ++i) {
    if (i < 944 || i >= 944 + 11) {
      EXPECT_EQ(0, octets[i]) << i;
    }
  }
}

TEST(ContainerProfile, HasRoomFor511Characters) {
  const auto record = PrepareProfile(std::string(511, 'x'));
  ASSERT_TRUE(record);
  EXPECT_EQ('x', reinterpret_cast<const char*>(&*record)[1454]);
  EXPECT_EQ('\0', reinterpret_cast<const char*>(&*record)[1455]);
  EXPECT_FALSE(PrepareProfile(std::string(512, 'x')));
  EXPECT_FALSE(PrepareProfile(std::string(5000, 'x')));
}

TEST(ContainerProfile, IsWellFormedIfItsTextsEndInTheirFields) {
  struct Field {
    std::size_t offset;
    std::size_t size;
  };
  for (const Field field : {Field{128, 192}, Field{320, 128}, Field{448, 496}}) {
    CNT_PROFILE record = {};
    auto* const octets = reinterpret_cast<char*>(&record);
    std::memset(octets + field.offset, 'x', field.size - 1);
    EXPECT_TRUE(IsProfileWellFormed(record));
    octets[field.offset + field.size - 1] = 'x';
    EXPECT_FALSE(IsProfileWellFormed(record)) << field.offset;
  }
}

struct KindCase {
  const char* kind;
  const char* second;
  bool isOpened;
  bool isWritable;
};

TEST(ContainerProfile, DecidesByKindAndSecondText) {
  constexpr KindCase kCases[] = {
      {"kztoken", "", true, false},   {"javatoken", "", true, false}, {"idcard", "", true, false},
      {"file", "", true, true},       {"files", "", false, false},    {"fil", "", false, false},
      {"KZTOKEN", "", false, false},  {"", "", false, false},         {"other", "", false, false},
      {"other", "s", true, true},     {"", "s", true, true},          {"idcard", "s", true, true},
      {"kztoken2", "", false, false},
  };
  for (const KindCase& test : kCases) {
    CNT_PROFILE record = {};
    std::strcpy(record.tokenKind, test.kind);
    std::strcpy(record.secondText, test.second);
    EXPECT_EQ(test.isOpened, IsProfileOpened(record)) << test.kind << "|" << test.second;
    EXPECT_EQ(test.isWritable, IsProfileWritable(record)) << test.kind << "|" << test.second;
  }
}

TEST(KeyAddress, HasTheContainerAndTheSerialNumber) {
  EXPECT_EQ("profile://a b", ContainerUrl<520>("a b").View());
  EXPECT_EQ("profile://", ContainerUrl<520>("").View());
  EXPECT_EQ("profile://abc", ContainerUrl<14>("abcd").View());
  EXPECT_STREQ("profile://abc", ContainerUrl<14>("abcd").Text());
  const std::vector<std::uint8_t> serial = {0x00, 0x09, 0x9A, 0xF0, 0xCD};
  EXPECT_EQ("profile://name/?sn=00099AF0CD", KeyUrl("name", serial).View());
  EXPECT_EQ("profile://name/?sn=", KeyUrl("name", {}).View());
}

TEST(KeyAddress, HasAtMost519CharactersAndWholePairs) {
  const std::vector<std::uint8_t> serial(4000, 0xA5);
  EXPECT_EQ(518u, KeyUrl("c", serial).View().size());
  EXPECT_EQ(519u, KeyUrl("cd", serial).View().size());
  EXPECT_EQ(519u, KeyUrl(std::string(504, 'x'), serial).View().size());
  EXPECT_EQ('=', KeyUrl(std::string(503, 'x'), serial).View().back());
  EXPECT_EQ(519u, KeyUrl(std::string(2000, 'x'), serial).View().size());
  EXPECT_EQ('5', KeyUrl("c", serial).View().back());
}

TEST(KeyAddress, TheKeySpecificationFollowsTheAlgorithm) {
  EXPECT_EQ(2u, KeySpecOf(0));
  EXPECT_EQ(1u, KeySpecOf(1));
  EXPECT_EQ(1u, KeySpecOf(0xA1FF));
  EXPECT_EQ(2u, KeySpecOf(0x0200));
  EXPECT_EQ(2u, KeySpecOf(0x0400));
  EXPECT_EQ(2u, KeySpecOf(0x0800));
  EXPECT_EQ(2u, KeySpecOf(0x1000));
  EXPECT_EQ(1u, KeySpecOf(0x2000));
  EXPECT_EQ(1u, KeySpecOf(0xFFFFE1FF));
}

TEST(KeyAddress, TheFamilyFollowsThePublicKey) {
  EXPECT_EQ(KeyFamily::kOwn, KeyFamilyOf("1.2.398.3.10.1.1.1.1"));
  EXPECT_EQ(KeyFamily::kOwn, KeyFamilyOf("1.3.6.1.4.1.32473.1"));
  EXPECT_EQ(KeyFamily::kOwn, KeyFamilyOf("1.2.643.2.2.19"));
  EXPECT_EQ(KeyFamily::kRsa, KeyFamilyOf("1.2.840.113549.1.1.1"));
  EXPECT_EQ(KeyFamily::kRsa, KeyFamilyOf("2.1.2.840.113549.1.1.1.7"));
  EXPECT_EQ(KeyFamily::kOwn, KeyFamilyOf("1.2.840.113549.1.1.1.2.643.2.2.1"));
  EXPECT_EQ(KeyFamily::kOther, KeyFamilyOf("1.2.840.113549.1.1"));
  EXPECT_EQ(KeyFamily::kOther, KeyFamilyOf("1.2.643.2.2"));
  EXPECT_EQ(KeyFamily::kOther, KeyFamilyOf(""));
  EXPECT_EQ(KeyFamily::kOther, KeyFamilyOf(nullptr));
}

}  // namespace
}  // namespace zarext
