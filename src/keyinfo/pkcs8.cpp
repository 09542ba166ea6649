#include "keyinfo/pkcs8.h"

#include "asn1/tags.h"
#include "frame/wipe.h"

namespace zarext {

TPKCS8::TPKCS8() : TASN1(kTagSequence, Release::kWiped) {}

TPKCS8::~TPKCS8() { WipeCopies(); }

void TPKCS8::Clear() {
  kind_ = 0;
  decoded_.reset();
  WipeCopies();
  parameters_.clear();
  attributes_.clear();
  DeleteNode(0, kPathEnd);
  // An adopted document may have left another root behind.
  SetTag(kTagSequence, kPathEnd);
}

void TPKCS8::WipeCopies() noexcept {
  WipeOctets(parameters_.data(), parameters_.size());
  WipeOctets(attributes_.data(), attributes_.size());
}

std::int32_t TPKCS8::Settle(std::uint32_t kind, std::int32_t code) {
  if (code != 0) {
    Clear();
    return code;
  }
  kind_ = kind;
  return 0;
}

std::int64_t TPKCS8::EncodedSize() {
  std::uint32_t size = 0;
  if (kind_ == 0 || GetEncodedSize(&size, kPathEnd) != 0) {
    return -1;
  }
  return size;
}

std::int32_t TPKCS8::Encode(std::uint8_t* buffer) {
  if (kind_ == 0 || buffer == nullptr) {
    return 1;
  }
  return TASN1::Encode(buffer, kPathEnd);
}

}  // namespace zarext
