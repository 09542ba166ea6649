#include "store/key_record_list.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zarext {
namespace {

struct Source {
  std::string name = "container";
  std::vector<std::uint8_t> serial = {1, 2, 3};
  std::vector<std::uint8_t> certificate = {0x30, 0x01, 0x05, 0x00};

  CNT_KEY_INFO Record() {
    CNT_KEY_INFO record = {};
    record.hKey = 0x1122334455667788;
    record.algId = 0xAA3A;
    record.unread12 = 12;
    record.unread16 = 16;
    record.pszContainer = name.data();
    record.unread32 = 32;
    record.cbSerial = static_cast<std::uint32_t>(serial.size());
    record.padding44 = 44;
    record.pbSerial = serial.data();
    record.unread56[0] = 56;
    record.unread56[1] = 64;
    record.cbCert = static_cast<std::uint32_t>(certificate.size());
    record.padding76 = 76;
    record.pbCert = certificate.data();
    return record;
  }
};

int Count(const KeyRecordList& list) {
  int count = 0;
  for (const KeyRecordNode* node = list.Head(); node != nullptr; node = node->next.get()) {
    ++count;
  }
  return count;
}

TEST(KeyRecordList, KeepsADeepCopyOfTheWholeRecord) {
  KeyRecordList list;
  Source source;
  const CNT_KEY_INFO given = source.Record();
  list.Add(given);
  source.name[0] = 'X';
  source.serial[0] = 0xFF;
  source.certificate[0] = 0xFF;
  ASSERT_FALSE(list.IsEmpty());
  const CNT_KEY_INFO& kept = list.Head()->record->Info();
  EXPECT_EQ(0x1122334455667788u, kept.hKey);
  EXPECT_EQ(0xAA3Au, kept.algId);
  EXPECT_EQ(12u, kept.unread12);
  EXPECT_EQ(16u, kept.unread16);
  EXPECT_EQ(32u, kept.unread32);
  EXPECT_EQ(44u, kept.padding44);
  EXPECT_EQ(56u, kept.unread56[0]);
  EXPECT_EQ(64u, kept.unread56[1]);
  EXPECT_EQ(76u, kept.padding76);
  EXPECT_STREQ("container", kept.pszContainer);
  ASSERT_EQ(3u, kept.cbSerial);
  ASSERT_EQ(4u, kept.cbCert);
  EXPECT_NE(given.pbSerial, kept.pbSerial);
  EXPECT_NE(given.pbCert, kept.pbCert);
  // One octet more than the length, and it is zero.
  EXPECT_EQ((std::vector<std::uint8_t>{1, 2, 3, 0}),
            std::vector<std::uint8_t>(kept.pbSerial, kept.pbSerial + 4));
  EXPECT_EQ((std::vector<std::uint8_t>{0x30, 0x01, 0x05, 0x00, 0}),
            std::vector<std::uint8_t>(kept.pbCert, kept.pbCert + 5));
}

TEST(KeyRecordList, KeepsARecordWithoutAName) {
  KeyRecordList list;
  Source source;
  CNT_KEY_INFO record = source.Record();
  record.pszContainer = nullptr;
  list.Add(record);
  ASSERT_EQ(1, Count(list));
  EXPECT_EQ(nullptr, list.Head()->record->Info().pszContainer);
}

TEST(KeyRecordList, DoesNotKeepRecordsWithoutCertificateOrSerialNumber) {
  KeyRecordList list;
  Source source;
  for (int missing = 0; missing < 4; ++missing) {
    CNT_KEY_INFO record = source.Record();
    if (missing == 0) record.cbCert = 0;
    if (missing == 1) record.pbCert = nullptr;
    if (missing == 2) record.cbSerial = 0;
    if (missing == 3) record.pbSerial = nullptr;
    list.Add(record);
    EXPECT_TRUE(list.IsEmpty()) << missing;
  }
}

TEST(KeyRecordList, AppendsInOrderAlsoAfterAClear) {
  KeyRecordList list;
  for (int round = 0; round < 2; ++round) {
    for (std::uint32_t number = 1; number <= 3; ++number) {
      Source source;
      CNT_KEY_INFO record = source.Record();
      record.algId = number;
      list.Add(record);
    }
    std::vector<std::uint32_t> order;
    for (const KeyRecordNode* node = list.Head(); node != nullptr; node = node->next.get()) {
      order.push_back(node->record->Info().algId);
    }
    EXPECT_EQ((std::vector<std::uint32_t>{1, 2, 3}), order);
    list.Clear();
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_EQ(nullptr, list.Head());
  }
}

void AddMany(KeyRecordList* list) {
  Source source;
  const CNT_KEY_INFO record = source.Record();
  for (int number = 0; number < 300000; ++number) {
    list->Add(record);
  }
  EXPECT_EQ(300000, Count(*list));
}

TEST(KeyRecordList, ClearsALongListInConstantStack) {
  KeyRecordList list;
  AddMany(&list);
  list.Clear();
  EXPECT_TRUE(list.IsEmpty());
}

TEST(KeyRecordList, EndsWithALongListInConstantStack) {
  KeyRecordList list;
  AddMany(&list);
}

}  // namespace
}  // namespace zarext
