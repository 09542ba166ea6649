// The open of the provider store: its trace, its checks, what it hands to the framework.
#include <csetjmp>

#include "store_fixture.h"
#include "support/child_process.h"
#include "support/guarded_memory.h"
#include "support/import_patch.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

std::string Pointer(const void* pointer) {
  char text[20] = {};
  snprintf(text, sizeof text, "%016llX",
           static_cast<unsigned long long>(reinterpret_cast<ULONG_PTR>(pointer)));
  return text;
}

class StoreOpen : public StoreTest {
 protected:
  // The open with every argument.
  static BOOL Call(LPCSTR name, HCRYPTPROV hCryptProv, DWORD dwFlags, HCERTSTORE hCertStore,
                   CERT_STORE_PROV_INFO* result) {
    return Export<OpenStoreFunction>("ZarOpenStoreProv")(name, 0x10000, hCryptProv, dwFlags,
                                                         nullptr, hCertStore, result);
  }
};

TEST_F(StoreOpen, TracesItsArgumentsAndItsEnd) {
  const MemoryStore store;
  EXPECT_EQ(1, Call("zarvel STORE provider", 0, 0x1A000B, store.Get(), &info));
  EXPECT_THAT(trace.Messages(),
              ElementsAre("EXT : ZarOpenStoreProv [lpszStoreProvider = zarvel STORE provider] "
                          "[hCryptProv = 0] [dwFlags = 1A000B] [hCertStore = " +
                              Pointer(store.Get()) + "]",
                          "EXT : ZarOpenStoreProv : FINISH"));
}

TEST_F(StoreOpen, TracesTheLowHalfOfItsProviderHandle) {
  const MemoryStore store;
  const ProviderContext context;
  EXPECT_EQ(1, Call(kProviderStore, context.Get(), 0xAB, store.Get(), &info));
  char handle[20] = {};
  snprintf(handle, sizeof handle, "%x", static_cast<unsigned>(context.Get()));
  EXPECT_EQ("EXT : ZarOpenStoreProv [lpszStoreProvider = Zarvel Store Provider] [hCryptProv = " +
                std::string(handle) + "] [dwFlags = AB] [hCertStore = " + Pointer(store.Get()) +
                "]",
            trace.Messages()[0]);
}

TEST_F(StoreOpen, DescribesTheStoreIn40Octets) {
  const MemoryStore store;
  const GuardedMemory memory(Octets(40, 0xEE));
  auto* const result = memory.As<CERT_STORE_PROV_INFO>();
  ASSERT_EQ(1, Call(kProviderStore, 0, 0, store.Get(), result));
  EXPECT_EQ(40u, result->cbSize);
  EXPECT_EQ(17u, result->cStoreProvFunc);
  EXPECT_EQ(store.Get(), result->hStoreProv);
  EXPECT_EQ(0u, result->dwStoreProvFlags);
  EXPECT_EQ(nullptr, result->hStoreProvFuncAddr2);
  ASSERT_NE(nullptr, result->rgpvStoreProvFunc);
  std::vector<int> installed;
  for (int slot = 0; slot < 17; ++slot) {
    if (result->rgpvStoreProvFunc[slot] != nullptr) {
      installed.push_back(slot);
    }
  }
  EXPECT_THAT(installed, ElementsAre(0, 1, 2, 3, 14, 15, 16));
}

TEST_F(StoreOpen, WithoutANameOrWithANumberForIt) {
  const MemoryStore store;
  EXPECT_EQ(1, Call(nullptr, 0, 0, store.Get(), &info));
  EXPECT_EQ(1, Call(reinterpret_cast<LPCSTR>(13), 0, 0, store.Get(), &info));
  const auto lines = trace.Messages();
  ASSERT_THAT(lines, SizeIs(4));
  EXPECT_THAT(lines[0], testing::HasSubstr("[lpszStoreProvider = (null)]"));
  EXPECT_THAT(lines[2], testing::HasSubstr("[lpszStoreProvider = (null)]"));
}

TEST_F(StoreOpen, WithoutAPlaceForTheDescriptionFailsWith87) {
  const MemoryStore store;
  SetLastError(0);
  EXPECT_EQ(0, Call(kProviderStore, 0, 0, store.Get(), nullptr));
  EXPECT_EQ(87u, GetLastError());
  const auto lines = trace.Messages();
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_EQ("EXT : ZarOpenStoreProv : ERROR = 57", lines[1]);
  EXPECT_EQ("EXT : ZarOpenStoreProv : FINISH", lines[2]);
  // The critical section has been left.
  HANDLE thread = CreateThread(
      nullptr, 0,
      [](void* self) -> DWORD {
        const MemoryStore other;
        return static_cast<DWORD>(static_cast<StoreOpen*>(self)->Open(other));
      },
      static_cast<void*>(static_cast<StoreOpen*>(this)), 0, nullptr);
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, 20000));
  CloseHandle(thread);
}

