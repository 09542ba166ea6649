#include "provider/container_store.h"

#include <map>
#include <mutex>

#include "provider/files.h"

namespace zarext::provider {
namespace {

constexpr wchar_t kProfileFile[] = L"\\profile";
constexpr DWORD kLongestDelay = 60'000;

std::wstring Widen(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

// Folder names are ASCII; anything else is not one of ours.
std::string Narrow(const std::wstring& wide) {
  std::string out;
  for (const wchar_t c : wide) {
    out += c < 0x80 ? static_cast<char>(c) : '?';
  }
  return out;
}

std::wstring FolderPath(const std::string& name) {
  return HomeFolder() + L"\\" + Widen(FolderOf(name));
}

// A container on anything but a file takes its time at every access, for callers that must be shown
// slow tokens.
void WaitAsToken(const std::string& kind) {
  if (kind == kFileKind) {
    return;
  }
  char text[16] = {};
  const DWORD length = GetEnvironmentVariableA("ZARVEL_DEV_TOKEN_DELAY_MS", text, sizeof text);
  if (length == 0 || length >= sizeof text) {
    return;
  }
  Sleep(std::min<DWORD>(static_cast<DWORD>(std::strtoul(text, nullptr, 10)), kLongestDelay));
}

Profile ReadProfileFile(const ContainerName& name) {
  const std::wstring folder = FolderPath(name.name);
  Require(IsFolder(folder), NTE_BAD_KEYSET);
  const auto image = ReadWholeFile(folder + kProfileFile);
  Require(image.has_value(), NTE_KEYSET_ENTRY_BAD);
  Profile profile = ReadKept([&] { return ReadProfile(*image); });
  Require(name.kind.empty() || name.kind == profile.kind, NTE_BAD_KEYSET);
  return profile;
}

class FileKeySet final : public KeySet {
 public:
  FileKeySet(std::string name, std::string kind) : name_(std::move(name)), kind_(std::move(kind)) {}

  std::optional<KeyRecord> Load(std::uint32_t keySpec) override {
    WaitAsToken(kind_);
    const HomeLock lock;
    return ReadRecordFile(keySpec);
  }

  void Change(std::uint32_t keySpec,
              const std::function<void(std::optional<KeyRecord>&)>& change) override {
    WaitAsToken(kind_);
    const HomeLock lock;
    std::optional<KeyRecord> record = ReadRecordFile(keySpec);
    change(record);
    if (record) {
      ReplaceWholeFile(PathOf(keySpec), WriteKeyRecord(*record));
    }
  }

 private:
  std::wstring PathOf(std::uint32_t keySpec) const {
    return FolderPath(name_) + (keySpec == AT_KEYEXCHANGE ? L"\\exchange.key" : L"\\signature.key");
  }

  std::optional<KeyRecord> ReadRecordFile(std::uint32_t keySpec) const {
    Require(IsFolder(FolderPath(name_)), NTE_BAD_KEYSET);
    const auto image = ReadWholeFile(PathOf(keySpec));
    if (!image) {
      return {};
    }
    return ReadKept([&] { return ReadKeyRecord(*image); });
  }

  std::string name_;
  std::string kind_;
};

class TemporaryKeySet final : public KeySet {
 public:
  std::optional<KeyRecord> Load(std::uint32_t keySpec) override {
    const std::lock_guard lock(mutex_);
    return records_[keySpec];
  }

  void Change(std::uint32_t keySpec,
              const std::function<void(std::optional<KeyRecord>&)>& change) override {
    const std::lock_guard lock(mutex_);
    std::optional<KeyRecord> record = records_[keySpec];
    change(record);
    records_[keySpec] = std::move(record);
  }

 private:
  std::mutex mutex_;
  std::map<std::uint32_t, std::optional<KeyRecord>> records_;
};

}  // namespace

std::vector<std::string> ListContainers() {
  const HomeLock lock;
  std::vector<std::string> names;
  for (const std::wstring& folder : ListFolders(HomeFolder())) {
    std::string name = NameOfFolder(Narrow(folder));
    if (!name.empty()) {
      names.push_back(std::move(name));
    }
  }
  return names;
}

void CreateContainer(const ContainerName& name) {
  const HomeLock lock;
  MakeHomeFolder();
  const std::wstring folder = FolderPath(name.name);
  Require(!IsFolder(folder), NTE_EXISTS);
  Profile profile;
  profile.kind = name.kind.empty() ? kFileKind : std::string_view(name.kind);
  const std::wstring beside = HomeFolder() + L"\\new" + UniqueSuffix();
  MakeFolder(beside);
  try {
    ReplaceWholeFile(beside + kProfileFile, WriteProfile(profile));
    Require(MoveFolder(beside, folder), NTE_FAIL);
  } catch (const Error&) {
    RemoveFolder(beside);
    throw;
  }
}

void DeleteContainer(const ContainerName& name) {
  const HomeLock lock;
  const std::wstring folder = FolderPath(name.name);
  Require(IsFolder(folder), NTE_BAD_KEYSET);
  // A damaged container can be deleted like any other, unless the name asks for a kind.
  if (!name.kind.empty()) {
    ReadProfileFile(name);
  }
  const std::wstring aside = HomeFolder() + L"\\old" + UniqueSuffix();
  Require(MoveFolder(folder, aside), NTE_BAD_KEYSET);
  RemoveFolder(aside);
}

Profile LoadProfile(const ContainerName& name) {
  Profile profile = [&] {
    const HomeLock lock;
    return ReadProfileFile(name);
  }();
  WaitAsToken(profile.kind);
  return profile;
}

void SaveProfile(const std::string& name, const Profile& profile) {
  const HomeLock lock;
  const std::wstring folder = FolderPath(name);
  Require(IsFolder(folder), NTE_BAD_KEYSET);
  ReplaceWholeFile(folder + kProfileFile, WriteProfile(profile));
}

std::shared_ptr<KeySet> OpenKeySet(const std::string& name, const std::string& kind) {
  return std::make_shared<FileKeySet>(name, kind);
}

std::shared_ptr<KeySet> MakeTemporaryKeySet() { return std::make_shared<TemporaryKeySet>(); }

}  // namespace zarext::provider
