#include "zarextctl/registration_state.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <string_view>

#include "registration/physical_store.h"
#include "registration/removals.h"
#include "zarextctl/registry.h"
#include "zarextctl/text.h"
#include "zarextctl/windows_text.h"

namespace zarext::ctl {
namespace {

constexpr char kModuleFile[] = "ZAREXT.dll";

bool SameKey(const OidRecord& left, const OidRecord& right) {
  return left.group == right.group && std::strcmp(left.oid, right.oid) == 0;
}

std::string ExtraText(const RegistryValue& value) {
  if (value.type != REG_BINARY || value.octets.size() != sizeof(ExtraValues)) {
    return DescribeValue(value);
  }
  std::string text;
  for (std::size_t i = 0; i + 4 <= value.octets.size(); i += 4) {
    std::uint32_t word = 0;
    std::memcpy(&word, value.octets.data() + i, sizeof word);
    text += (i == 0 ? "" : ", ") + Hex(word);
  }
  return text;
}

// What differs between the key and the row; empty if nothing does.
std::string Difference(const RegistryKey& key, const OidRecord& record) {
  const auto name = key.Value("Name");
  if (!name || TextOf(*name) != Utf8(record.name)) {
    return "Name is " + (name ? DescribeValue(*name) : "missing");
  }
  const auto algorithm = key.Value("Algid");
  if ((algorithm ? NumberOf(*algorithm) : 0U) != record.algorithm) {
    return "Algid is " + (algorithm ? DescribeValue(*algorithm) : "missing") + " and not " +
           Hex(record.algorithm);
  }
  const auto extra = key.Value("ExtraInfo");
  if (!extra || extra->type != REG_BINARY || extra->octets.size() != sizeof record.extra ||
      std::memcmp(extra->octets.data(), record.extra.data(), sizeof record.extra) != 0) {
    return "ExtraInfo is " + (extra ? ExtraText(*extra) : "missing");
  }
  return "";
}

// The row that decides what the key of `record` holds in the end.
const OidRecord& Deciding(const OidRecord& record) {
  const OidRecord* deciding = &record;
  for (const OidRecord& row : records::kTable) {
    if (SameKey(row, record)) {
      deciding = &row;
    }
  }
  return *deciding;
}

std::string NumberDifference(const RegistryKey& key, const char* name, std::uint32_t expected) {
  const auto value = key.Value(name);
  if (value && NumberOf(*value) == expected) {
    return "";
  }
  return std::string(name) + " is " + (value ? DescribeValue(*value) : "missing") + " and not " +
         Hex(expected);
}

std::vector<ForeignBinding> FindForeign() {
  std::set<std::string> own;
  for (const Binding& binding : AllBindings()) {
    own.insert(BindingKey(binding));
  }
  std::vector<ForeignBinding> foreign;
  const auto inside = [](const std::string& key, const std::string& name) {
    return key + "\\" + name;
  };
  const auto path = [&](const std::string& below) { return inside(kOidKey, below); };
  for (const std::string& type : RegistryKey(HKEY_LOCAL_MACHINE, kOidKey).Keys()) {
    for (const std::string& function : RegistryKey(HKEY_LOCAL_MACHINE, path(type)).Keys()) {
      const std::string functionKey = inside(type, function);
      for (const std::string& oid : RegistryKey(HKEY_LOCAL_MACHINE, path(functionKey)).Keys()) {
        const std::string below = inside(functionKey, oid);
        const RegistryKey key(HKEY_LOCAL_MACHINE, path(below));
        const std::string dll = key.Text("Dll").value_or("");
        const bool isOwn = std::ranges::any_of(
            own, [&](const std::string& other) { return SameIgnoringCase(other, below); });
        if (SameIgnoringCase(FileName(dll), kModuleFile) && !isOwn) {
          foreign.push_back({below, dll, key.Text("FuncName").value_or("")});
        }
      }
    }
  }
  return foreign;
}

}  // namespace

const char* StateName(ItemState state) {
  switch (state) {
    case ItemState::kPresent:
      return "present";
    case ItemState::kMissing:
      return "missing";
    case ItemState::kDiffers:
      return "differs";
    case ItemState::kOtherDll:
      return "another DLL";
    case ItemState::kOtherFunction:
      return "another function";
  }
  return "";
}

std::string RecordKey(const OidRecord& record) {
  return std::string("EncodingType 0\\CryptDllFindOIDInfo\\") + record.oid + "!" +
         std::to_string(record.group);
}

// The framework keeps a binding for both encoding types under the low half of their number.
std::string BindingKey(const Binding& binding) {
  return "EncodingType " + std::to_string(binding.encodingType & 0xFFFF) + "\\" + binding.function +
         "\\" + binding.oid;
}

std::string PhysicalStoreKey() {
  return std::string(kUserStoresKey) + "\\" + Utf8(physical_store::kSystemStore) +
         "\\PhysicalStores\\" + Utf8(kStoreProviderWide);
}

std::vector<Binding> AllBindings() {
  std::vector<Binding> all = {bindings::kStore.At(0)};
  ForEachKeyBinding([&](const Binding& binding) { all.push_back(binding); });
  return all;
}

RecordState ReadRecord(const OidRecord& record) {
  RecordState result = {record, ItemState::kMissing, "", RecordKey(record)};
  const RegistryKey key(HKEY_LOCAL_MACHINE, std::string(kOidKey) + "\\" + result.key);
  if (key) {
    result.detail = Difference(key, Deciding(record));
    result.state = result.detail.empty() ? ItemState::kPresent : ItemState::kDiffers;
  }
  return result;
}

BindingState ReadBinding(const Binding& binding, const std::string& dll) {
  BindingState result = {binding, ItemState::kMissing, "", "", BindingKey(binding)};
  const RegistryKey key(HKEY_LOCAL_MACHINE, std::string(kOidKey) + "\\" + result.key);
  if (!key) {
    return result;
  }
  const auto named = key.Value("Dll");
  const auto function = key.Value("FuncName");
  result.dll = named ? DescribeValue(*named) : "";
  result.function = function ? DescribeValue(*function) : "";
  if (!named || !TextOf(*named)) {
    result.state = ItemState::kDiffers;
  } else if (!dll.empty() && !SameIgnoringCase(result.dll, dll)) {
    result.state = ItemState::kOtherDll;
  } else if (result.function != binding.exportName) {
    result.state = ItemState::kOtherFunction;
  } else {
    result.state = ItemState::kPresent;
  }
  return result;
}

PhysicalStoreState ReadPhysicalStore() {
  const RegistryKey key(HKEY_CURRENT_USER, PhysicalStoreKey());
  if (!key) {
    return {ItemState::kMissing, ""};
  }
  std::string detail;
  const auto keep = [&](const std::string& difference) {
    detail = detail.empty() ? difference : detail;
  };
  const auto provider = key.Value("OpenStoreProvider");
  if (!provider || TextOf(*provider) != kStoreProvider) {
    keep("OpenStoreProvider is " + (provider ? DescribeValue(*provider) : "missing"));
  }
  keep(NumberDifference(key, "OpenEncodingType", physical_store::kOpenEncodingType));
  keep(NumberDifference(key, "OpenFlags", physical_store::kOpenFlags));
  const auto parameters = key.Value("OpenParameters");
  if (!parameters || parameters->octets.size() != physical_store::kParametersSize ||
      std::memcmp(parameters->octets.data(), kStoreProvider, physical_store::kParametersSize) !=
          0) {
    keep("OpenParameters is " + (parameters ? DescribeValue(*parameters) : "missing"));
  }
  keep(NumberDifference(key, "Flags", physical_store::kFlags));
  keep(NumberDifference(key, "Priority", physical_store::kPriority));
  return {detail.empty() ? ItemState::kPresent : ItemState::kDiffers, detail};
}

RegistrationState ReadRegistration(const std::string& dll) {
  RegistrationState state;
  for (const OidRecord& record : records::kTable) {
    state.records.push_back(ReadRecord(record));
  }
  for (const Binding& binding : AllBindings()) {
    state.bindings.push_back(ReadBinding(binding, dll));
  }
  state.physicalStore = ReadPhysicalStore();
  state.foreign = FindForeign();
  return state;
}

std::string RegisteredDll() {
  std::map<std::string, int> counts;
  for (const Binding& binding : AllBindings()) {
    if (const BindingState state = ReadBinding(binding, ""); !state.dll.empty()) {
      ++counts[state.dll];
    }
  }
  const auto most = std::ranges::max_element(
      counts, [](const auto& left, const auto& right) { return left.second < right.second; });
  return most == counts.end() ? "" : most->first;
}

bool StaysBehind(const OidRecord& record) {
  bool removed = false;
  ForEachRemovedRecord(
      [&](const OidRecord& other) { removed = removed || SameKey(record, other); });
  return !removed;
}

bool StaysBehind(const Binding& binding) {
  const auto row = std::ranges::find_if(bindings::kKeys, [&](const FunctionBindings& candidate) {
    return std::string_view(candidate.function) == binding.function;
  });
  return row != std::end(bindings::kKeys) && row->RemovalsOf(binding.oid) == 0;
}

}  // namespace zarext::ctl