TEST_F(StoreOpen, AFrameworkWithoutAStoreOfItsOwnGetsADescription) {
  AddContainer("c", {KeyWith(0x11, MakeCertificate({}), {1})});
  EXPECT_EQ(1, Call(kProviderStore, 0, CERT_STORE_DELETE_FLAG, nullptr, &info));
  EXPECT_EQ(nullptr, info.hStoreProv);
}

TEST_F(StoreOpen, ProviderTypes25And1AreServed) {
  const ProviderContext context;
  for (const DWORD type : {25u, 1u}) {
    provider.providerType = type;
    provider.ClearCalls();
    const MemoryStore store;
    EXPECT_EQ(1, Open(store, context.Get())) << type;
    ASSERT_FALSE(provider.Calls().empty());
    EXPECT_EQ("GetProvParam(1, 16, 4, 0)", provider.Calls()[0]);
    EXPECT_EQ(1, provider.CountCalls("AcquireContext(null"));
    Advance(100);
  }
}

TEST_F(StoreOpen, AnotherProviderTypeIsRefusedWithoutATouchOfTheCacheOrTheSection) {
  static int views;
  static int sections;
  views = sections = 0;
  const ImportPatch enter(
      Module(), "KERNEL32.dll", "EnterCriticalSection", +[](LPCRITICAL_SECTION section) WINAPI {
        ++sections;
        EnterCriticalSection(section);
      });
  const ImportPatch noView(
      Module(), "KERNEL32.dll", "MapViewOfFile",
      +[](HANDLE, DWORD, DWORD, DWORD, SIZE_T) WINAPI -> LPVOID {
        ++views;
        return nullptr;
      });
  const ProviderContext context;
  for (const DWORD type : {24u, 0u, 2u, 26u}) {
    provider.providerType = type;
    provider.ClearCalls();
    trace.Clear();
    SetLastError(4711);
    const MemoryStore store;
    EXPECT_EQ(0, Open(store, context.Get())) << type;
    EXPECT_EQ(4711u, GetLastError());
    EXPECT_THAT(trace.Messages(), SizeIs(1));
    EXPECT_THAT(provider.Calls(), ElementsAre("GetProvParam(1, 16, 4, 0)"));
  }
  EXPECT_EQ(0, views);
  EXPECT_EQ(0, sections);
  EXPECT_EQ(0u, info.cbSize);
}

TEST_F(StoreOpen, AFailingTypeQueryIsTheResult) {
  const ProviderContext context;
  provider.FailCall("GetProvParam", 1, 0x8009001F);
  const MemoryStore store;
  EXPECT_EQ(0, Open(store, context.Get()));
  EXPECT_EQ(0x8009001Fu, GetLastError());
  const auto lines = trace.Messages();
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_EQ("EXT : ZarOpenStoreProv : ERROR = 8009001f", lines[1]);
  EXPECT_EQ("EXT : ZarOpenStoreProv : FINISH", lines[2]);
}

TEST_F(StoreOpen, AHandleThatIsNoneIsTheResultOfThePlatform) {
  const MemoryStore store;
  // A block that the platform does not know as a provider.
  ULONG_PTR block[8] = {};
  EXPECT_EQ(0, Open(store, reinterpret_cast<HCRYPTPROV>(block)));
  EXPECT_EQ(87u, GetLastError());
}

TEST_F(StoreOpen, AReleaseThatThrowsIsPassedOver) {
  for (int failing = 1; failing <= 3; ++failing) {
    for (const bool isCode : {true, false}) {
      ContainerProvider fresh;
      UseScript(&fresh);
      fresh.containers = {
          {"a", "file", "", "", {KeyWith(1, MakeCertificate({.serial = {1}}), {1})}},
          {"b", "file", "", "", {KeyWith(2, MakeCertificate({.serial = {2}}), {2})}}};
      int releases = 0;
      fresh.onCall = [&](const std::string& call) {
        if (call.rfind("ReleaseContext", 0) != 0 || ++releases != failing) return;
        if (isCode) throw static_cast<unsigned long>(0x1234);
        throw 5;
      };
      const MemoryStore store;
      EXPECT_EQ(1, Open(store)) << failing;
      EXPECT_THAT(Encodings(store.Get()), SizeIs(2)) << failing;
      EXPECT_EQ(3, releases);
      EXPECT_EQ(1u, fresh.OpenContexts());
      UseScript(&provider);
      Advance(100);
    }
  }
}

