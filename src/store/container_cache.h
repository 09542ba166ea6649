// The module's cache of container keys: a list in the process, and a copy of it in the section that
// every process of the session shares.
#ifndef ZAREXT_STORE_CONTAINER_CACHE_H_
#define ZAREXT_STORE_CONTAINER_CACHE_H_

#include <windows.h>

#include <cstdint>

#include "store/key_record_list.h"

namespace zarext {

// Seconds since 1970 at which the list was last filled, or the stamp of the shared block that was
// read last; 0 at start. Like the list, only to be used inside the store-open critical section.
extern std::int64_t CacheLoadTime;

// Nothing here traces, throws or sets a last error: each operation does its work or leaves list and
// section as they were.
class TContainerCache {
 public:
  // The one instance, never destroyed. The module's exit routine empties it, and takes the mutex
  // from it, before it closes the mutex.
  static TContainerCache& Instance() noexcept;

  TContainerCache(const TContainerCache&) = delete;
  TContainerCache& operator=(const TContainerCache&) = delete;
  TContainerCache(TContainerCache&&) = delete;
  TContainerCache& operator=(TContainerCache&&) = delete;

  void Add(const CNT_KEY_INFO& record) noexcept { list_.Add(record); }
  void Clear() noexcept { list_.Clear(); }
  [[nodiscard]] const KeyRecordList& List() const noexcept { return list_; }

  // Empties the list, then takes the shared block if it is fresh: its stamp becomes CacheLoadTime.
  // The content can be anybody's: it is copied under the mutex and checked only in the copy.
  void ReadShared() noexcept;

  // Publishes the list. An empty one, or one that is too long, leaves the section as it was.
  void WriteShared() const noexcept;

 private:
  TContainerCache() noexcept;
  static void Exit();
  ~TContainerCache() = default;

  KeyRecordList list_;  // head and tail
  HANDLE hMapping_;     // both handles belong to StoreObjects
  HANDLE hMutex_;
};

}  // namespace zarext

#endif  // ZAREXT_STORE_CONTAINER_CACHE_H_
