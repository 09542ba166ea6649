// Memory that holds private keys.
#ifndef ZAREXT_KEYINFO_SECRET_BUFFER_H_
#define ZAREXT_KEYINFO_SECRET_BUFFER_H_

#include <cstddef>
#include <cstdint>
#include <memory>

#include "frame/wipe.h"

namespace zarext {

// A zeroed block of fixed size that is wiped at its end.
class SecretBuffer {
 public:
  // Throws std::bad_alloc.
  explicit SecretBuffer(std::size_t size)
      : size_(size), octets_(std::make_unique<std::uint8_t[]>(size)) {}
  ~SecretBuffer() { WipeOctets(octets_.get(), size_); }
  SecretBuffer(const SecretBuffer&) = delete;
  SecretBuffer& operator=(const SecretBuffer&) = delete;

  [[nodiscard]] std::uint8_t* Data() noexcept { return octets_.get(); }
  [[nodiscard]] std::size_t Size() const noexcept { return size_; }

 private:
  std::size_t size_;
  std::unique_ptr<std::uint8_t[]> octets_;
};

}  // namespace zarext

#endif  // ZAREXT_KEYINFO_SECRET_BUFFER_H_
