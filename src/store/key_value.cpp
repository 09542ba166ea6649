#include "store/key_value.h"

#include "frame/provider_binding.h"

namespace zarext {

KeyValue::KeyValue(HCRYPTPROV container, HCRYPTKEY key, DWORD parameter)
    : isGiven_(Provider().CPGetKeyParam(container, key, parameter, octets_, &size_, 0) != FALSE) {}

std::optional<std::span<const BYTE>> KeyValue::Octets() const {
  if (!isGiven_ || IsTooLong()) {
    return std::nullopt;
  }
  return std::span(octets_).first(size_);
}

}  // namespace zarext
