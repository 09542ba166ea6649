// What unregistration removes, as differences from what registration writes. All of them are
// compatibility facts: installers and administrators have met systems in exactly this state.
#ifndef ZAREXT_REGISTRATION_REMOVALS_H_
#define ZAREXT_REGISTRATION_REMOVALS_H_

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string_view>

#include "registration/function_bindings.h"
#include "registration/oid_records.h"

namespace zarext {
namespace removals {

// Rows 30, 46 and 49 repeat OID and group of an earlier row, so nothing of them stays behind. The
// records of rows 35 and 38 stay registered.
inline constexpr std::array kSkippedRecords = {30, 35, 38, 46, 49};

// Rows that are removed under another ALG_ID than they were registered with. The framework does not
// look at it; a monitor of its functions sees it.
struct OtherAlgorithm {
  int number;
  ALG_ID algorithm;
};
inline constexpr OtherAlgorithm kOtherAlgorithms[] = {{11, 0x8022}, {54, 0xAA3B}};

// A record that registration never writes is removed too, behind row 16.
inline constexpr int kBeforeUnwritten = 16;
inline constexpr OidRecord kUnwritten = {
    0,      records::kSignature,   "1.3.6.1.4.1.32473.1.6.2", L"Алгоритм подписи ГОСТ 34.310 (4).",
    0x800E, records::kInitialExtra};

// Four OIDs of lists A and B that stay bound to some of the functions.
inline constexpr std::array kStayBound = std::to_array<const char*>({
    "1.2.398.3.10.1.1.2.1.1",
    "1.2.398.3.10.1.4.1.1.1",
    "1.2.398.3.10.1.1.2.2.1",
    "1.2.398.3.10.1.4.1.2.1",
});

// Two OIDs that one function removes twice, each twice in its place.
inline constexpr std::array kRemovedTwice =
    std::to_array<const char*>({"1.3.6.1.4.1.32473.1.8.11", "1.3.6.1.4.1.32473.1.8.12"});

// The functions whose removal differs from their registration.
struct FunctionDifference {
  const char* function;
  OidSpan leftBound;
  OidSpan removedTwice = {};
};
inline constexpr FunctionDifference kFunctionDifferences[] = {
    {"CryptDllImportPrivateKeyInfoEx", kStayBound, kRemovedTwice},
    {"CryptDllExportPrivateKeyInfoEx", kStayBound},
    {"CryptDllImportPublicKeyInfoEx", kStayBound},
    {"CryptDllImportPublicKeyInfo", kStayBound},
    {"CryptDllExportPublicKeyInfoEx", kStayBound},
    {"CryptDllExportPublicKeyInfo", kStayBound},
};

// How often a binding is removed: 0, 1 or 2 times.
constexpr int Times(const Binding& binding) {
  for (const FunctionDifference& difference : kFunctionDifferences) {
    if (std::string_view(difference.function) != binding.function) {
      continue;
    }
    if (Contains(difference.leftBound, binding.oid)) {
      return 0;
    }
    return Contains(difference.removedTwice, binding.oid) ? 2 : 1;
  }
  return 1;
}

// The row as it is removed.
constexpr OidRecord AsRemoved(OidRecord record) {
  for (const OtherAlgorithm& other : kOtherAlgorithms) {
    if (other.number == record.number) {
      record.algorithm = other.algorithm;
    }
  }
  return record;
}

}  // namespace removals

// Visits every record to be removed, in the order of removal.
template <typename Visit>
constexpr void ForEachRemovedRecord(Visit visit) {
  for (const OidRecord& record : records::kTable) {
    if (std::ranges::find(removals::kSkippedRecords, record.number) ==
        removals::kSkippedRecords.end()) {
      visit(removals::AsRemoved(record));
    }
    if (record.number == removals::kBeforeUnwritten) {
      visit(removals::kUnwritten);
    }
  }
}

// Visits every binding to be removed, the store provider's first, in the order of removal.
template <typename Visit>
constexpr void ForEachRemovedBinding(Visit visit) {
  visit(bindings::kStore.At(0));
  ForEachKeyBinding([&](const Binding& binding) {
    for (int left = removals::Times(binding); left > 0; --left) {
      visit(binding);
    }
  });
}

consteval std::size_t CountRemovedRecords() {
  std::size_t count = 0;
  ForEachRemovedRecord([&](const OidRecord&) { ++count; });
  return count;
}
static_assert(CountRemovedRecords() == 64);

consteval std::size_t CountRemovedBindings() {
  std::size_t count = 0;
  ForEachRemovedBinding([&](const Binding&) { ++count; });
  return count;
}
static_assert(CountRemovedBindings() == 453);

}  // namespace zarext

#endif  // ZAREXT_REGISTRATION_REMOVALS_H_
