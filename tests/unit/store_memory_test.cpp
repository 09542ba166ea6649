// What the list of key records does without memory. The linker sends the program's allocations that
// may fail through the functions below.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iterator>
#include <new>

#include "store/key_record_list.h"

namespace {

bool counting = false;
int allocations = 0;
int failAt = 0;

bool Refuse() { return counting && ++allocations == failAt; }

}  // namespace

// The names are the linker's. NOLINTBEGIN
extern "C" {
void* __real__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);
void* __real__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);

void* __wrap__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag) {
  return Refuse() ? nullptr : __real__ZnwmRKSt9nothrow_t(size, tag);
}
void* __wrap__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag) {
  return Refuse() ? nullptr : __real__ZnamRKSt9nothrow_t(size, tag);
}
}
// NOLINTEND

namespace zarext {
namespace {

// Node, record, serial number, certificate and name.
constexpr int kAllocations = 5;

class ListMemory : public testing::Test {
 protected:
  ListMemory() {
    record_.hKey = 1;
    record_.pszContainer = name_;
    record_.cbSerial = 1;
    record_.pbSerial = octets_;
    record_.cbCert = 2;
    record_.pbCert = octets_;
  }
  ~ListMemory() override { counting = false; }

  // Adds the record with the allocation of that number refused; 0: none.
  void Add(int refused) {
    allocations = 0;
    failAt = refused;
    counting = true;
    list_.Add(record_);
    counting = false;
  }
  [[nodiscard]] int Size() const {
    int size = 0;
    for (const KeyRecordNode* node = list_.Head(); node != nullptr; node = node->next.get()) {
      ++size;
    }
    return size;
  }

  char name_[5] = "name";
  std::uint8_t octets_[2] = {1, 2};
  CNT_KEY_INFO record_ = {};
  KeyRecordList list_;
};

TEST_F(ListMemory, ARecordIsAddedWholeOrNotAtAll) {
  Add(0);
  EXPECT_EQ(kAllocations, allocations);
  EXPECT_EQ(1, Size());
  for (int refused = 1; refused <= kAllocations; ++refused) {
    Add(refused);
    EXPECT_EQ(1, Size()) << refused;
  }
  // The list goes on where it was.
  Add(0);
  EXPECT_EQ(2, Size());
  EXPECT_STREQ("name", list_.Head()->next->record->Info().pszContainer);
}

TEST_F(ListMemory, WithoutANameThereIsNoRoomForOne) {
  record_.pszContainer = nullptr;
  Add(0);
  EXPECT_EQ(kAllocations - 1, allocations);
  for (int refused = 1; refused < kAllocations; ++refused) {
    Add(refused);
    EXPECT_EQ(1, Size()) << refused;
  }
}

}  // namespace
}  // namespace zarext
