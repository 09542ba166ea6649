// Contexts of the development provider: containers made, opened, deleted; provider parameters;
// wrong handles and flags.
#include <set>

#include "contract/provider_fixture.h"

namespace zarext::test {
namespace {

constexpr DWORD kBadUid = 0x80090001;
constexpr DWORD kBadAlgId = 0x80090008;
constexpr DWORD kBadFlags = 0x80090009;
constexpr DWORD kBadType = 0x8009000A;
constexpr DWORD kExists = 0x8009000F;
constexpr DWORD kBadKeyset = 0x80090016;
constexpr DWORD kBadKeysetParam = 0x8009001F;

DWORD AcquireCode(const char* container, DWORD flags) {
  Context context;
  return CodeOf(CryptAcquireContextA(context.Out(), container, "Zarvel CSP", 25, flags));
}

// CRYPT_DELETEKEYSET gives no context.
DWORD DeleteCode(const char* container) {
  HCRYPTPROV none = 0;
  return CodeOf(CryptAcquireContextA(&none, container, "Zarvel CSP", 25, CRYPT_DELETEKEYSET));
}

using Contexts = ProviderTest;

TEST_F(Contexts, OfAContainerLiveFromNewToDelete) {
  EXPECT_EQ(AcquireCode("box", 0), kBadKeyset);
  EXPECT_EQ(DeleteCode("box"), kBadKeyset);
  EXPECT_EQ(AcquireCode("box", CRYPT_NEWKEYSET), 0U);
  EXPECT_EQ(AcquireCode("box", CRYPT_NEWKEYSET), kExists);
  EXPECT_EQ(AcquireCode("box", 0), 0U);
  EXPECT_EQ(AcquireCode("box", CRYPT_SILENT), 0U);
  EXPECT_EQ(AcquireCode("box", CRYPT_MACHINE_KEYSET), 0U);
  EXPECT_EQ(DeleteCode("box"), 0U);
  EXPECT_EQ(AcquireCode("box", 0), kBadKeyset);
  EXPECT_EQ(AcquireCode("box", CRYPT_NEWKEYSET), 0U);
}

TEST_F(Contexts, AreNamedByAddressToo) {
  EXPECT_EQ(AcquireCode("profile://box", CRYPT_NEWKEYSET), 0U);
  EXPECT_EQ(AcquireCode("box", 0), 0U);
  EXPECT_EQ(AcquireCode("profile://box/?sn=0A1B2C3D", 0), 0U);
  EXPECT_EQ(AcquireCode("profile://box/?kind=file", 0), 0U);
  EXPECT_EQ(AcquireCode("profile://box/?kind=idcard", 0), kBadKeyset);
  EXPECT_EQ(AcquireCode("profile://box/?sn=XY", 0), kBadKeysetParam);
  EXPECT_EQ(AcquireCode("profile://", 0), kBadKeysetParam);
  EXPECT_EQ(AcquireCode(std::string(250, 'x').c_str(), CRYPT_NEWKEYSET), kBadKeysetParam);
  EXPECT_EQ(DeleteCode("profile://box/?kind=idcard"), kBadKeyset);
  EXPECT_EQ(DeleteCode("profile://box/?sn=0A1B2C3D"), 0U);
  EXPECT_EQ(AcquireCode("box", 0), kBadKeyset);
}

TEST_F(Contexts, TakeAnyCharactersInANameAndKeepThemApart) {
  for (const char* name :
       {"con", "..", "a/b", "a\\b", "a b", "\xEA\xEB\xFE\xF7", "%41", "nul.txt"}) {
    EXPECT_EQ(AcquireCode(name, CRYPT_NEWKEYSET), 0U) << name;
    EXPECT_EQ(TextParam(Acquire(name, 0), PP_CONTAINER), name);
  }
  EXPECT_EQ(AcquireCode("A", 0), kBadKeyset);
}

TEST_F(Contexts, WithoutANameAreTheUsersOwn) {
  char user[257] = {};
  DWORD length = sizeof(user);
  GetUserNameA(user, &length);
  EXPECT_EQ(AcquireCode(nullptr, 0), kBadKeyset);
  EXPECT_EQ(AcquireCode(nullptr, CRYPT_NEWKEYSET), 0U);
  EXPECT_EQ(TextParam(Acquire(nullptr, 0), PP_CONTAINER), user);
  EXPECT_EQ(AcquireCode(user, 0), 0U);
}

TEST_F(Contexts, RefuseFlagsThatDoNotExist) {
  EXPECT_EQ(AcquireCode("box", 0x100), kBadFlags);
  EXPECT_EQ(AcquireCode("box", CRYPT_NEWKEYSET | CRYPT_DELETEKEYSET), kBadFlags);
  EXPECT_EQ(AcquireCode("box", CRYPT_VERIFYCONTEXT), kBadKeysetParam);
  EXPECT_EQ(AcquireCode(nullptr, CRYPT_VERIFYCONTEXT | CRYPT_SILENT), 0U);
  const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  Key key;
  EXPECT_EQ(CodeOf(CryptGenKey(context.Get(), 0x681F, 0x8000, key.Out())), kBadFlags);
  HashHandle hash;
  EXPECT_EQ(CodeOf(CryptCreateHash(context.Get(), 0x8015, 0, 1, hash.Out())), kBadFlags);
  DWORD length = 0;
  EXPECT_EQ(CodeOf(CryptGetProvParam(context.Get(), PP_NAME, nullptr, &length, 1)), kBadFlags);
}

TEST_F(Contexts, ForVerificationKeepTheirKeysToThemselves) {
  const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  Key key;
  EXPECT_EQ(CodeOf(CryptGetUserKey(context.Get(), AT_SIGNATURE, key.Out())), 0x8009000D);
  const Octets blob = Export(Generate(context, AT_SIGNATURE), PUBLICKEYBLOB);
  EXPECT_EQ(Export(UserKey(context, AT_SIGNATURE), PUBLICKEYBLOB), blob);
  const Context other = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  EXPECT_EQ(CodeOf(CryptGetUserKey(other.Get(), AT_SIGNATURE, key.Out())), 0x8009000D);
}

TEST_F(Contexts, AnswerThePlatformsParameters) {
  const Context context = NewContainer("box");
  EXPECT_EQ(TextParam(context, PP_NAME), "Zarvel CSP");
  EXPECT_EQ(TextParam(context, PP_CONTAINER), "box");
  EXPECT_EQ(TextParam(context, PP_UNIQUE_CONTAINER), "box");
  EXPECT_EQ(NumberParam(context, PP_PROVTYPE), 25U);
  EXPECT_EQ(NumberParam(context, PP_VERSION), 0x100U);
  EXPECT_EQ(NumberParam(context, PP_IMPTYPE), 2U);
  EXPECT_EQ(NumberParam(context, PP_KEYSPEC), 3U);
  const Context rsa = Acquire("box", 0, 1);
  EXPECT_EQ(TextParam(rsa, PP_NAME), "Zarvel CSP RSA");
  EXPECT_EQ(NumberParam(rsa, PP_PROVTYPE), 1U);
  DWORD length = 4;
  BYTE data[4];
  EXPECT_EQ(CodeOf(CryptGetProvParam(context.Get(), 200, data, &length, 0)), kBadType);
  EXPECT_EQ(CodeOf(CryptSetProvParam(context.Get(), 200, data, 0)), kBadType);
}

TEST_F(Contexts, ReportTheLengthToShortBuffers) {
  const Context context = NewContainer("box");
  BYTE data[16];
  DWORD length = 10;  // "Zarvel CSP" without its end
  memset(data, 0xEE, sizeof(data));
  EXPECT_EQ(CodeOf(CryptGetProvParam(context.Get(), PP_NAME, data, &length, 0)),
            DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(length, 11U);
  EXPECT_EQ(data[0], 0xEE);
  EXPECT_EQ(CodeOf(CryptGetProvParam(context.Get(), PP_NAME, data, &length, 0)), 0U);
  EXPECT_EQ(data[11], 0xEE);
  length = 0;
  EXPECT_EQ(CodeOf(CryptGetProvParam(context.Get(), PP_NAME, nullptr, &length, 0)), 0U);
  EXPECT_EQ(length, 11U);
}

TEST_F(Contexts, NameTheirProfileAndAddress) {
  EXPECT_EQ(TextParam(NewContainer("box"), 0x38), "box");
  EXPECT_EQ(TextParam(Acquire("box", 0), 0x2E), "profile://box");
  EXPECT_EQ(TextParam(NewContainer("profile://card/?kind=idcard"), 0x2E),
            "profile://card/?kind=idcard");
  EXPECT_EQ(AcquireCode("profile://card/?kind=idcard", 0), 0U);
  const Context none = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  DWORD length = 0;
  EXPECT_EQ(CodeOf(CryptGetProvParam(none.Get(), 0x38, nullptr, &length, 0)), kBadKeyset);
  EXPECT_EQ(CodeOf(CryptGetProvParam(none.Get(), 0x2E, nullptr, &length, 0)), kBadKeyset);
  EXPECT_EQ(TextParam(none, PP_CONTAINER), "");
}

TEST_F(Contexts, ListEveryAlgorithm) {
  const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  std::set<ALG_ID> seen;
  PROV_ENUMALGS record;
  DWORD length = sizeof(record);
  DWORD flags = CRYPT_FIRST;
  while (CryptGetProvParam(context.Get(), PP_ENUMALGS, reinterpret_cast<BYTE*>(&record), &length,
                           flags)) {
    EXPECT_EQ(length, 32U);
    EXPECT_EQ(record.dwNameLen, strlen(record.szName) + 1);
    EXPECT_TRUE(seen.insert(record.aiAlgid).second);
    // Both ask for the next one; crypt32 gives the flag.
    flags = seen.size() % 2 == 0 ? 0 : CRYPT_NEXT;
  }
  EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_MORE_ITEMS});
  EXPECT_EQ(seen, (std::set<ALG_ID>{0x8015, 0x801D, 0x8022, 0x8023, 0x8004, 0x800C, 0x800D,
                                    0x800E, 0x681F, 0x6620, 0x6610, 0x660E, 0x6611, 0xAA3A,
                                    0x2A3A, 0xA045, 0x2A4A, 0xA055, 0xAA4C, 0x2A4C, 0xA04B,
                                    0xA450, 0xA451, 0xA452, 0xA453, 0xA454, 0xA050, 0xA051,
                                    0xA052, 0xA053, 0xA054, 0x2400, 0xA400}));
  PROV_ENUMALGS_EX longRecord;
  length = sizeof(longRecord);
  Must(CryptGetProvParam(context.Get(), PP_ENUMALGS_EX, reinterpret_cast<BYTE*>(&longRecord),
                         &length, CRYPT_FIRST),
       "CryptGetProvParam");
  EXPECT_EQ(longRecord.aiAlgid, 0x8015U);
  EXPECT_EQ(longRecord.dwDefaultLen, 256U);
}

TEST_F(Contexts, ListTheContainers) {
  NewContainer("b");
  NewContainer("a");
  NewContainer("profile://\xEA 1/?kind=idcard");
  const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  for (const DWORD parameter : {DWORD{57}, DWORD{PP_ENUMCONTAINERS}}) {
    DWORD length = 0;
    EXPECT_EQ(CodeOf(CryptGetProvParam(context.Get(), parameter, nullptr, &length, CRYPT_FIRST)),
              0U);
    EXPECT_EQ(length, 4U);
    std::vector<std::string> names;
    char name[260] = {};
    length = 1;  // too short: the list does not move
    EXPECT_EQ(CodeOf(CryptGetProvParam(context.Get(), parameter, reinterpret_cast<BYTE*>(name),
                                       &length, CRYPT_FIRST)),
              DWORD{ERROR_MORE_DATA});
    for (length = sizeof(name);
         CryptGetProvParam(context.Get(), parameter, reinterpret_cast<BYTE*>(name), &length, 0);
         length = sizeof(name)) {
      names.emplace_back(name);
    }
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_MORE_ITEMS});
    EXPECT_EQ(names, (std::vector<std::string>{"\xEA 1", "a", "b"}));
  }
}