TEST_F(StoreOpen, WhatARefusedContextLeavesBehindIsNotReleased) {
  AddContainer("c", {KeyWith(1, MakeCertificate({}), {1})});
  provider.leavesBehind = 0x77;
  provider.FailCall("AcquireContext", 1, 0x80090016);
  provider.FailCall("AcquireContext", 3, 0x80090016);
  const MemoryStore store;
  EXPECT_EQ(1, Open(store));
  EXPECT_THAT(provider.Calls(), ElementsAre("AcquireContext(null, f0000000) ! 80090016"));
  provider.ClearCalls();
  EXPECT_EQ(1, Open(store));
  EXPECT_THAT(provider.Calls(),
              ElementsAre("AcquireContext(null, f0000000) = 1", "GetProvParam(1, 57, 260, 1) = c",
                          "GetProvParam(1, 64, 1456, 0) = profile://c",
                          "AcquireContext(profile://c, 40) ! 80090016",
                          "GetProvParam(1, 57, 260, 0) ! 103", "ReleaseContext(1, 0)"));
}

// The failures out of a load keep the critical section, so each runs in a process of its own.
// Exit codes: 0 as expected, otherwise the number of the check that failed.
struct ThrownLoad {
  StoreFixes fixes{Module()};
  ModuleClock clock{Module(), 1800000000};
  ContainerProvider provider;
  TraceCapture trace;
  MemoryStore store;
  CERT_STORE_PROV_INFO info = {};

  void UseOneContainer() {
    UseScript(&provider);
    provider.containers.push_back({"c", "file", "", "", {KeyWith(1, MakeCertificate({}), {1})}});
  }
  // Calls of the provider whose text begins so throw the value.
  template <typename Thrown>
  void ThrowFrom(const char* function, Thrown thrown) {
    provider.onCall = [earlier = provider.onCall, function, thrown](const std::string& call) {
      if (earlier) earlier(call);
      if (call.rfind(function, 0) == 0) throw thrown;
    };
  }
  BOOL Open() {
    return Export<OpenStoreFunction>("ZarOpenStoreProv")(kProviderStore, 0, 0, 0, nullptr,
                                                         store.Get(), &info);
  }
  // 0 if the load failed with `code` and is still in the critical section.
  int Check(const std::string& error, DWORD code, std::size_t openContexts = 0) {
    SetLastError(0);
    if (Open() != 0) return 1;
    if (GetLastError() != code) return 2;
    const auto lines = trace.Messages();
    if (lines.size() < 3) return 3;
    if (lines[lines.size() - 2] != "EXT : ZarOpenStoreProv : ERROR" + error) return 4;
    if (lines[lines.size() - 1] != "EXT : ZarOpenStoreProv : FINISH") return 5;
    if (info.cbSize != 0) return 6;
    if (provider.OpenContexts() != openContexts) return 7;
    HANDLE thread = CreateThread(
        nullptr, 0,
        [](void* self) -> DWORD {
          return static_cast<DWORD>(static_cast<ThrownLoad*>(self)->Open());
        },
        this, 0, nullptr);
    if (WaitForSingleObject(thread, 1500) != WAIT_TIMEOUT) return 8;
    // The thread that has the section may go on.
    Open();
    return 0;
  }
};

int EndWith(int code) {
  // The waiting thread must not run into the destructors.
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(code));
  return code;
}

void ForgetProviders() {
  RegDeleteTreeA(HKEY_LOCAL_MACHINE,
                 "SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\Zarvel CSP");
}

ZAREXT_CHILD(StoreWithoutProvider) {
  ForgetProviders();
  RegisterProvider("Zarvel CSP", 25, "c:\\no such file.dll");
  ThrownLoad load;
  return EndWith(load.Check(" = 7e", 126));
}

ZAREXT_CHILD(StoreWithIncompleteProvider) {
  RegisterProvider("Zarvel CSP", 25, ProgramFolder() + "provider_without_CPSetKeyParam.dll");
  ThrownLoad load;
  return EndWith(load.Check(" = 7f", 127));
}

