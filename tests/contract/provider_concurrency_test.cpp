// The development provider from 8 threads and from 3 processes at once.
#include <algorithm>
#include <atomic>
#include <thread>

#include "contract/provider_fixture.h"
#include "support/child_process.h"
#include "support/openssl_fixtures.h"

namespace zarext::test {
namespace {

constexpr int kThreads = 8;

template <typename Work>
int CountFailures(Work work) {
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      try {
        if (!work(i)) ++failures;
      } catch (const CallFailed&) {
        ++failures;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  return failures;
}

using Threads = ProviderTest;

TEST_F(Threads, UseOneContext) {
  const Context context = NewContainer("box");
  const Octets blob = Export(Generate(context, AT_SIGNATURE), PUBLICKEYBLOB);
  EXPECT_EQ(CountFailures([&](int thread) {
              const Octets data(100, static_cast<BYTE>(thread));
              for (int i = 0; i < 10; ++i) {
                const Octets signature = SignData(context, AT_SIGNATURE, 0x8022, data);
                const Key key = Import(context, blob);
                if (VerifyCode(context, key.Get(), 0x8022, data, signature) != 0) return false;
              }
              return true;
            }),
            0);
}

TEST_F(Threads, HaveContainersOfTheirOwn) {
  EXPECT_EQ(
      CountFailures([&](int thread) {
        const std::string name = "box" + std::to_string(thread);
        for (int i = 0; i < 5; ++i) {
          const Octets blob = Export(Generate(NewContainer(name.c_str()), 0xAA3A), PUBLICKEYBLOB);
          if (Export(UserKey(Acquire(name.c_str(), 0), AT_SIGNATURE), PUBLICKEYBLOB) != blob)
            return false;
          HCRYPTPROV none = 0;
          if (!CryptAcquireContextA(&none, name.c_str(), "Zarvel CSP", 25, CRYPT_DELETEKEYSET))
            return false;
        }
        return true;
      }),
      0);
}

TEST_F(Threads, EncryptWithKeysOfTheirOwnAndShareOne) {
  const Context context = Acquire(nullptr, CRYPT_VERIFYCONTEXT);
  const Key shared = Generate(context, 0x6610);
  EXPECT_EQ(CountFailures([&](int thread) {
              const Key own = Generate(context, 0x681F);
              for (int i = 0; i < 50; ++i) {
                for (const Key* key : {&own, &shared}) {
                  Octets data(48, static_cast<BYTE>(thread));
                  DWORD length = 32;
                  if (!CryptEncrypt(key->Get(), 0, TRUE, 0, data.data(), &length, 48)) return false;
                  if (!CryptDecrypt(key->Get(), 0, TRUE, 0, data.data(), &length)) return false;
                  if (length != 32 || data[0] != thread || data[31] != thread) return false;
                }
              }
              return true;
            }),
            0);
}

// One writer of a container's key file, readers all around: a reader sees the old key or the new
// one.
TEST_F(Threads, NeverSeeHalfAKey) {
  const Context first = NewContainer("box");
  Generate(first, AT_SIGNATURE);
  std::atomic<bool> done{false};
  EXPECT_EQ(CountFailures([&](int thread) {
              const Context context = Acquire("box", 0);
              if (thread == 0) {
                for (int i = 0; i < 20; ++i) Generate(context, AT_SIGNATURE);
                done = true;
                return true;
              }
              while (!done) {
                if (Export(UserKey(context, AT_SIGNATURE), PUBLICKEYBLOB).size() != 80)
                  return false;
              }
              return true;
            }),
            0);
}

TEST_F(Threads, OnlyOneOfWhichMakesTheContainer) {
  EXPECT_EQ(CountFailures([&](int) {
              Context context;
              return CryptAcquireContextA(context.Out(), "box", "Zarvel CSP", 25,
                                          CRYPT_NEWKEYSET) != FALSE;
            }),
            kThreads - 1);
}

// Processes ------------------------------------------------------------------------------------

// A certificate of `serial` numbers that no other thread or process makes.
Octets ChainCertificate(const std::string& who, int number) {
  Octets der = FromHex(openssl::kGost2001ACertificate);
  der[15] = static_cast<BYTE>(who[0]);  // in the serial number
  der[16] = static_cast<BYTE>(number);
  return der;
}

int AddToChain(const std::string& who) {
  const Context context = Acquire("box", 0);
  const Key key = UserKey(context, AT_SIGNATURE);
  for (int i = 0; i < 10; ++i) {
    if (!CryptSetKeyParam(key.Get(), 68, ChainCertificate(who, i).data(), 0)) return 1;
  }
  return 0;
}

ZAREXT_CHILD(provider_add_to_chain) {
  UseDevProvider();
  return AddToChain(arguments[0]);
}

ZAREXT_CHILD(provider_sign_and_verify) {
  UseDevProvider();
  const Context context = Acquire("box", 0);
  const Key key = UserKey(context, AT_SIGNATURE);
  for (int i = 0; i < 10; ++i) {
    const Octets data(50, static_cast<BYTE>(i));
    const Octets signature = SignData(context, AT_SIGNATURE, 0x8015, data);
    if (VerifyCode(context, key.Get(), 0x8015, data, signature) != 0) return 1;
  }
  return 0;
}

ZAREXT_CHILD(provider_make_keys) {
  UseDevProvider();
  const Context context = Acquire("box", 0);
  for (;;) {
    Generate(context, AT_SIGNATURE);
    Generate(context, AT_KEYEXCHANGE);
  }
}

using Processes = ProviderTest;

TEST_F(Processes, ChangeOneContainerWithoutLosingAChange) {
  const Context context = NewContainer("box");
  const Key key = Import(context, FromHex(openssl::kGost2001AKey));
  {
    const ChildProcess a("provider_add_to_chain", {"a"});
    const ChildProcess b("provider_add_to_chain", {"b"});
    EXPECT_EQ(AddToChain("c"), 0);
    EXPECT_EQ(a.Wait(), 0U);
    EXPECT_EQ(b.Wait(), 0U);
  }
  const Octets chain = Fetch("CryptGetKeyParam", [&](BYTE* data, DWORD* length) {
    return CryptGetKeyParam(key.Get(), 69, data, length, 0);
  });
  for (const char* who : {"a", "b", "c"}) {
    for (int i = 0; i < 10; ++i) {
      const Octets certificate = ChainCertificate(who, i);
      EXPECT_NE(std::search(chain.begin(), chain.end(), certificate.begin(), certificate.end()),
                chain.end())
          << who << i;
    }
  }
}

TEST_F(Processes, ThatAreKilledWhileTheyWriteLeaveWholeKeys) {
  const Context context = NewContainer("box");
  Generate(context, AT_SIGNATURE);
  Generate(context, AT_KEYEXCHANGE);
  const Octets first = Export(UserKey(context, AT_SIGNATURE), PUBLICKEYBLOB);
  for (int i = 0; i < 5; ++i) {
    const ChildProcess writer("provider_make_keys");
    const Octets before = Export(UserKey(context, AT_SIGNATURE), PUBLICKEYBLOB);
    // Until it writes, and then at a moment of its own each time.
    while (Export(UserKey(context, AT_SIGNATURE), PUBLICKEYBLOB) == before) Sleep(1);
    Sleep(7 * static_cast<DWORD>(i));
    writer.Kill();
    EXPECT_TRUE(writer.Wait().has_value());
    EXPECT_EQ(Export(UserKey(context, AT_SIGNATURE), PUBLICKEYBLOB).size(), 80U);
    EXPECT_EQ(Export(UserKey(context, AT_KEYEXCHANGE), PUBLICKEYBLOB).size(), 80U);
  }
  EXPECT_NE(Export(UserKey(context, AT_SIGNATURE), PUBLICKEYBLOB), first);
}

TEST_F(Processes, SignWithOneContainer) {
  Generate(NewContainer("box"), 0xAA3A);
  const ChildProcess a("provider_sign_and_verify");
  const ChildProcess b("provider_sign_and_verify");
  EXPECT_EQ(a.Wait(), 0U);
  EXPECT_EQ(b.Wait(), 0U);
}

}  // namespace
}  // namespace zarext::test