TEST_F(Contexts, ListNothingInAHomeThatDoesNotExist) {
  SetEnvironmentVariableA("ZARVEL_DEV_HOME", (home_.Path() + "\\none\\here").c_str());
  const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  char name[260];
  DWORD length = sizeof(name);
  EXPECT_EQ(CodeOf(CryptGetProvParam(context.Get(), 57, reinterpret_cast<BYTE*>(name), &length,
                                     CRYPT_FIRST)),
            DWORD{ERROR_NO_MORE_ITEMS});
  EXPECT_EQ(AcquireCode("box", 0), kBadKeyset);
  EXPECT_EQ(AcquireCode("box", CRYPT_NEWKEYSET), 0U);  // makes it
  EXPECT_EQ(AcquireCode("box", 0), 0U);
}

TEST_F(Contexts, LieInTheUsersFolderByDefault) {
  const std::string local = home_.Path() + "\\local";
  char old[MAX_PATH] = {};
  GetEnvironmentVariableA("LOCALAPPDATA", old, sizeof(old));
  SetEnvironmentVariableA("ZARVEL_DEV_HOME", nullptr);
  SetEnvironmentVariableA("LOCALAPPDATA", local.c_str());
  const DWORD code = AcquireCode("box", CRYPT_NEWKEYSET);
  SetEnvironmentVariableA("LOCALAPPDATA", old);
  SetEnvironmentVariableA("ZARVEL_DEV_HOME", home_.Path().c_str());
  EXPECT_EQ(code, 0U);
  EXPECT_NE(GetFileAttributesA((local + "\\Zarvel\\DevProvider\\c-box\\profile").c_str()),
            INVALID_FILE_ATTRIBUTES);
}

