// See windows.h of this folder.
#ifndef ZAREXT_TESTS_UNIT_PLATFORM_WINCRYPT_H_
#define ZAREXT_TESTS_UNIT_PLATFORM_WINCRYPT_H_

#include <windows.h>

using ALG_ID = unsigned int;
using HCRYPTPROV = ULONG_PTR;
using HCRYPTKEY = ULONG_PTR;
using HCERTSTORE = void*;
using HCERTSTOREPROV = void*;

#define AT_KEYEXCHANGE 1
#define AT_SIGNATURE 2
#define PROV_RSA_FULL 1
#define PP_PROVTYPE 16
#define KP_CERTIFICATE 26
#define CRYPT_FIRST 1
#define CRYPT_EXPORTABLE 0x00000001
#define CRYPT_SILENT 0x00000040
#define CRYPT_VERIFYCONTEXT 0xF0000000
#define SIMPLEBLOB 0x1
#define PUBLICKEYBLOB 0x6
#define X509_ASN_ENCODING 0x00000001
#define PKCS_7_ASN_ENCODING 0x00010000
#define CERT_CLOSE_STORE_FORCE_FLAG 0x00000001
#define CERT_STORE_ADD_NEW 1
#define CERT_KEY_PROV_INFO_PROP_ID 2
#define CERT_SET_KEY_CONTEXT_PROP_ID 0x00000001
#define CERT_STORE_PROV_SYSTEM_W (reinterpret_cast<LPCSTR>(10))
#define CERT_SYSTEM_STORE_CURRENT_USER 0x00010000

struct CRYPT_DATA_BLOB {
  DWORD cbData;
  BYTE* pbData;
};
using CRYPT_INTEGER_BLOB = CRYPT_DATA_BLOB;
using CRYPT_OBJID_BLOB = CRYPT_DATA_BLOB;
using CERT_NAME_BLOB = CRYPT_DATA_BLOB;

struct CRYPT_BIT_BLOB {
  DWORD cbData;
  BYTE* pbData;
  DWORD cUnusedBits;
};

struct CRYPT_ALGORITHM_IDENTIFIER {
  LPSTR pszObjId;
  CRYPT_OBJID_BLOB Parameters;
};
using PCRYPT_ALGORITHM_IDENTIFIER = CRYPT_ALGORITHM_IDENTIFIER*;

struct CRYPT_ATTRIBUTES {
  DWORD cAttr;
  void* rgAttr;
};

struct CRYPT_PRIVATE_KEY_INFO {
  DWORD Version;
  CRYPT_ALGORITHM_IDENTIFIER Algorithm;
  CRYPT_DATA_BLOB PrivateKey;
  CRYPT_ATTRIBUTES* pAttributes;
};

struct CERT_PUBLIC_KEY_INFO {
  CRYPT_ALGORITHM_IDENTIFIER Algorithm;
  CRYPT_BIT_BLOB PublicKey;
};
using PCERT_PUBLIC_KEY_INFO = CERT_PUBLIC_KEY_INFO*;

struct CERT_INFO {
  DWORD dwVersion;
  CRYPT_INTEGER_BLOB SerialNumber;
  CRYPT_ALGORITHM_IDENTIFIER SignatureAlgorithm;
  CERT_NAME_BLOB Issuer;
  FILETIME NotBefore;
  FILETIME NotAfter;
  CERT_NAME_BLOB Subject;
  CERT_PUBLIC_KEY_INFO SubjectPublicKeyInfo;
};

struct CERT_CONTEXT {
  DWORD dwCertEncodingType;
  BYTE* pbCertEncoded;
  DWORD cbCertEncoded;
  CERT_INFO* pCertInfo;
  HCERTSTORE hCertStore;
};
using PCCERT_CONTEXT = const CERT_CONTEXT*;
struct CRL_CONTEXT;
using PCCRL_CONTEXT = const CRL_CONTEXT*;
struct CERT_STORE_PROV_FIND_INFO;
using PCCERT_STORE_PROV_FIND_INFO = const CERT_STORE_PROV_FIND_INFO*;
struct CERT_STORE_PROV_INFO;

struct CRYPT_KEY_PROV_INFO {
  LPWSTR pwszContainerName;
  LPWSTR pwszProvName;
  DWORD dwProvType;
  DWORD dwFlags;
  DWORD cProvParam;
  void* rgProvParam;
  DWORD dwKeySpec;
};

using PFN_CMSG_ALLOC = void*(WINAPI*)(size_t size);

struct CERT_ID {
  DWORD dwIdChoice;
  CRYPT_DATA_BLOB content[2];
};

struct CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO {
  DWORD cbSize;
  CRYPT_ALGORITHM_IDENTIFIER KeyEncryptionAlgorithm;
  void* pvKeyEncryptionAuxInfo;
  HCRYPTPROV hCryptProv;
  CRYPT_BIT_BLOB RecipientPublicKey;
  CERT_ID RecipientId;
};
using PCMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO = CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO*;

struct CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO {
  DWORD cbSize;
  CRYPT_ALGORITHM_IDENTIFIER KeyEncryptionAlgorithm;
};

struct CMSG_MAIL_LIST_RECIPIENT_ENCODE_INFO {
  DWORD cbSize;
  CRYPT_ALGORITHM_IDENTIFIER KeyEncryptionAlgorithm;
  void* pvKeyEncryptionAuxInfo;
  HCRYPTPROV hCryptProv;
  DWORD dwKeyChoice;
};

