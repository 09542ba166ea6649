// Memory that holds private keys: wiped before it is given back.
#ifndef ZAREXT_KEYINFO_SECRET_MEMORY_H_
#define ZAREXT_KEYINFO_SECRET_MEMORY_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace zarext {

// Zeroes the octets; the compiler does not drop it, whatever happens to them afterwards.
void WipeOctets(void* octets, std::size_t size) noexcept;

// A zeroed block of fixed size that is wiped at its end.
class SecretBuffer {
 public:
  // Throws std::bad_alloc.
  explicit SecretBuffer(std::size_t size);
  ~SecretBuffer();
  SecretBuffer(const SecretBuffer&) = delete;
  SecretBuffer& operator=(const SecretBuffer&) = delete;
  SecretBuffer(SecretBuffer&&) = delete;
  SecretBuffer& operator=(SecretBuffer&&) = delete;

  [[nodiscard]] std::uint8_t* Data() noexcept { return octets_.get(); }
  [[nodiscard]] std::size_t Size() const noexcept { return size_; }

 private:
  std::size_t size_;
  std::unique_ptr<std::uint8_t[]> octets_;
};

}  // namespace zarext

#endif  // ZAREXT_KEYINFO_SECRET_MEMORY_H_