using DirectContexts = ProviderTest;

TEST_F(DirectContexts, NeedNoTable) {
  const DirectProvider provider;
  HCRYPTPROV context = 0;
  ASSERT_TRUE(provider.acquireContext(&context, nullptr, CRYPT_VERIFYCONTEXT, nullptr));
  DWORD type = 0;
  DWORD length = sizeof(type);
  EXPECT_TRUE(
      provider.getProvParam(context, PP_PROVTYPE, reinterpret_cast<BYTE*>(&type), &length, 0));
  EXPECT_EQ(type, 25U);
  char name[32] = {};
  length = sizeof(name);
  EXPECT_TRUE(provider.getProvParam(context, PP_NAME, reinterpret_cast<BYTE*>(name), &length, 0));
  EXPECT_STREQ(name, "Zarvel CSP");
  EXPECT_EQ(CodeOf(provider.releaseContext(context, 1)), kBadFlags);
  EXPECT_TRUE(provider.releaseContext(context, 0));
}

TEST_F(DirectContexts, KnowTheirHandles) {
  const DirectProvider provider;
  DWORD length = 0;
  HCRYPTKEY key = 0;
  HCRYPTPROV context = 0;
  HCRYPTPROV other = 0;
  ASSERT_TRUE(provider.acquireContext(&context, nullptr, CRYPT_VERIFYCONTEXT, nullptr));
  ASSERT_TRUE(provider.acquireContext(&other, nullptr, CRYPT_VERIFYCONTEXT, nullptr));
  ASSERT_TRUE(provider.genKey(context, 0x681F, 0, &key));
  for (const HCRYPTPROV wrong :
       {HCRYPTPROV{0}, HCRYPTPROV{1}, context + 1, HCRYPTPROV{key}, static_cast<HCRYPTPROV>(-1)}) {
    EXPECT_EQ(CodeOf(provider.getProvParam(wrong, PP_NAME, nullptr, &length, 0)), kBadUid);
    EXPECT_EQ(CodeOf(provider.releaseContext(wrong, 0)), kBadUid);
    EXPECT_EQ(CodeOf(provider.genKey(wrong, 0x681F, 0, &key)), kBadUid);
  }
  for (const HCRYPTKEY wrong :
       {HCRYPTKEY{0}, HCRYPTKEY{1}, key + 1, HCRYPTKEY{other}, static_cast<HCRYPTKEY>(-1)}) {
    EXPECT_EQ(CodeOf(provider.getKeyParam(context, wrong, KP_ALGID, nullptr, &length, 0)),
              0x80090003);
    EXPECT_EQ(CodeOf(provider.destroyKey(context, wrong)), 0x80090003);
  }
  EXPECT_EQ(CodeOf(provider.destroyKey(other, key)), 0x80090003);
  EXPECT_TRUE(provider.destroyKey(context, key));
  EXPECT_EQ(CodeOf(provider.destroyKey(context, key)), 0x80090003);
  ASSERT_TRUE(provider.genKey(context, 0x681F, 0, &key));
  EXPECT_TRUE(provider.releaseContext(context, 0));
  EXPECT_EQ(CodeOf(provider.releaseContext(context, 0)), kBadUid);
  EXPECT_EQ(CodeOf(provider.destroyKey(other, key)), 0x80090003);
  EXPECT_TRUE(provider.releaseContext(other, 0));
}

