// The list of container keys that a walk over the provider found.
#ifndef ZAREXT_STORE_KEY_RECORD_LIST_H_
#define ZAREXT_STORE_KEY_RECORD_LIST_H_

#include <cstdint>
#include <memory>

#include "store/provider_records.h"

namespace zarext {

// A record with copies of its own behind its three pointers.
class CachedKeyRecord {
 public:
  // Null without memory. A record without a name stays without one.
  static std::unique_ptr<CachedKeyRecord> Copy(const CNT_KEY_INFO& source) noexcept;

  // The record as the provider gave it but for the pointers. Serial number and certificate are
  // followed by a zero octet.
  [[nodiscard]] const CNT_KEY_INFO& Info() const noexcept { return info_; }

 private:
  explicit CachedKeyRecord(const CNT_KEY_INFO& source) noexcept : info_(source) {}

  CNT_KEY_INFO info_;
  std::unique_ptr<char[]> container_;
  std::unique_ptr<std::uint8_t[]> serial_;
  std::unique_ptr<std::uint8_t[]> certificate_;
};

struct KeyRecordNode {
  std::unique_ptr<CachedKeyRecord> record;
  std::unique_ptr<KeyRecordNode> next;
};

// Keeps the order in which records were added.
class KeyRecordList {
 public:
  KeyRecordList() = default;
  ~KeyRecordList() { Clear(); }
  KeyRecordList(const KeyRecordList&) = delete;
  KeyRecordList& operator=(const KeyRecordList&) = delete;

  // Appends a deep copy. A record without a certificate or without a serial number is not kept, nor
  // is one for which there is no memory.
  void Add(const CNT_KEY_INFO& record) noexcept;

  // Releases everything, in constant stack.
  void Clear() noexcept;

  [[nodiscard]] bool IsEmpty() const noexcept { return head_ == nullptr; }
  [[nodiscard]] const KeyRecordNode* Head() const noexcept { return head_.get(); }

 private:
  std::unique_ptr<KeyRecordNode> head_;
  // The node added last. Clear leaves it: while head_ is null nobody reads it.
  KeyRecordNode* tail_ = nullptr;
};

}  // namespace zarext

#endif  // ZAREXT_STORE_KEY_RECORD_LIST_H_
