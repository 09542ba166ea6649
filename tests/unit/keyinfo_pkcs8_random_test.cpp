// Random records go through build and read unchanged.
#include <gtest/gtest.h>

#include <deque>
#include <random>

#include "keyinfo/pkcs8.h"
#include "unit/keyinfo_pkcs8_reading.h"

namespace zarext::test {
namespace {

class RandomRecords : public testing::Test {
 protected:
  OctetSpan Some(std::size_t least = 1) {
    std::uniform_int_distribution<std::size_t> size(least, random_() % 8 == 0 ? 400 : 40);
    Octets& octets = kept_.emplace_back(size(random_));
    for (std::uint8_t& octet : octets) {
      octet = static_cast<std::uint8_t>(random_());
    }
    return {octets.data(), static_cast<std::uint32_t>(octets.size())};
  }
  // An encoded element that is no OBJECT IDENTIFIER.
  OctetSpan SomeElement(std::uint8_t tag) {
    const OctetSpan content = Some();
    Octets& octets = kept_.emplace_back();
    // The content as the content of an OCTET STRING inside.
    Octets inner = {0x04};
    const auto appendLength = [](Octets& to, std::size_t size) {
      if (size >= 0x80) {
        to.push_back(size >= 0x100 ? 0x82 : 0x81);
      }
      if (size >= 0x100) {
        to.push_back(static_cast<std::uint8_t>(size >> 8));
      }
      to.push_back(static_cast<std::uint8_t>(size));
    };
    appendLength(inner, content.size());
    inner.insert(inner.end(), content.begin(), content.end());
    octets.push_back(tag);
    appendLength(octets, inner.size());
    octets.insert(octets.end(), inner.begin(), inner.end());
    return {octets.data(), static_cast<std::uint32_t>(octets.size())};
  }
  const char* SomeOid() {
    static constexpr const char* kOids[] = {"1.2.643.2.2.19", "1.2.840.10045.2.1", "0.9.2342",
                                            "1.3.6.1.4.1.32473.1.5.8", "1.2.268435455.0.127.128"};
    return kOids[random_() % std::size(kOids)];
  }
  std::uint32_t SomeNumber() { return static_cast<std::uint32_t>(random_()) >> random_() % 32; }
  bool Coin() { return random_() % 2 == 0; }

  // Builds, reads and gives what was read.
  template <typename Record>
  Record RoundTrip(std::uint32_t kind, const Record& record) {
    const Pkcs8Record input = record;
    EXPECT_EQ(0, built_.Build(&input));
    encoded_.resize(static_cast<std::size_t>(built_.EncodedSize()));
    EXPECT_EQ(0, built_.Encode(encoded_.data()));
    return Decode<Record>(read_, kind, encoded_);
  }

  zarext::BagRecord RoundTripBag(std::uint32_t kind, const zarext::BagRecord& record) {
    switch (kind) {
      case 3:
        return RoundTrip(kind, CertBagRecord{record});
      case 4:
        return RoundTrip(kind, CrlBagRecord{record});
      default:
        return RoundTrip(kind, SecretBagRecord{record});
    }
  }

  std::mt19937 random_{20260115};
  std::deque<Octets> kept_;
  TPKCS8 built_;
  TPKCS8 read_;
  Octets encoded_;
};

TEST_F(RandomRecords, PrivateKeys) {
  for (int i = 0; i < 2000; ++i) {
    PrivateKeyRecord record;
    record.version = SomeNumber();
    record.algorithm = SomeOid();
    record.parameters = SomeElement(0x30);
    record.privateKey = Some();
    record.attributes = Coin() ? SomeElement(0x31) : OctetSpan{};
    const PrivateKeyRecord read = RoundTrip(1, record);
    ASSERT_EQ(record.version, read.version);
    ASSERT_STREQ(record.algorithm, read.algorithm);
    ASSERT_EQ(Text(record.parameters), Text(read.parameters));
    ASSERT_EQ(Text(record.privateKey), Text(read.privateKey));
    ASSERT_EQ(Text(record.attributes), Text(read.attributes));
  }
}

TEST_F(RandomRecords, EncryptedKeys) {
  for (int i = 0; i < 2000; ++i) {
    EncryptedKeyRecord record;
    record.algorithm = Coin() ? SomeOid() : "2.16.840.1.101.3.4.1.42";
    record.iv = Coin() ? Some() : OctetSpan{};
    record.salt = Some();
    record.iterations = SomeNumber() | 1;
    record.encryptedData = Some();
    const EncryptedKeyRecord read = RoundTrip(2, record);
    ASSERT_STREQ(record.algorithm, read.algorithm);
    ASSERT_EQ(Text(record.iv), Text(read.iv));
    ASSERT_EQ(Text(record.salt), Text(read.salt));
    ASSERT_EQ(record.iterations, read.iterations);
    ASSERT_EQ(Text(record.encryptedData), Text(read.encryptedData));
  }
}

TEST_F(RandomRecords, Bags) {
  for (int i = 0; i < 2000; ++i) {
    zarext::BagRecord record;
    const std::uint32_t kind = 3 + static_cast<std::uint32_t>(i) % 3;
    const bool sdsi = kind == 3 && Coin();
    record.type =
        kind == 5 ? SomeOid()
                  : (kind == 4 ? "1.2.840.113549.1.9.23.1"
                               : (sdsi ? "1.2.840.113549.1.9.22.2" : "1.2.840.113549.1.9.22.1"));
    record.tag = sdsi ? 0x1E : 0x04;
    record.value = Some();
    const zarext::BagRecord read = RoundTripBag(kind, record);
    ASSERT_STREQ(record.type, read.type);
    ASSERT_EQ(record.tag, read.tag);
    ASSERT_EQ(Text(record.value), Text(read.value));
  }
}

}  // namespace
}  // namespace zarext::test
