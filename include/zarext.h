/* The exports of ZAREXT.dll that installers and tools call. Everything else in the module is called
 * by the framework, through the registrations that DllRegisterServer writes.
 *
 * For C and C++; link with the import library, or take the addresses with GetProcAddress. All texts
 * are in the system's ANSI code page. Every function may be called from any thread, but registering
 * and unregistering not at the same time.
 */
#ifndef ZAREXT_H_
#define ZAREXT_H_

#include <windows.h>

#ifdef __cplusplus
extern "C" {
#endif

/* System stores by index, for SetOtherCert and DelOtherCert. */
enum {
  ZAREXT_STORE_ROOT = 0,
  ZAREXT_STORE_TRUST = 1,
  ZAREXT_STORE_CA = 2,
  ZAREXT_STORE_OTHER_PEOPLE = 3, /* "Other People" */
  ZAREXT_STORE_MY = 4,
  ZAREXT_STORE_PERSONAL = 5 /* "Personal", which is not "MY" */
};

/* The three functions below take one DER-encoded X.509 certificate, pbCert and cbCert.
 * bLocalMachine chooses the machine's stores if it is not 0, the current user's otherwise. They
 * return TRUE or FALSE and set no last error of their own: the reason of a failure goes to the log
 * file c:\zarext.log, if there is one; also where the certificate is null, empty or none. FALSE
 * without a line: a dwStore above 5; in SetSelfCert, once the certificate has been added, a
 * szContainer that is null or cannot be converted, a provider's name that cannot be converted,
 * and a certificate that the system adds without giving it back; an exception that another
 * component throws, if it is not an error code.
 */

/* Adds a user's own certificate to "MY", in place of an equal one, and ties it to its key:
 * szContainer (at most 255 characters) and dwKeySpec (AT_KEYEXCHANGE or AT_SIGNATURE) are stored as
 * they are given. The provider follows from the certificate's key: "Zarvel CSP", type 25, for the
 * algorithms of the module, "Zarvel CSP RSA", type 1, for RSA, none and type 0 for any other.
 */
BOOL WINAPI SetSelfCert(BOOL bLocalMachine, const char* szContainer, DWORD dwKeySpec,
                        const BYTE* pbCert, DWORD cbCert);

/* Adds a certificate to a system store, in place of an equal one. FALSE for a dwStore above 5. */
BOOL WINAPI SetOtherCert(BOOL bLocalMachine, DWORD dwStore, const BYTE* pbCert, DWORD cbCert);

/* Deletes every certificate with the issuer and the serial number of the given one from a system
 * store. TRUE also if there was none, and if one of them could not be deleted (which is logged).
 * FALSE for a dwStore above 5.
 */
BOOL WINAPI DelOtherCert(BOOL bLocalMachine, DWORD dwStore, const BYTE* pbCert, DWORD cbCert);

/* What regsvr32 calls. S_OK, or E_UNEXPECTED for any failure. Registering stops at the first
 * failure and takes nothing back; unregistering passes over what is gone already. Both need
 * administrator's rights.
 */
HRESULT WINAPI DllRegisterServer(void);
HRESULT WINAPI DllUnregisterServer(void);

#ifdef __cplusplus
}
#endif

#endif /* ZAREXT_H_ */
