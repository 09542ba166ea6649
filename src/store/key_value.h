// What a key of a container holds: its certificate, or its certificate chain.
#ifndef ZAREXT_STORE_KEY_VALUE_H_
#define ZAREXT_STORE_KEY_VALUE_H_

#include <optional>
#include <span>

#include "frame/provider_binding.h"

namespace zarext {

// A parameter of a key in a buffer of its own.
class KeyValue {
 public:
  KeyValue(HCRYPTPROV container, HCRYPTKEY key, DWORD parameter)
      : isGiven_(Provider().CPGetKeyParam(container, key, parameter, octets_, &size_, 0) != FALSE) {
  }

  // None if the provider gave none, or more than there is room for.
  [[nodiscard]] std::optional<std::span<const BYTE>> Octets() const {
    return isGiven_ && !IsTooLong() ? std::optional(std::span(octets_).first(size_)) : std::nullopt;
  }

  // Whether the provider reports more than there is room for. Nothing is known of such a key, and
  // nothing is written to it.
  [[nodiscard]] bool IsTooLong() const { return isGiven_ && size_ > sizeof octets_; }

 private:
  BYTE octets_[32784];
  DWORD size_ = sizeof octets_;
  bool isGiven_;
};

}  // namespace zarext

#endif  // ZAREXT_STORE_KEY_VALUE_H_
