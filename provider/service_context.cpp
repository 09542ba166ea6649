#include "provider/gcrypt.h"
#include "provider/service.h"

namespace zarext::provider {
namespace {

constexpr DWORD kProviderType = 25;
constexpr const char* kProviderName = "Zarvel CSP";
constexpr const char* kRsaProviderName = "Zarvel CSP RSA";
constexpr DWORD kVersion = 0x0100;

constexpr DWORD kAcquireFlags = CRYPT_VERIFYCONTEXT | CRYPT_NEWKEYSET | CRYPT_DELETEKEYSET |
                                CRYPT_MACHINE_KEYSET | CRYPT_SILENT;

struct Caller {
  DWORD providerType = kProviderType;
  std::string providerName = kProviderName;
};

// The table's later fields exist from its version 2 and 3 on.
Caller ReadTable(const ProviderTable* pVTable) {
  Caller caller;
  if (!pVTable || pVTable->Version < 2) {
    return caller;
  }
  caller.providerType = pVTable->dwProvType;
  if (pVTable->Version >= 3 && pVTable->pszProvName) {
    caller.providerName = pVTable->pszProvName;
  } else if (caller.providerType == PROV_RSA_FULL) {
    caller.providerName = kRsaProviderName;
  }
  return caller;
}

ContainerName NameOrDefault(LPCSTR pszContainer) {
  if (pszContainer && *pszContainer) {
    return ParseContainerName(pszContainer);
  }
  char user[257] = {};
  DWORD length = sizeof user;
  if (!GetUserNameA(user, &length)) {
    Fail(GetLastError());
  }
  ContainerName name;
  name.name = user;
  return name;
}

// A token that would ask for its password, for callers that must be shown the refusal.
bool AsksForPassword(const ContainerName& name) {
  return GetEnvironmentVariableA("ZARVEL_DEV_TOKEN_ASKS", nullptr, 0) != 0 &&
         LoadProfile(name).kind != kFileKind;
}

Bytes Text(const std::string& text) {
  Bytes out = ToBytes(AsView(text));
  out.push_back(0);
  return out;
}

Bytes Number(DWORD value) {
  Bytes out;
  AppendRecord(out, value);
  return out;
}

template <std::size_t N>
DWORD CopyText(char (&field)[N], std::string_view text) {
  const std::size_t length = std::min(text.size(), N - 1);
  std::copy_n(text.begin(), length, field);
  field[length] = 0;
  return static_cast<DWORD>(length + 1);
}

template <std::size_t N>
std::string ReadText(const char (&field)[N]) {
  return {field, std::find(field, field + N, '\0')};
}

struct AlgorithmFacts {
  ALG_ID algId;
  DWORD bits;
  DWORD minBits;
  DWORD maxBits;
  const char* name;
};

std::vector<AlgorithmFacts> AllAlgorithms() {
  std::vector<AlgorithmFacts> all;
  all.reserve(kHashAlgorithms.size() + kCipherAlgorithms.size() + kKeyAlgorithms.size());
  for (const auto& row : kHashAlgorithms) {
    all.push_back({row.algId, row.bits, row.bits, row.bits, row.name});
  }
  for (const auto& row : kCipherAlgorithms) {
    all.push_back({row.algId, row.keyBytes * 8, row.keyBytes * 8, row.keyBytes * 8, row.name});
  }
  for (const auto& row : kKeyAlgorithms) {
    if (row.bits != 0) {
      all.push_back({row.algId, row.bits, row.bits, row.bits, row.name});
    } else {
      all.push_back({row.algId, kDefaultRsaBits, kMinRsaBits, kMaxRsaBits, row.name});
    }
  }
  return all;
}

Bytes Describe(const AlgorithmFacts& facts) {
  PROV_ENUMALGS record{};
  record.aiAlgid = facts.algId;
  record.dwBitLen = facts.bits;
  record.dwNameLen = CopyText(record.szName, facts.name);
  Bytes item;
  AppendRecord(item, record);
  return item;
}

Bytes DescribeLong(const AlgorithmFacts& facts) {
  PROV_ENUMALGS_EX record{};
  record.aiAlgid = facts.algId;
  record.dwDefaultLen = facts.bits;
  record.dwMinLen = facts.minBits;
  record.dwMaxLen = facts.maxBits;
  record.dwNameLen = CopyText(record.szName, facts.name);
  record.dwLongNameLen = CopyText(record.szLongName, facts.name);
  Bytes item;
  AppendRecord(item, record);
  return item;
}

Listing MakeListing(Context& context, DWORD dwParam) {
  if (dwParam == PP_ENUM_CNT_KEYS) {
    return context.ListKeys();
  }
  Listing listing;
  if (dwParam == PP_ENUM_CNT || dwParam == PP_ENUMCONTAINERS) {
    for (const std::string& name : ListContainers()) {
      listing.items.push_back(Text(name));
    }
  } else {
    for (const AlgorithmFacts& facts : AllAlgorithms()) {
      listing.items.push_back(dwParam == PP_ENUMALGS ? Describe(facts) : DescribeLong(facts));
    }
  }
  return listing;
}

// Gives the next item. Without a buffer, the length of the longest one, and the list stays where it
// is; it also does if the buffer is too short.
void StepListing(Context& context, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags) {
  Require((dwFlags & ~DWORD{CRYPT_FIRST | CRYPT_NEXT}) == 0, NTE_BAD_FLAGS);
  context.WithListing(dwParam, [&](Listing& listing) {
    if ((dwFlags & CRYPT_FIRST) != 0 || !listing.begun) {
      listing = MakeListing(context, dwParam);
      listing.begun = true;
    }
    if (listing.next >= listing.items.size()) {
      Fail(listing.endCode);
    }
    if (!pbData) {
      std::size_t longest = 0;
      for (const Bytes& item : listing.items) {
        longest = std::max(longest, item.size());
      }
      *pdwDataLen = static_cast<DWORD>(longest);
      return;
    }
    Deliver(listing.items[listing.next], pbData, pdwDataLen);
    ++listing.next;
  });
}

void GetContainerProfile(BYTE* pbData, DWORD* pdwDataLen) {
  CntProfile record{};
  if (pbData && *pdwDataLen >= sizeof record) {
    std::memcpy(&record, pbData, sizeof record);
    const Profile profile = LoadProfile(ParseContainerName(ReadText(record.url)));
    CopyText(record.kind, profile.kind);
    CopyText(record.second, profile.second);
    CopyText(record.third, profile.third);
  }
  Deliver({reinterpret_cast<const BYTE*>(&record), sizeof record}, pbData, pdwDataLen);
}

void SetContainerProfile(const Context& context, const BYTE* pbData) {
  Require(!context.Container().empty(), NTE_BAD_KEYSET);
  CntProfile record;
  std::memcpy(&record, pbData, sizeof record);
  Profile profile{ReadText(record.kind), ReadText(record.second), ReadText(record.third)};
  // The kind goes into addresses, so it has to be a word that they can hold.
  ParseContainerName("profile://any/?kind=" + profile.kind);
  SaveProfile(context.Container(), profile);
}

// Not the kind that the container had when the context was opened: its profile may have been set
// since.
std::string CurrentKind(const Context& context) {
  ContainerName name;
  name.name = context.Container();
  return LoadProfile(name).kind;
}

Bytes SimpleParam(const Context& context, DWORD dwParam) {
  switch (dwParam) {
    case PP_NAME:
      return Text(context.ProviderName());
    case PP_CONTAINER:
    case PP_UNIQUE_CONTAINER:
      return Text(context.Container());
    case PP_PROVTYPE:
      return Number(context.ProviderType());
    case PP_VERSION:
      return Number(kVersion);
    case PP_IMPTYPE:
      return Number(CRYPT_IMPL_SOFTWARE);
    case PP_KEYSPEC:
      return Number(AT_KEYEXCHANGE | AT_SIGNATURE);
    case PP_SENDER_KEY:
      return Number(context.TakesSenderKey() ? 1 : 0);
    case PP_PROFILE:
      Require(!context.Container().empty(), NTE_BAD_KEYSET);
      return Text(context.Container());
    case PP_CNT_URL:
      Require(!context.Container().empty(), NTE_BAD_KEYSET);
      return Text(ContainerUrl(context.Container(), CurrentKind(context)));
    default:
      Fail(NTE_BAD_TYPE);
  }
}

}  // namespace

void Deliver(View value, BYTE* pbData, DWORD* pdwDataLen) {
  Require(pdwDataLen != nullptr, ERROR_INVALID_PARAMETER);
  const DWORD room = *pdwDataLen;
  *pdwDataLen = static_cast<DWORD>(value.size());
  if (!pbData) {
    return;
  }
  Require(room >= value.size(), ERROR_MORE_DATA);
  std::copy(value.begin(), value.end(), pbData);
}

std::shared_ptr<Context> RequireContext(HCRYPTPROV hProv) {
  auto context = Handles().Find<Context>(hProv);
  Require(context != nullptr, NTE_BAD_UID);
  return context;
}

void AcquireContext(HCRYPTPROV* phProv, LPCSTR pszContainer, DWORD dwFlags,
                    const ProviderTable* pVTable) {
  Require(phProv != nullptr, ERROR_INVALID_PARAMETER);
  Require((dwFlags & ~kAcquireFlags) == 0, NTE_BAD_FLAGS);
  StartGcrypt();
  const Caller caller = ReadTable(pVTable);
  const DWORD action = dwFlags & (CRYPT_VERIFYCONTEXT | CRYPT_NEWKEYSET | CRYPT_DELETEKEYSET);
  ContainerName name;
  if (action == CRYPT_VERIFYCONTEXT) {
    Require(!pszContainer || !*pszContainer, NTE_BAD_KEYSET_PARAM);
  } else {
    name = NameOrDefault(pszContainer);
    Require(action == 0 || action == CRYPT_NEWKEYSET || action == CRYPT_DELETEKEYSET,
            NTE_BAD_FLAGS);
    if (action == CRYPT_NEWKEYSET) {
      CreateContainer(name);
    }
    if (action == CRYPT_DELETEKEYSET) {
      DeleteContainer(name);
      *phProv = 0;
      return;
    }
  }
  Require(action != 0 || (dwFlags & CRYPT_SILENT) == 0 || !AsksForPassword(name),
          NTE_SILENT_CONTEXT);
  const HCRYPTPROV self = Handles().Reserve();
  Handles().Put(self,
                std::make_shared<Context>(self, caller.providerName, caller.providerType, name));
  *phProv = self;
}

void ReleaseContext(HCRYPTPROV hProv, DWORD dwFlags) {
  RequireContext(hProv);
  Require(dwFlags == 0, NTE_BAD_FLAGS);
  Handles().RemoveOwnedBy(hProv);
}

void GetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags) {
  const auto context = RequireContext(hProv);
  Require(pdwDataLen != nullptr, ERROR_INVALID_PARAMETER);
  switch (dwParam) {
    case PP_ENUMALGS:
    case PP_ENUMALGS_EX:
    case PP_ENUMCONTAINERS:
    case PP_ENUM_CNT:
    case PP_ENUM_CNT_KEYS:
      return StepListing(*context, dwParam, pbData, pdwDataLen, dwFlags);
    default:
      break;
  }
  Require(dwFlags == 0, NTE_BAD_FLAGS);
  if (dwParam == PP_CNT_PROFILE) {
    return GetContainerProfile(pbData, pdwDataLen);
  }
  Deliver(SimpleParam(*context, dwParam), pbData, pdwDataLen);
}

void SetProvParam(HCRYPTPROV hProv, DWORD dwParam, const BYTE* pbData, DWORD dwFlags) {
  const auto context = RequireContext(hProv);
  Require(dwFlags == 0, NTE_BAD_FLAGS);
  if (dwParam == PP_CLIENT_HWND) {
    return;  // there is no window to show
  }
  Require(pbData != nullptr, ERROR_INVALID_PARAMETER);
  if (dwParam == PP_SENDER_KEY) {
    return context->SetTakesSenderKey(ReadRecord<DWORD>({pbData, sizeof(DWORD)}) != 0);
  }
  if (dwParam == PP_CNT_PROFILE) {
    return SetContainerProfile(*context, pbData);
  }
  Fail(NTE_BAD_TYPE);
}

void GenRandom(HCRYPTPROV hProv, DWORD dwLen, BYTE* pbBuffer) {
  RequireContext(hProv);
  Require(pbBuffer != nullptr || dwLen == 0, ERROR_INVALID_PARAMETER);
  const Bytes octets = RandomBytes(dwLen);
  std::copy(octets.begin(), octets.end(), pbBuffer);
}

}  // namespace zarext::provider
