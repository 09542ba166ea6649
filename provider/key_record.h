// What a container keeps of one key, and the file image of it.
#ifndef ZAREXT_PROVIDER_KEY_RECORD_H_
#define ZAREXT_PROVIDER_KEY_RECORD_H_

#include <string>

#include "provider/key.h"

namespace zarext::provider {

struct KeyRecord {
  std::uint32_t algId = 0;  // the PrivateKeyInfo names both plain RSA algorithms alike
  bool exportable = false;
  Bytes privateKeyInfo;
  Bytes certificate;  // empty: none
  Bytes chain;        // PKCS #7; empty: none
};

// What kind of medium a container is on, and two further texts about it that its readers show.
struct Profile {
  std::string kind;
  std::string second;
  std::string third;
};

// Runs read() on what a container keeps. Whatever is wrong with that is one error,
// NTE_KEYSET_ENTRY_BAD: the seal of a file says that it is as it was written, not that it was
// written by this provider.
template <typename Read>
auto ReadKept(Read read) {
  try {
    return read();
  } catch (const Error& error) {
    Fail(error.Code() == static_cast<std::uint32_t>(NTE_NO_MEMORY) ? NTE_NO_MEMORY
                                                                   : NTE_KEYSET_ENTRY_BAD);
  }
}

// File images: DER and a SHA-256 value over it, so that a damaged file is noticed whatever the
// damage. Reading throws NTE_BAD_DATA.
Bytes WriteKeyRecord(const KeyRecord& record);
KeyRecord ReadKeyRecord(View image);
Bytes WriteProfile(const Profile& profile);
Profile ReadProfile(View image);

// The record of a new key, without certificate and chain.
KeyRecord RecordOf(const PrivateKey& key, bool exportable);

// The private key of a record, under the record's algorithm.
PrivateKey PrivateKeyOf(const KeyRecord& record);

}  // namespace zarext::provider

#endif  // ZAREXT_PROVIDER_KEY_RECORD_H_