TEST_F(DirectContexts, RefuseNullWhereTheyWrite) {
  const DirectProvider provider;
  EXPECT_EQ(CodeOf(provider.acquireContext(nullptr, nullptr, CRYPT_VERIFYCONTEXT, nullptr)), 87U);
  HCRYPTPROV context = 0;
  ASSERT_TRUE(provider.acquireContext(&context, nullptr, CRYPT_VERIFYCONTEXT, nullptr));
  EXPECT_EQ(CodeOf(provider.getProvParam(context, PP_NAME, nullptr, nullptr, 0)), 87U);
  EXPECT_EQ(CodeOf(provider.genKey(context, 0x681F, 0, nullptr)), 87U);
  EXPECT_EQ(CodeOf(provider.importKey(context, nullptr, 80, 0, 0, nullptr)), 87U);
  HCRYPTKEY key = 0;
  const BYTE nothing[1] = {0x77};
  EXPECT_EQ(CodeOf(provider.importKey(context, nothing, 0, 0, 0, &key)), 87U);
  EXPECT_EQ(CodeOf(provider.importKey(context, nothing, 1, 0, 0, &key)), kBadType);
  EXPECT_EQ(CodeOf(provider.genKey(context, 0x1234, 0, &key)), kBadAlgId);
  EXPECT_TRUE(provider.releaseContext(context, 0));
}

TEST_F(DirectContexts, EndWithTheirHandlesInAdvapiToo) {
  const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  HCRYPTKEY key = 0;
  ASSERT_TRUE(CryptGenKey(context.Get(), 0x681F, 0, &key));
  EXPECT_TRUE(CryptDestroyKey(key));
  EXPECT_EQ(CodeOf(CryptDestroyKey(key)), 87U);
  EXPECT_EQ(CodeOf(CryptReleaseContext(0, 0)), 87U);
}

TEST_F(DirectContexts, GiveRandomOctets) {
  const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  Octets a(64);
  Octets b(64);
  EXPECT_TRUE(CryptGenRandom(context.Get(), 64, a.data()));
  EXPECT_TRUE(CryptGenRandom(context.Get(), 64, b.data()));
  EXPECT_NE(a, b);
  EXPECT_NE(a, Octets(64));
}

}  // namespace
}  // namespace zarext::test
