#include "provider/rsa.h"

#include <bit>

#include "provider/gcrypt.h"

namespace zarext::provider {
namespace {

int SexpLength(View bytes) { return static_cast<int>(bytes.size()); }

Sexp PublicSexp(const RsaPublicKey& key) {
  StartGcrypt();
  return BuildSexp("(public-key(rsa(n %b)(e %b)))", SexpLength(key.modulus), key.modulus.data(),
                   SexpLength(key.exponent), key.exponent.data());
}

Sexp PrivateSexp(const RsaPrivateKey& key) {
  StartGcrypt();
  // libgcrypt wants p < q and u = 1/p mod q; an RSAPrivateKey holds the inverse of its second
  // prime.
  Mpi p = ToMpi(key.prime2);
  Mpi q = ToMpi(key.prime1);
  if (gcry_mpi_cmp(p.get(), q.get()) > 0) {
    std::swap(p, q);
  }
  const Mpi u = NewMpi();
  Require(gcry_mpi_invm(u.get(), p.get(), q.get()) != 0, NTE_BAD_KEY);
  return BuildSexp("(private-key(rsa(n %b)(e %b)(d %b)(p %m)(q %m)(u %m)))",
                   SexpLength(key.publicKey.modulus), key.publicKey.modulus.data(),
                   SexpLength(key.publicKey.exponent), key.publicKey.exponent.data(),
                   SexpLength(key.privateExponent), key.privateExponent.data(), p.get(), q.get(),
                   u.get());
}

Sexp DigestSexp(const HashAlgorithm& hash, View digest) {
  return BuildSexp("(data(flags pkcs1)(hash %s %b))", gcry_md_algo_name(hash.gcrypt),
                   SexpLength(digest), digest.data());
}

// 1 = exponent * candidate (mod prime - 1)
bool AreInverse(const Mpi& exponent, const Mpi& candidate, const Mpi& primeLessOne) {
  const Mpi product = NewMpi();
  gcry_mpi_mulm(product.get(), exponent.get(), candidate.get(), primeLessOne.get());
  return gcry_mpi_cmp_ui(product.get(), 1) == 0;
}

Mpi LessOne(const Mpi& number) {
  Mpi result = NewMpi();
  gcry_mpi_sub_ui(result.get(), number.get(), 1);
  return result;
}

Bytes Remainder(const Mpi& number, const Mpi& modulus) {
  const Mpi result = NewMpi();
  gcry_mpi_mod(result.get(), number.get(), modulus.get());
  return ToShortestBigEndian(result);
}

}  // namespace

unsigned RsaPublicKey::Bits() const {
  if (modulus.empty()) {
    return 0;
  }
  return static_cast<unsigned>((modulus.size() - 1) * 8) +
         static_cast<unsigned>(std::bit_width(modulus[0]));
}

RsaPrivateKey GenerateRsaKey(unsigned bits) {
  StartGcrypt();
  const Sexp request = BuildSexp("(genkey(rsa(nbits %u)))", bits);
  gcry_sexp_t made = nullptr;
  Check(gcry_pk_genkey(&made, request.get()));
  const Sexp key(made);
  const Mpi d = NumberOf(key, "d");
  const Mpi p = NumberOf(key, "p");
  const Mpi q = NumberOf(key, "q");
  RsaPrivateKey out;
  out.publicKey.modulus = ToShortestBigEndian(NumberOf(key, "n"));
  out.publicKey.exponent = ToShortestBigEndian(NumberOf(key, "e"));
  out.privateExponent = ToShortestBigEndian(d);
  out.prime1 = ToShortestBigEndian(q);
  out.prime2 = ToShortestBigEndian(p);
  out.exponent1 = Remainder(d, LessOne(q));
  out.exponent2 = Remainder(d, LessOne(p));
  out.coefficient = ToShortestBigEndian(NumberOf(key, "u"));
  return out;
}

bool IsConsistent(const RsaPrivateKey& key) {
  StartGcrypt();
  const Mpi n = ToMpi(key.publicKey.modulus);
  const Mpi e = ToMpi(key.publicKey.exponent);
  const Mpi d = ToMpi(key.privateExponent);
  const Mpi p = ToMpi(key.prime1);
  const Mpi q = ToMpi(key.prime2);
  if (gcry_mpi_cmp_ui(p.get(), 1) <= 0 || gcry_mpi_cmp_ui(q.get(), 1) <= 0) {
    return false;
  }
  const Mpi product = NewMpi();
  gcry_mpi_mul(product.get(), p.get(), q.get());
  if (gcry_mpi_cmp(product.get(), n.get()) != 0) {
    return false;
  }
  if (gcry_prime_check(p.get(), 0) != 0 || gcry_prime_check(q.get(), 0) != 0) {
    return false;
  }
  const Mpi pLessOne = LessOne(p);
  const Mpi qLessOne = LessOne(q);
  if (!AreInverse(e, d, pLessOne) || !AreInverse(e, d, qLessOne)) {
    return false;
  }
  const Mpi inverse = NewMpi();
  if (gcry_mpi_invm(inverse.get(), q.get(), p.get()) == 0) {
    return false;
  }
  return key.exponent1 == Remainder(d, pLessOne) && key.exponent2 == Remainder(d, qLessOne) &&
         key.coefficient == ToShortestBigEndian(inverse);
}

Bytes SignRsa(const RsaPrivateKey& key, const HashAlgorithm& hash, View digest) {
  gcry_sexp_t made = nullptr;
  Check(gcry_pk_sign(&made, DigestSexp(hash, digest).get(), PrivateSexp(key).get()));
  const Sexp signature(made);
  return Reversed(ToBigEndian(NumberOf(signature, "s"), key.publicKey.modulus.size()));
}

bool VerifyRsa(const RsaPublicKey& key, const HashAlgorithm& hash, View digest, View signature) {
  if (signature.size() != key.modulus.size()) {
    return false;
  }
  const Sexp keySexp = PublicSexp(key);
  const Bytes value = Reversed(signature);
  const Sexp signatureSexp = BuildSexp("(sig-val(rsa(s %b)))", SexpLength(value), value.data());
  return gcry_pk_verify(signatureSexp.get(), DigestSexp(hash, digest).get(), keySexp.get()) == 0;
}

Bytes EncryptRsa(const RsaPublicKey& key, View plain) {
  const Sexp keySexp = PublicSexp(key);
  const Sexp data = BuildSexp("(data(flags pkcs1)(value %b))", SexpLength(plain), plain.data());
  gcry_sexp_t made = nullptr;
  Check(gcry_pk_encrypt(&made, data.get(), keySexp.get()), static_cast<std::uint32_t>(NTE_BAD_LEN));
  const Sexp encrypted(made);
  return Reversed(ToBigEndian(NumberOf(encrypted, "a"), key.modulus.size()));
}

Bytes DecryptRsa(const RsaPrivateKey& key, View encrypted) {
  constexpr auto badData = static_cast<std::uint32_t>(NTE_BAD_DATA);
  Require(encrypted.size() == key.publicKey.modulus.size(), NTE_BAD_DATA);
  const Sexp keySexp = PrivateSexp(key);
  const Bytes value = Reversed(encrypted);
  const Sexp data = BuildSexp("(enc-val(flags pkcs1)(rsa(a %b)))", SexpLength(value), value.data());
  gcry_sexp_t made = nullptr;
  Check(gcry_pk_decrypt(&made, data.get(), keySexp.get()), badData);
  const Sexp plain(made);
  const Sexp valueList(gcry_sexp_find_token(plain.get(), "value", 0));
  std::size_t length = 0;
  const char* octets =
      gcry_sexp_nth_data(valueList ? valueList.get() : plain.get(), valueList ? 1 : 0, &length);
  Require(octets != nullptr, NTE_BAD_DATA);
  return ToBytes(AsView({octets, length}));
}

}  // namespace zarext::provider
