#include "provider/gost.h"

#include "provider/gcrypt.h"
#include "provider/hash.h"

namespace zarext::provider {
namespace {

int SexpLength(const Bytes& bytes) { return static_cast<int>(bytes.size()); }

// libgcrypt's form of a point: 04, X, Y, big-endian.
Bytes ToUncompressed(View publicValue) {
  const std::size_t half = publicValue.size() / 2;
  Bytes out{0x04};
  Append(out, Reversed(publicValue.first(half)));
  Append(out, Reversed(publicValue.subspan(half)));
  return out;
}

class CurveContext {
 public:
  explicit CurveContext(const Curve& curve) : bytes_(curve.bits / 8) {
    StartGcrypt();
    gcry_ctx_t context = nullptr;
    Check(gcry_mpi_ec_new(&context, nullptr, curve.gcrypt));
    context_.reset(context);
  }

  Mpi Number(const char* name) const {
    Mpi number(gcry_mpi_ec_get_mpi(name, context_.get(), 1));
    Require(number != nullptr, NTE_FAIL);
    return number;
  }

  Point Base() const {
    Point base(gcry_mpi_ec_get_point("g", context_.get(), 1));
    Require(base != nullptr, NTE_FAIL);
    return base;
  }

  Point FromPublicValue(View publicValue) const {
    Point point(gcry_mpi_point_new(0));
    const Mpi x = ToMpi(Reversed(publicValue.first(bytes_)));
    const Mpi y = ToMpi(Reversed(publicValue.subspan(bytes_, bytes_)));
    const Mpi one = NewMpi();
    gcry_mpi_set_ui(one.get(), 1);
    gcry_mpi_point_set(point.get(), x.get(), y.get(), one.get());
    return point;
  }

  // False for the point at infinity, which has no such value.
  bool ToPublicValue(const Point& point, Bytes& out) const {
    const Mpi x = NewMpi();
    const Mpi y = NewMpi();
    if (gcry_mpi_ec_get_affine(x.get(), y.get(), point.get(), context_.get()) != 0) {
      return false;
    }
    out = Reversed(ToBigEndian(x, bytes_));
    Append(out, Reversed(ToBigEndian(y, bytes_)));
    return true;
  }

  Point Multiply(const Mpi& factor, const Point& point) const {
    Point result(gcry_mpi_point_new(0));
    gcry_mpi_ec_mul(result.get(), factor.get(), point.get(), context_.get());
    return result;
  }

  bool Contains(const Point& point) const {
    return gcry_mpi_ec_curve_point(point.get(), context_.get()) != 0;
  }

 private:
  std::size_t bytes_;
  EcContext context_;
};

Mpi ReadPrivateValue(const Curve& curve, const CurveContext& context, View privateValue) {
  Require(privateValue.size() == curve.bits / 8, NTE_BAD_KEY);
  Mpi number = ToMpi(Reversed(privateValue));
  Require(gcry_mpi_cmp_ui(number.get(), 0) > 0, NTE_BAD_KEY);
  Require(gcry_mpi_cmp(number.get(), context.Number("n").get()) < 0, NTE_BAD_KEY);
  return number;
}

Sexp DigestSexp(View digest) {
  // The digest is read as a little-endian number.
  const Bytes value = Reversed(digest);
  return BuildSexp("(data(flags gost)(value %b))", SexpLength(value), value.data());
}

}  // namespace

GostKeyPair GenerateGostKey(const Curve& curve) {
  StartGcrypt();
  const Sexp request = BuildSexp("(genkey(ecc(curve %s)(flags gost)))", curve.gcrypt);
  gcry_sexp_t made = nullptr;
  Check(gcry_pk_genkey(&made, request.get()));
  const Sexp key(made);
  GostKeyPair pair;
  pair.privateValue = Reversed(ToBigEndian(NumberOf(key, "d"), curve.bits / 8));
  pair.publicValue = GostPublicValue(curve, pair.privateValue);
  return pair;
}

Bytes GostPublicValue(const Curve& curve, View privateValue) {
  const CurveContext context(curve);
  const Mpi number = ReadPrivateValue(curve, context, privateValue);
  Bytes out;
  Require(context.ToPublicValue(context.Multiply(number, context.Base()), out), NTE_BAD_KEY);
  return out;
}

bool IsGostPublicValue(const Curve& curve, View publicValue) {
  if (publicValue.size() != curve.bits / 4) {
    return false;
  }
  const CurveContext context(curve);
  const Mpi p = context.Number("p");
  const std::size_t half = publicValue.size() / 2;
  // A coordinate not below the field's modulus is another spelling of a smaller one: refused.
  if (gcry_mpi_cmp(ToMpi(Reversed(publicValue.first(half))).get(), p.get()) >= 0) {
    return false;
  }
  if (gcry_mpi_cmp(ToMpi(Reversed(publicValue.subspan(half))).get(), p.get()) >= 0) {
    return false;
  }
  const Point point = context.FromPublicValue(publicValue);
  if (!context.Contains(point)) {
    return false;
  }
  Bytes none;
  return !context.ToPublicValue(context.Multiply(context.Number("n"), point), none);
}

Bytes SignGost(const Curve& curve, View privateValue, View digest) {
  const Bytes d = Reversed(privateValue);
  const Bytes q = ToUncompressed(GostPublicValue(curve, privateValue));
  const Sexp key = BuildSexp("(private-key(ecc(curve %s)(q %b)(d %b)))", curve.gcrypt,
                             SexpLength(q), q.data(), SexpLength(d), d.data());
  gcry_sexp_t made = nullptr;
  Check(gcry_pk_sign(&made, DigestSexp(digest).get(), key.get()));
  const Sexp signature(made);
  Bytes out = Reversed(ToBigEndian(NumberOf(signature, "r"), curve.bits / 8));
  Append(out, Reversed(ToBigEndian(NumberOf(signature, "s"), curve.bits / 8)));
  return out;
}

bool VerifyGost(const Curve& curve, View publicValue, View digest, View signature) {
  StartGcrypt();
  if (signature.size() != curve.bits / 4) {
    return false;
  }
  const Bytes q = ToUncompressed(publicValue);
  const Bytes r = Reversed(signature.first(curve.bits / 8));
  const Bytes s = Reversed(signature.subspan(curve.bits / 8));
  const Sexp key =
      BuildSexp("(public-key(ecc(curve %s)(q %b)))", curve.gcrypt, SexpLength(q), q.data());
  const Sexp value =
      BuildSexp("(sig-val(gost(r %b)(s %b)))", SexpLength(r), r.data(), SexpLength(s), s.data());
  return gcry_pk_verify(value.get(), DigestSexp(digest).get(), key.get()) == 0;
}

Bytes AgreeGost(const Curve& curve, View privateValue, View peerPublicValue, View ukm) {
  const CurveContext context(curve);
  Mpi factor = ReadPrivateValue(curve, context, privateValue);
  const Mpi order = context.Number("n");
  const Mpi cofactor = context.Number("h");
  gcry_mpi_mulm(factor.get(), factor.get(), ToMpi(Reversed(ukm)).get(), order.get());
  gcry_mpi_mulm(factor.get(), factor.get(), cofactor.get(), order.get());
  Bytes shared;
  const Point point = context.Multiply(factor, context.FromPublicValue(peerPublicValue));
  Require(context.ToPublicValue(point, shared), NTE_BAD_DATA);
  return HashOf(*FindHashAlgorithm(0x8022), shared);
}

}  // namespace zarext::provider