#define CMSG_KEY_TRANS_RECIPIENT 1
#define CMSG_KEY_AGREE_RECIPIENT 2
#define CMSG_MAIL_LIST_RECIPIENT 3
#define CMSG_CONTENT_ENCRYPT_RELEASE_CONTEXT_FLAG 0x00008000

struct CMSG_RECIPIENT_ENCODE_INFO {
  DWORD dwRecipientChoice;
  union {
    CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO* pKeyTrans;
    CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO* pKeyAgree;
    CMSG_MAIL_LIST_RECIPIENT_ENCODE_INFO* pMailList;
  };
};

struct CMSG_CONTENT_ENCRYPT_INFO {
  DWORD cbSize;
  HCRYPTPROV hCryptProv;
  CRYPT_ALGORITHM_IDENTIFIER ContentEncryptionAlgorithm;
  void* pvEncryptionAuxInfo;
  DWORD cRecipients;
  CMSG_RECIPIENT_ENCODE_INFO* rgCmsRecipients;
  PFN_CMSG_ALLOC pfnAlloc;
  void* pfnFree;
  DWORD dwEncryptFlags;
  HCRYPTKEY hContentEncryptKey;
  DWORD dwFlags;
  BOOL fCNG;
  BYTE* pbContentEncryptKey;
  DWORD cbContentEncryptKey;
};
using PCMSG_CONTENT_ENCRYPT_INFO = CMSG_CONTENT_ENCRYPT_INFO*;

struct CMSG_KEY_TRANS_ENCRYPT_INFO {
  DWORD cbSize;
  DWORD dwRecipientIndex;
  CRYPT_ALGORITHM_IDENTIFIER KeyEncryptionAlgorithm;
  CRYPT_DATA_BLOB EncryptedKey;
  DWORD dwFlags;
};
using PCMSG_KEY_TRANS_ENCRYPT_INFO = CMSG_KEY_TRANS_ENCRYPT_INFO*;

struct CMSG_KEY_TRANS_RECIPIENT_INFO {
  DWORD dwVersion;
  CERT_ID RecipientId;
  CRYPT_ALGORITHM_IDENTIFIER KeyEncryptionAlgorithm;
  CRYPT_DATA_BLOB EncryptedKey;
};

struct CMSG_CTRL_KEY_TRANS_DECRYPT_PARA {
  DWORD cbSize;
  HCRYPTPROV hCryptProv;
  DWORD dwKeySpec;
  CMSG_KEY_TRANS_RECIPIENT_INFO* pKeyTrans;
  DWORD dwRecipientIndex;
};
using PCMSG_CTRL_KEY_TRANS_DECRYPT_PARA = CMSG_CTRL_KEY_TRANS_DECRYPT_PARA*;

BOOL CryptAcquireContextA(HCRYPTPROV* provider, LPCSTR container, LPCSTR name, DWORD type,
                          DWORD flags);
BOOL CryptGetProvParam(HCRYPTPROV provider, DWORD parameter, BYTE* data, DWORD* size, DWORD flags);
BOOL CryptSetProvParam(HCRYPTPROV provider, DWORD parameter, const BYTE* data, DWORD flags);
BOOL CryptGetUserKey(HCRYPTPROV provider, DWORD keySpec, HCRYPTKEY* key);
BOOL CryptGenKey(HCRYPTPROV provider, ALG_ID algorithm, DWORD flags, HCRYPTKEY* key);
BOOL CryptDestroyKey(HCRYPTKEY key);
BOOL CryptExportKey(HCRYPTKEY key, HCRYPTKEY exchangeKey, DWORD blobType, DWORD flags, BYTE* data,
                    DWORD* size);
BOOL CryptImportKey(HCRYPTPROV provider, const BYTE* data, DWORD size, HCRYPTKEY exchangeKey,
                    DWORD flags, HCRYPTKEY* key);
HCERTSTORE CertOpenStore(LPCSTR provider, DWORD encodingType, HCRYPTPROV context, DWORD flags,
                         const void* parameter);
BOOL CertCloseStore(HCERTSTORE store, DWORD flags);
HCERTSTORE CryptGetMessageCertificates(DWORD encodingType, HCRYPTPROV context, DWORD flags,
                                       const BYTE* message, DWORD size);
PCCERT_CONTEXT CertCreateCertificateContext(DWORD encodingType, const BYTE* encoded, DWORD size);
PCCERT_CONTEXT CertEnumCertificatesInStore(HCERTSTORE store, PCCERT_CONTEXT previous);
BOOL CertFreeCertificateContext(PCCERT_CONTEXT context);
BOOL CertSetCertificateContextProperty(PCCERT_CONTEXT context, DWORD property, DWORD flags,
                                       const void* data);
BOOL CertAddCertificateContextToStore(HCERTSTORE store, PCCERT_CONTEXT context, DWORD disposition,
                                      PCCERT_CONTEXT* added);
BOOL CertAddEncodedCertificateToStore(HCERTSTORE store, DWORD encodingType, const BYTE* encoded,
                                      DWORD size, DWORD disposition, PCCERT_CONTEXT* added);

#endif  // ZAREXT_TESTS_UNIT_PLATFORM_WINCRYPT_H_
