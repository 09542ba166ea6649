// Octet strings and the fixed records inside them.
#ifndef ZAREXT_PROVIDER_BYTES_H_
#define ZAREXT_PROVIDER_BYTES_H_

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <type_traits>
#include <vector>

#include "provider/error.h"
#include "provider/platform.h"

namespace zarext::provider {

using Bytes = std::vector<std::uint8_t>;
using View = std::span<const std::uint8_t>;

inline Bytes ToBytes(View view) { return {view.begin(), view.end()}; }

inline View AsView(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

inline Bytes Reversed(View view) { return {view.rbegin(), view.rend()}; }

inline bool Same(View a, View b) { return std::equal(a.begin(), a.end(), b.begin(), b.end()); }

inline void Append(Bytes& out, View more) { out.insert(out.end(), more.begin(), more.end()); }

// Reads a record from the front of `data`; too few octets are NTE_BAD_DATA.
template <typename Record>
Record ReadRecord(View data) {
  static_assert(std::is_trivially_copyable_v<Record>);
  Require(data.size() >= sizeof(Record), NTE_BAD_DATA);
  Record record;
  std::memcpy(&record, data.data(), sizeof(Record));
  return record;
}

template <typename Record>
void AppendRecord(Bytes& out, const Record& record) {
  static_assert(std::is_trivially_copyable_v<Record>);
  const std::size_t end = out.size();
  out.resize(end + sizeof(Record));
  std::memcpy(out.data() + end, &record, sizeof(Record));
}

}  // namespace zarext::provider

#endif  // ZAREXT_PROVIDER_BYTES_H_