ZAREXT_CHILD(StoreWhoseProviderThrowsANumber) {
  ThrownLoad load;
  load.UseOneContainer();
  load.ThrowFrom("GetKeyParam", 0x1234ul);
  return EndWith(load.Check(" = 1234", 0x1234));
}

ZAREXT_CHILD(StoreWhoseProviderThrowsSomethingElse) {
  ThrownLoad load;
  load.UseOneContainer();
  load.ThrowFrom("GetKeyParam", 5);
  return EndWith(load.Check("", 0x8009000E));
}

ZAREXT_CHILD(StoreWhoseProviderThrowsOnTheWayOutToo) {
  ThrownLoad load;
  load.UseOneContainer();
  load.ThrowFrom("GetKeyParam", 0x1234ul);
  load.ThrowFrom("ReleaseContext", 0x5678ul);
  return EndWith(load.Check(" = 1234", 0x1234, 2));
}

ZAREXT_CHILD(StoreWhoseProviderNameDoesNotConvert) {
  ThrownLoad load;
  load.UseOneContainer();
  // The address still converts, the provider's name does not.
  const ImportPatch patch(
      Module(), "KERNEL32.dll", "MultiByteToWideChar",
      +[](UINT page, DWORD flags, LPCCH text, int size, LPWSTR wide, int room) WINAPI -> int {
        return room == 256 ? 0 : MultiByteToWideChar(page, flags, text, size, wide, room);
      });
  return EndWith(load.Check(" = 3", 3));
}

// A host with a handler of its own, for faults too, that goes on behind the call of the store.
jmp_buf behindTheCall;
LONG WINAPI GoBehindTheCall(EXCEPTION_POINTERS* raised) {
  if (raised->ExceptionRecord->ExceptionCode == 0xE0001234) {
    longjmp(behindTheCall, 1);  // NOLINT(cert-err52-cpp): what is raised is none of C++
  }
  return EXCEPTION_CONTINUE_SEARCH;
}

ZAREXT_CHILD(StoreWhoseProviderFaults) {
  ThrownLoad load;
  load.UseOneContainer();
  load.provider.onCall = [](const std::string& call) {
    if (call.rfind("GetKeyParam", 0) == 0) RaiseException(0xE0001234, 0, 0, nullptr);
  };
  AddVectoredExceptionHandler(1, &GoBehindTheCall);
  if (setjmp(behindTheCall) == 0) {  // NOLINT(cert-err52-cpp)
    load.Open();
    return EndWith(20);
  }
  // No destructor of the module has run.
  if (load.provider.OpenContexts() != 2) return EndWith(21);
  load.provider.onCall = nullptr;
  load.ThrowFrom("GetKeyParam", 5);
  if (const int failed = load.Check("", 0x8009000E, 2)) return EndWith(failed);
  load.provider.onCall = nullptr;
  load.provider.ClearCalls();
  if (!load.Open()) return EndWith(22);
  // No load runs any more, so that this open walks.
  return EndWith(load.provider.CountCalls("AcquireContext(null") == 1 ? 0 : 23);
}

struct StoreChild {
  const char* name;
  const char* child;
  friend void PrintTo(const StoreChild& row, std::ostream* out) { *out << row.child; }
};

class StoreOpenThatThrows : public testing::TestWithParam<StoreChild> {};

INSTANTIATE_TEST_SUITE_P(
    InAProcessOfItsOwn, StoreOpenThatThrows,
    testing::Values(
        StoreChild{"WithoutAProviderModuleKeepsTheSection", "StoreWithoutProvider"},
        StoreChild{"WithAnIncompleteProviderModuleKeepsTheSection", "StoreWithIncompleteProvider"},
        StoreChild{"WithACodeFromBelowKeepsTheSection", "StoreWhoseProviderThrowsANumber"},
        StoreChild{"KeepsItsCodeWhenAReleaseThrowsToo", "StoreWhoseProviderThrowsOnTheWayOutToo"},
        StoreChild{"WithAnythingElseFailsForMemory", "StoreWhoseProviderThrowsSomethingElse"},
        StoreChild{"AfterAFaultOfTheProvidersTheNextOpenWalks", "StoreWhoseProviderFaults"},
        StoreChild{"WithAProviderNameThatDoesNotConvertFailsWith3",
                   "StoreWhoseProviderNameDoesNotConvert"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_P(StoreOpenThatThrows, EndsWith0) {
  EXPECT_EQ(0u, ChildProcess(GetParam().child).Wait(60000).value_or(255));
}

}  // namespace
}  // namespace zarext::test
