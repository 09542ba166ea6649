// Checks and provider calls that the public-key exports have in common.
#ifndef ZAREXT_KEYINFO_PUBLIC_KEY_CALLS_H_
#define ZAREXT_KEYINFO_PUBLIC_KEY_CALLS_H_

#include <windows.h>

#include <wincrypt.h>

#include "frame/export_frame.h"

namespace zarext {

// Throws ERROR_INVALID_PARAMETER unless the type is X.509, PKCS #7 or both.
void RequireEncodingType(DWORD dwCertEncodingType);

// Traces "<label> = <OID>" and throws NTE_BAD_ALGID unless the OID lies in one of the arcs that the
// module serves. The OID may be null.
void RequireOwnAlgorithm(ExportTrace& trace, const char* label, const char* oid);

// Reads the provider's type. One that is not expected is only traced: callers work through
// providers of other types. Throws the provider's error if there is no type to be had.
void NoteProviderType(ExportTrace& trace, HCRYPTPROV hCryptProv);

}  // namespace zarext

#endif  // ZAREXT_KEYINFO_PUBLIC_KEY_CALLS_H_
