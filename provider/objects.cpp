#include "provider/objects.h"

namespace zarext::provider {
namespace {
constexpr HandleTable::Handle kHandleStep = 8;
}

HandleTable::Handle HandleTable::Reserve() {
  const std::lock_guard lock(mutex_);
  return last_ += kHandleStep;
}

void HandleTable::Put(Handle handle, std::shared_ptr<Object> object) {
  const std::lock_guard lock(mutex_);
  objects_[handle] = std::move(object);
}

HandleTable::Handle HandleTable::Add(std::shared_ptr<Object> object) {
  const Handle handle = Reserve();
  Put(handle, std::move(object));
  return handle;
}

std::shared_ptr<Object> HandleTable::FindObject(Handle handle) {
  const std::lock_guard lock(mutex_);
  const auto found = objects_.find(handle);
  return found == objects_.end() ? nullptr : found->second;
}

void HandleTable::Remove(Handle handle) {
  std::shared_ptr<Object> last;  // destroyed behind the lock
  const std::lock_guard lock(mutex_);
  const auto found = objects_.find(handle);
  if (found == objects_.end()) {
    return;
  }
  last = std::move(found->second);
  objects_.erase(found);
}

void HandleTable::RemoveOwnedBy(HCRYPTPROV owner) {
  std::vector<std::shared_ptr<Object>> last;
  const std::lock_guard lock(mutex_);
  for (auto entry = objects_.begin(); entry != objects_.end();) {
    if (entry->second->Owner() != owner) {
      ++entry;
      continue;
    }
    last.push_back(std::move(entry->second));
    entry = objects_.erase(entry);
  }
}

HandleTable& Handles() {
  static HandleTable table;
  return table;
}

}  // namespace zarext::provider
