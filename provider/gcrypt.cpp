#include "provider/gcrypt.h"

namespace zarext::provider {
namespace {

// Up to version 1.10 the library reports harmless facts about the machine on stderr, which belongs
// to the host program.
#if GCRYPT_VERSION_NUMBER < 0x010b00
void DropMessage(void*, int, const char*, va_list) {}
void SilenceLog() { gcry_set_log_handler(DropMessage, nullptr); }
#else
void SilenceLog() {}
#endif

bool Start() {
  SilenceLog();
  if (!gcry_check_version(GCRYPT_VERSION)) {
    return false;
  }
  gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
  gcry_control(GCRYCTL_ENABLE_QUICK_RANDOM, 0);
  gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
  return true;
}

}  // namespace

void StartGcrypt() {
  static const bool started = Start();
  Require(started, NTE_FAIL);
}

void Check(gcry_error_t error, std::uint32_t code) {
  if (error == 0) {
    return;
  }
  if (gcry_err_code(error) == GPG_ERR_ENOMEM) {
    Fail(NTE_NO_MEMORY);
  }
  Fail(code);
}

Mpi NumberOf(const Sexp& from, const char* token) {
  const Sexp list(gcry_sexp_find_token(from.get(), token, 0));
  Require(list != nullptr, NTE_FAIL);
  Mpi number(gcry_sexp_nth_mpi(list.get(), 1, GCRYMPI_FMT_USG));
  Require(number != nullptr, NTE_FAIL);
  return number;
}

Mpi ToMpi(View bigEndian) {
  gcry_mpi_t number = nullptr;
  Check(gcry_mpi_scan(&number, GCRYMPI_FMT_USG, bigEndian.data(), bigEndian.size(), nullptr));
  return Mpi(number);
}

Bytes ToShortestBigEndian(const Mpi& number) {
  Bytes out((gcry_mpi_get_nbits(number.get()) + 7) / 8);
  if (out.empty()) {
    return out;
  }
  std::size_t written = 0;
  Check(gcry_mpi_print(GCRYMPI_FMT_USG, out.data(), out.size(), &written, number.get()));
  out.resize(written);
  return out;
}

Bytes ToBigEndian(const Mpi& number, std::size_t length) {
  const Bytes digits = ToShortestBigEndian(number);
  Require(digits.size() <= length, NTE_FAIL);
  Bytes out(length - digits.size());
  Append(out, digits);
  return out;
}

Mpi NewMpi() {
  Mpi number(gcry_mpi_new(0));
  Require(number != nullptr, NTE_NO_MEMORY);
  return number;
}

Bytes RandomBytes(std::size_t count) {
  StartGcrypt();
  Bytes out(count);
  gcry_randomize(out.data(), out.size(), GCRY_STRONG_RANDOM);
  return out;
}

}  // namespace zarext::provider
