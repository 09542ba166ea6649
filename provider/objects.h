// What the handles of the interface stand for, and the table of them.
#ifndef ZAREXT_PROVIDER_OBJECTS_H_
#define ZAREXT_PROVIDER_OBJECTS_H_

#include <memory>
#include <mutex>
#include <unordered_map>

#include "provider/container_store.h"
#include "provider/hash.h"
#include "provider/key.h"
#include "provider/session_key.h"

namespace zarext::provider {

class Object {
 public:
  explicit Object(HCRYPTPROV owner) : owner_(owner) {}
  virtual ~Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  HCRYPTPROV Owner() const {
    return owner_;
  }  // the context that it dies with; a context owns itself

 private:
  HCRYPTPROV owner_;
};

struct HashObject final : Object {
  HashObject(HCRYPTPROV owner, Hash initial) : Object(owner), hash(std::move(initial)) {}
  std::mutex mutex;
  Hash hash;
};

struct KeyObject : Object {
  using Object::Object;
  virtual std::uint32_t AlgId() const = 0;
};

struct SessionKeyObject final : KeyObject {
  SessionKeyObject(HCRYPTPROV owner, const SessionKey& initial, bool mayExport)
      : KeyObject(owner), key(initial), exportable(mayExport) {}
  std::uint32_t AlgId() const override { return key.Algorithm().algId; }
  std::mutex mutex;
  SessionKey key;
  const bool exportable;
};

struct PublicKeyObject final : KeyObject {
  PublicKeyObject(HCRYPTPROV owner, PublicKey value) : KeyObject(owner), key(std::move(value)) {}
  std::uint32_t AlgId() const override { return key.algorithm->algId; }
  const PublicKey key;
};

// A key of a container or of a temporary key set.
struct PairObject final : KeyObject {
  PairObject(HCRYPTPROV owner, std::shared_ptr<const PrivateKey> value, std::uint32_t spec,
             bool mayExport, std::shared_ptr<KeySet> set)
      : KeyObject(owner),
        key(std::move(value)),
        keySpec(spec),
        exportable(mayExport),
        keySet(std::move(set)) {}
  std::uint32_t AlgId() const override { return key->publicKey.algorithm->algId; }
  const std::shared_ptr<const PrivateKey> key;
  const std::uint32_t keySpec;
  const bool exportable;
  const std::shared_ptr<KeySet> keySet;
};

// Handles are numbers that are never used twice, so that a stale or invented one is recognised and
// not followed. An object stays alive while a call works with it, even if another thread destroys
// its handle.
class HandleTable {
 public:
  using Handle = ULONG_PTR;

  Handle Reserve();
  void Put(Handle handle, std::shared_ptr<Object> object);
  Handle Add(std::shared_ptr<Object> object);

  // Null if the handle is not of a T.
  template <typename T>
  std::shared_ptr<T> Find(Handle handle) {
    return std::dynamic_pointer_cast<T>(FindObject(handle));
  }

  void Remove(Handle handle);
  void RemoveOwnedBy(HCRYPTPROV owner);

 private:
  std::shared_ptr<Object> FindObject(Handle handle);

  std::mutex mutex_;
  std::unordered_map<Handle, std::shared_ptr<Object>> objects_;
  Handle last_ = 0x5A000000;
};

HandleTable& Handles();

}  // namespace zarext::provider

#endif  // ZAREXT_PROVIDER_OBJECTS_H_
