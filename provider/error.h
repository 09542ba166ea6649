// How a function of the provider says that it failed: it throws the platform's code, and only the
// entry points (entry_points.cpp) turn that into a last error and FALSE.
#ifndef ZAREXT_PROVIDER_ERROR_H_
#define ZAREXT_PROVIDER_ERROR_H_

#include <cstdint>
#include <exception>

namespace zarext::provider {

class Error : public std::exception {
 public:
  explicit Error(std::uint32_t code) noexcept : code_(code) {}
  std::uint32_t Code() const noexcept { return code_; }
  const char* what() const noexcept override { return "provider error"; }

 private:
  std::uint32_t code_;
};

// The platform's NTE_ names are signed and its ERROR_ names are not; both arrive as one 32-bit
// code.
template <typename Code>
[[noreturn]] void Fail(Code code) {
  throw Error(static_cast<std::uint32_t>(code));
}

template <typename Code>
void Require(bool condition, Code code) {
  if (!condition) {
    Fail(code);
  }
}

}  // namespace zarext::provider

#endif  // ZAREXT_PROVIDER_ERROR_H_
