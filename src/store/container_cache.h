// The module's cache of container keys: a list in the process, and a copy of it in the section that
// every process of the session shares.
#ifndef ZAREXT_STORE_CONTAINER_CACHE_H_
#define ZAREXT_STORE_CONTAINER_CACHE_H_

#include <windows.h>

#include <cstdint>

#include "store/cache_block.h"
#include "store/key_record_list.h"

namespace zarext {

// Makes its mutex, its section and the store-open critical section, in this order, when the module
// is loaded. A handle that could not be made is null: without the section the listing is not
// shared, without the mutex it is shared without turns. The module's exit routine empties the list,
// closes the mutex and deletes the critical section. The section's handle stays open until the
// process ends: the listing outlives the module.
//
// Nothing here traces, throws or sets a last error: each operation does its work or leaves list and
// section as they were.
class TContainerCache {
 public:
  // The one instance, never destroyed: older DLLs of the host call the module behind its exit
  // routine.
  static TContainerCache& Instance() noexcept { return instance_; }

  TContainerCache(const TContainerCache&) = delete;
  TContainerCache& operator=(const TContainerCache&) = delete;

  // The store-open critical section, in which all of the rest is used. It serialises the opens of
  // the process, and is entered before the mutex is waited for. Behind the exit routine, where no
  // other thread is left, these do nothing.
  static void EnterOpenSection();
  static void LeaveOpenSection();

  void Add(const CNT_KEY_INFO& record) noexcept { list_.Add(record); }
  void Clear() noexcept { list_.Clear(); }
  [[nodiscard]] const KeyRecordList& List() const noexcept { return list_; }

  // Seconds since 1970 at which the list was last filled, or the stamp of the shared block that was
  // read last; 0 at start.
  [[nodiscard]] static std::int64_t CacheLoadTime() noexcept { return loadTime_; }
  static void MarkFilled(std::int64_t now) noexcept { loadTime_ = now; }
  // Whether there is a list, of at most 60 seconds ago. One from the future is fresh.
  [[nodiscard]] bool IsFresh(std::int64_t now) const noexcept {
    return !list_.IsEmpty() && now - loadTime_ <= kCacheLifetime;
  }

  // Empties the list, then takes the time of the shared block if that is fresh; its entries are
  // never taken (ReadCacheBlock). The content can be anybody's: it is copied under the mutex and
  // checked only in the copy.
  void ReadShared();

  // Publishes the list. An empty one, or one that is too long, leaves the section as it was.
  void WriteShared() const;

 private:
  TContainerCache() = default;
  ~TContainerCache() = default;
  static TContainerCache& Make();
  static void Exit();

  static TContainerCache& instance_;
  static inline std::int64_t loadTime_ = 0;

  KeyRecordList list_;  // head and tail
  HANDLE hMapping_ = nullptr;
  HANDLE hMutex_ = nullptr;
};

}  // namespace zarext

#endif  // ZAREXT_STORE_CONTAINER_CACHE_H_
