// Owners for libgcrypt's objects, and its start-up.
#ifndef ZAREXT_PROVIDER_GCRYPT_H_
#define ZAREXT_PROVIDER_GCRYPT_H_

#include <gcrypt.h>

#include <memory>

#include "provider/bytes.h"

namespace zarext::provider {

template <auto release>
struct Release {
  template <typename T>
  void operator()(T* object) const noexcept {
    release(object);
  }
};

using Sexp = std::unique_ptr<gcry_sexp, Release<gcry_sexp_release>>;
using Mpi = std::unique_ptr<gcry_mpi, Release<gcry_mpi_release>>;
using Point = std::unique_ptr<gcry_mpi_point, Release<gcry_mpi_point_release>>;
using EcContext = std::unique_ptr<gcry_context, Release<gcry_ctx_release>>;
using Digest = std::unique_ptr<gcry_md_handle, Release<gcry_md_close>>;
using Cipher = std::unique_ptr<gcry_cipher_handle, Release<gcry_cipher_close>>;
using Mac = std::unique_ptr<gcry_mac_handle, Release<gcry_mac_close>>;

// Makes the library ready, once in the life of this image; every user of the library calls it
// first.
void StartGcrypt();

// Throws NTE_NO_MEMORY for the library's out-of-memory error and `code` for every other error.
void Check(gcry_error_t error, std::uint32_t code = static_cast<std::uint32_t>(NTE_FAIL));

// Builds an S-expression; the arguments of `format` are those of gcry_sexp_build.
template <typename... Arguments>
Sexp BuildSexp(const char* format, Arguments... arguments) {
  gcry_sexp_t built = nullptr;
  Check(gcry_sexp_build(&built, nullptr, format, arguments...));
  return Sexp(built);
}

// The number in the list named `token`, wherever it stands in `from`; a missing one is NTE_FAIL.
Mpi NumberOf(const Sexp& from, const char* token);

Mpi ToMpi(View bigEndian);
Bytes ToBigEndian(const Mpi& number,
                  std::size_t length);  // left-padded; NTE_FAIL if it does not fit
Bytes ToShortestBigEndian(const Mpi& number);
Mpi NewMpi();

Bytes RandomBytes(std::size_t count);

}  // namespace zarext::provider

#endif  // ZAREXT_PROVIDER_GCRYPT_H_
