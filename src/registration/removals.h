// What unregistration removes, in its order: what the tables of registration say of it.
#ifndef ZAREXT_REGISTRATION_REMOVALS_H_
#define ZAREXT_REGISTRATION_REMOVALS_H_

#include <cstddef>

#include "registration/function_bindings.h"
#include "registration/oid_records.h"

namespace zarext {

// Visits every record to be removed, in the order of removal.
template <typename Visit>
constexpr void ForEachRemovedRecord(Visit visit) {
  for (OidRecord record : records::kTable) {
    if (record.removal.algorithm != 0) {
      record.algorithm = record.removal.algorithm;
    }
    if (!record.removal.isLeft) {
      visit(record);
    }
    if (record.removal.behind != nullptr) {
      visit(*record.removal.behind);
    }
  }
}

// Visits every binding to be removed, the store provider's first, in the order of removal.
template <typename Visit>
constexpr void ForEachRemovedBinding(Visit visit) {
  visit(bindings::kStore.At(0));
  for (const FunctionBindings& row : bindings::kKeys) {
    for (std::size_t i = 0; i < row.oids.size(); ++i) {
      for (int left = row.RemovalsOf(row.oids[i]); left > 0; --left) {
        visit(row.At(i));
      }
    }
  }
}

static_assert(CountVisits([](auto visit) { ForEachRemovedRecord(visit); }) == 64);
static_assert(CountVisits([](auto visit) { ForEachRemovedBinding(visit); }) == 453);

}  // namespace zarext

#endif  // ZAREXT_REGISTRATION_REMOVALS_H_
