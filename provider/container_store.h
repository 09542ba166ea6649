// Key containers: one folder each under the home folder, with a profile and up to two key files.
#ifndef ZAREXT_PROVIDER_CONTAINER_STORE_H_
#define ZAREXT_PROVIDER_CONTAINER_STORE_H_

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "provider/container_name.h"
#include "provider/key_record.h"

namespace zarext::provider {

// In the order of their folders' names. Also those that cannot be read.
std::vector<std::string> ListContainers();

// NTE_EXISTS if there is one of that name.
void CreateContainer(const ContainerName& name);

// NTE_BAD_KEYSET if there is none, or one of another kind than the name demands.
void DeleteContainer(const ContainerName& name);

// NTE_BAD_KEYSET for a missing container, NTE_KEYSET_ENTRY_BAD for one that is damaged. Waits as a
// token does.
Profile LoadProfile(const ContainerName& name);

void SaveProfile(const std::string& name, const Profile& profile);

// Where a context keeps its keys, numbered AT_KEYEXCHANGE and AT_SIGNATURE.
class KeySet {
 public:
  virtual ~KeySet() = default;

  // Empty if there is no such key; NTE_KEYSET_ENTRY_BAD if its file is damaged.
  virtual std::optional<KeyRecord> Load(std::uint32_t keySpec) = 0;

  // Lets `change` alter the record and keeps the result, with no other change of the same record in
  // between, also from another process. Nothing is changed if it throws.
  virtual void Change(std::uint32_t keySpec,
                      const std::function<void(std::optional<KeyRecord>&)>& change) = 0;
};

// The keys of a container.
std::shared_ptr<KeySet> OpenKeySet(const std::string& name, const std::string& kind);

// The keys of a context without a container: in memory only.
std::shared_ptr<KeySet> MakeTemporaryKeySet();

}  // namespace zarext::provider

#endif  // ZAREXT_PROVIDER_CONTAINER_STORE_H_
