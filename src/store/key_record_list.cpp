#include "store/key_record_list.h"

#include <cstring>
#include <new>
#include <utility>

namespace zarext {
namespace {

// A zero-filled block one element longer than the content, or null without memory.
template <typename T>
std::unique_ptr<T[]> CopyTerminated(const T* content, std::size_t length) noexcept {
  std::unique_ptr<T[]> copy(new (std::nothrow) T[length + 1]());
  if (copy) {
    std::memcpy(copy.get(), content, length);
  }
  return copy;
}

}  // namespace

std::unique_ptr<CachedKeyRecord> CachedKeyRecord::Copy(const CNT_KEY_INFO& source) noexcept {
  std::unique_ptr<CachedKeyRecord> copy(new (std::nothrow) CachedKeyRecord(source));
  if (!copy) {
    return nullptr;
  }
  copy->serial_ = CopyTerminated(source.pbSerial, source.cbSerial);
  copy->certificate_ = CopyTerminated(source.pbCert, source.cbCert);
  if (source.pszContainer != nullptr) {
    copy->container_ = CopyTerminated(source.pszContainer, std::strlen(source.pszContainer));
  }
  if (!copy->serial_ || !copy->certificate_ ||
      (source.pszContainer != nullptr && !copy->container_)) {
    return nullptr;
  }
  copy->info_.pszContainer = copy->container_.get();
  copy->info_.pbSerial = copy->serial_.get();
  copy->info_.pbCert = copy->certificate_.get();
  return copy;
}

void KeyRecordList::Add(const CNT_KEY_INFO& record) noexcept {
  if (record.cbCert == 0 || record.pbCert == nullptr || record.cbSerial == 0 ||
      record.pbSerial == nullptr) {
    return;
  }
  std::unique_ptr<KeyRecordNode> node(new (std::nothrow) KeyRecordNode);
  if (!node) {
    return;
  }
  node->record = CachedKeyRecord::Copy(record);
  if (!node->record) {
    return;
  }
  std::unique_ptr<KeyRecordNode>& end = head_ ? tail_->next : head_;
  end = std::move(node);
  tail_ = end.get();
}

void KeyRecordList::Clear() noexcept {
  while (head_) {
    head_ = std::move(head_->next);
  }
}

}  // namespace zarext
