#include "provider/context.h"

#include <array>

#include "provider/certificate.h"

namespace zarext::provider {
namespace {

constexpr std::array<DWORD, 2> kKeySpecs{AT_KEYEXCHANGE, AT_SIGNATURE};

// The ALG_ID under which a key is listed. Readers of the list derive the key number from it, and
// the platform's exchange RSA would send them to the signature key; the provider's own name for
// that size does not.
DWORD ListedAlgId(const PublicKey& key) {
  if (key.algorithm->algId != CALG_RSA_KEYX) {
    return key.algorithm->algId;
  }
  for (const KeyAlgorithm& row : kKeyAlgorithms) {
    if (row.family == KeyFamily::kRsa && row.bits == key.Bits() &&
        KeySpecOf(row.algId) == AT_KEYEXCHANGE) {
      return row.algId;
    }
  }
  return key.algorithm->algId;
}

}  // namespace

Context::Context(HCRYPTPROV self, std::string providerName, DWORD providerType,
                 const ContainerName& container)
    : Object(self),
      providerName_(std::move(providerName)),
      providerType_(providerType),
      container_(container.name) {
  if (container_.empty()) {
    keySet_ = MakeTemporaryKeySet();
    return;
  }
  keySet_ = OpenKeySet(container_, LoadProfile(container).kind);
}

std::shared_ptr<PairObject> Context::MakePair(const KeyRecord& record, DWORD keySpec) {
  const std::lock_guard lock(cacheMutex_);
  auto& [known, key] = parsed_[keySpec];
  if (!key || known.privateKeyInfo != record.privateKeyInfo || known.algId != record.algId) {
    key = ReadKept([&] { return std::make_shared<const PrivateKey>(PrivateKeyOf(record)); });
    known = record;
  }
  return std::make_shared<PairObject>(Owner(), key, keySpec, record.exportable, keySet_);
}

std::shared_ptr<PairObject> Context::LoadPair(DWORD keySpec) {
  Require(keySpec == AT_KEYEXCHANGE || keySpec == AT_SIGNATURE, NTE_BAD_KEY);
  const auto record = keySet_->Load(keySpec);
  Require(record.has_value(), NTE_NO_KEY);
  return MakePair(*record, keySpec);
}

std::vector<PrivateKey> Context::ReadablePrivateKeys() {
  std::vector<PrivateKey> keys;
  for (const DWORD keySpec : kKeySpecs) {
    try {
      keys.push_back(*LoadPair(keySpec)->key);
    } catch (const Error& error) {
      const auto code = error.Code();
      if (code != static_cast<std::uint32_t>(NTE_NO_KEY) &&
          code != static_cast<std::uint32_t>(NTE_KEYSET_ENTRY_BAD)) {
        throw;
      }
    }
  }
  return keys;
}

HCRYPTKEY Context::AddSessionKey(const SessionKey& key, DWORD dwFlags) {
  auto object = std::make_shared<SessionKeyObject>(Owner(), key, (dwFlags & CRYPT_EXPORTABLE) != 0);
  const std::lock_guard lock(cacheMutex_);
  lastSessionKey_ = object;
  return Handles().Add(std::move(object));
}

std::shared_ptr<SessionKeyObject> Context::LastSessionKey() {
  const std::lock_guard lock(cacheMutex_);
  return lastSessionKey_.lock();
}

const Bytes& Context::Keep(const Bytes& octets) {
  for (const Bytes& kept : kept_) {
    if (kept == octets) {
      return kept;
    }
  }
  return kept_.emplace_back(octets);
}

CntKeyInfo Context::DescribeKey(DWORD keySpec, const KeyRecord& record) {
  const std::shared_ptr<PairObject> pair = MakePair(record, keySpec);
  Listed& listed = listedKeys_[keySpec];
  if (listed.handle == 0 || listed.keyOctets != record.privateKeyInfo) {
    listed.handle = Handles().Add(pair);
    listed.keyOctets = record.privateKeyInfo;
  }
  CntKeyInfo info{};
  info.hKey = listed.handle;
  info.algId = ListedAlgId(pair->key->publicKey);
  info.dwKeySpec = keySpec;
  if (record.certificate.empty()) {
    return info;
  }
  const Bytes& certificate = Keep(record.certificate);
  const Bytes& serial = Keep(ReadKept([&] { return CertificateSerial(certificate); }));
  info.cbCert = static_cast<DWORD>(certificate.size());
  info.pbCert = certificate.data();
  info.cbSerial = static_cast<DWORD>(serial.size());
  info.pbSerial = serial.data();
  return info;
}

Listing Context::ListKeys() {
  Listing listing;
  for (const DWORD keySpec : kKeySpecs) {
    try {
      const auto record = keySet_->Load(keySpec);
      if (!record) {
        continue;
      }
      Bytes item;
      AppendRecord(item, DescribeKey(keySpec, *record));
      listing.items.push_back(std::move(item));
    } catch (const Error& error) {
      // A damaged key is reported when the sound ones were listed.
      if (error.Code() != static_cast<std::uint32_t>(NTE_KEYSET_ENTRY_BAD)) {
        throw;
      }
      listing.endCode = error.Code();
    }
  }
  return listing;
}

}  // namespace zarext::provider
