// What the generation, export and import of content-encryption keys share: sizes, the older forms'
// key algorithms, and the provider calls that more than one export makes.
#ifndef ZAREXT_MSGKEYS_MESSAGE_KEYS_H_
#define ZAREXT_MSGKEYS_MESSAGE_KEYS_H_

#include <cstddef>

#include "frame/export_frame.h"
#include "frame/handles.h"

namespace zarext {

// Octets of the block that a wrapped content key (the provider's SIMPLEBLOB) is exported into.
inline constexpr DWORD kWrapBufferSize = 512;

// Octets of the sender's PUBLICKEYBLOB that follows the SIMPLEBLOB in an encrypted key under one of
// the module's own key-encryption algorithms. Nothing marks or counts it: the receiver recognises
// it by the algorithm alone and takes this many octets off the end.
inline constexpr DWORD kSenderBlobSize = 80;

// The provider's Diffie-Hellman exchange key.
inline constexpr char kExchangeKeyOid[] = "1.3.6.1.4.1.32473.1.4.4";
// The provider's ElGamal key.
inline constexpr char kElGamalKeyOid[] = "1.3.6.1.4.1.32473.1.3.4";

// Whether the older export and import forms serve a recipient key of this algorithm (may be null).
bool IsRecipientKeyOid(const char* oid) noexcept;

// A block that will belong to the caller: from `pfnAlloc`, or zero-filled from LocalAlloc if that
// is null. Throws NTE_NO_MEMORY if there is none.
void* AllocateForCaller(PFN_CMSG_ALLOC pfnAlloc, std::size_t size);

// Hands a recipient's public-key octets to the provider as a key blob, unchanged. `dwFlags` as for
// CryptImportKey. A failure is traced as "CryptImportKey" and thrown.
UniqueCryptKey ImportRecipientKey(ExportTrace& trace, HCRYPTPROV hCryptProv, const BYTE* pbData,
                                  DWORD cbData, DWORD dwFlags);

// A wrapped key of a length that the block has no room for: traced as a failed "CryptExportKey" and
// thrown, both with NTE_BAD_LEN.
[[noreturn]] void RefuseWrappedKey(ExportTrace& trace);

// Exports `hKey` under `hRecipientKey` as a SIMPLEBLOB into a block of kWrapBufferSize octets and
// returns the blob's length. A failure is traced as "CryptExportKey" and thrown; a provider that
// reports more than it was given room for has not wrapped the key.
DWORD WrapKey(ExportTrace& trace, HCRYPTKEY hKey, HCRYPTKEY hRecipientKey, BYTE* wrapBuffer);

}  // namespace zarext

#endif  // ZAREXT_MSGKEYS_MESSAGE_KEYS_H_
