// Which calls registration and unregistration make, in which order, and what they do when one
// fails.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "contract/recording_framework.h"
#include "contract/registration_expected.h"
#include "support/module_under_test.h"
#include "support/trace_capture.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Calls = std::vector<std::string>;

constexpr HRESULT kUnexpected = static_cast<HRESULT>(0x8000FFFF);
constexpr char kPath[] = "C:\\Program Files\\Zarvel\\ZAREXT.dll";

HRESULT Register() { return Export<HRESULT WINAPI()>("DllRegisterServer")(); }
HRESULT Unregister() { return Export<HRESULT WINAPI()>("DllUnregisterServer")(); }

std::string Hex(DWORD number) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%lX", number);
  return text;
}

// The 551 calls of a registration that succeeds.
Calls RegistrationCalls() {
  Calls calls = {"LoadLibraryA(crypt32)", "GetProcAddress(CryptRegisterOIDInfo)",
                 "GetProcAddress(CryptRegisterOIDFunction)",
                 "GetProcAddress(CertRegisterPhysicalStore)"};
  for (const ExpectedRecord& record : RegisteredRecords()) {
    calls.push_back(RecordCallText("CryptRegisterOIDInfo", record.oid, record.group, record.name,
                                   record.algorithm, record.extra.data()) +
                    " 1");
  }
  calls.emplace_back("GetModuleFileNameA(ZAREXT, 260)");
  calls.emplace_back("MultiByteToWideChar(0, 0, -1, 260)");
  for (const ExpectedBinding& binding : RegisteredBindings()) {
    calls.push_back("CryptRegisterOIDFunction(" + Hex(binding.encodingType) + ", " +
                    binding.function + ", " + binding.oid + ", " + kPath + ", " +
                    binding.exportName + ")");
    if (binding.function == "CertDllOpenStoreProv") {
      calls.emplace_back(
          "CertRegisterPhysicalStore(MY, 0x10000, Zarvel Store Provider, 48, "
          "\"Zarvel Store Provider\", 0x10001, 0x50000, \"Zarvel Store Provider\", 1, 1, null)");
    }
  }
  calls.emplace_back("FreeLibrary()");
  return calls;
}

// The 525 calls of an unregistration.
Calls UnregistrationCalls() {
  Calls calls = {"LoadLibraryA(crypt32)", "GetProcAddress(CryptUnregisterOIDInfo)",
                 "GetProcAddress(CryptUnregisterOIDFunction)",
                 "GetProcAddress(CertUnregisterPhysicalStore)",
                 "CertUnregisterPhysicalStore(MY, 0x10010, Zarvel Store Provider)"};
  for (const ExpectedRecord& record : RemovedRecords()) {
    calls.push_back(RecordCallText("CryptUnregisterOIDInfo", record.oid, record.group, record.name,
                                   record.algorithm, record.extra.data()));
  }
  calls.emplace_back("GetModuleFileNameA(ZAREXT, 260)");
  calls.emplace_back("MultiByteToWideChar(0, 0, -1, 260)");
  for (const ExpectedBinding& binding : RemovedBindings()) {
    calls.push_back("CryptUnregisterOIDFunction(" + Hex(binding.encodingType) + ", " +
                    binding.function + ", " + binding.oid + ")");
  }
  calls.emplace_back("FreeLibrary()");
  return calls;
}

// `all` up to the call that fails, and then the freeing of crypt32, if it comes.
Calls UpTo(const Calls& all, std::size_t position, bool freed) {
  Calls calls(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(position));
  if (freed) {
    calls.emplace_back("FreeLibrary()");
  }
  return calls;
}

class Registration : public testing::Test {
 protected:
  Registration() { framework.SetModulePath(kPath); }
  RecordingFramework framework;
};
using Unregistration = Registration;

TEST(RegistrationTables, HaveTheStatedLengths) {
  EXPECT_EQ(68u, RegisteredRecords().size());
  EXPECT_EQ(475u, RegisteredBindings().size());
  EXPECT_EQ(64u, RemovedRecords().size());
  EXPECT_EQ(453u, RemovedBindings().size());
  EXPECT_EQ(551u, RegistrationCalls().size());
  EXPECT_EQ(525u, UnregistrationCalls().size());
}

TEST_F(Registration, MakesEveryCallInOrder) {
  EXPECT_EQ(S_OK, Register());
  EXPECT_EQ(RegistrationCalls(), framework.Calls());
}

TEST_F(Registration, DoesNotTrace) {
  TraceCapture trace;
  EXPECT_EQ(S_OK, Register());
  EXPECT_EQ(S_OK, Unregister());
  framework.FailAt(framework.Calls().size() + 1);
  EXPECT_EQ(kUnexpected, Register());
  EXPECT_THAT(trace.Lines(), IsEmpty());
}

// The numbers, not characters of this file: neither file's encoding may show.
TEST_F(Registration, NamesAreUtf16CodeUnits) {
  EXPECT_EQ(S_OK, Register());
  const auto units = [&](std::size_t row) {
    const std::wstring& name = framework.RecordNames().at(row - 1);
    return std::vector<unsigned>(name.begin(), name.end());
  };
  // "Zarvel." is Latin, the rest of row 3 is not.
  EXPECT_THAT(units(3), ElementsAre(0x0410, 0x043B, 0x0433, 0x043E, 0x0440, 0x0438, 0x0442, 0x043C,
                                    0x0020, 0x0445, 0x0435, 0x0448, 0x0438, 0x0440, 0x043E, 0x0432,
                                    0x0430, 0x043D, 0x0438, 0x044F, 0x0020, 0x005A, 0x0061, 0x0072,
                                    0x0076, 0x0065, 0x006C, 0x002E));
  EXPECT_THAT(units(26),
              ElementsAre(0x0413, 0x041E, 0x0421, 0x0422, 0x0020, 0x0420, 0x0020, 0x0033, 0x0034,
                          0x002E, 0x0031, 0x0030, 0x002D, 0x0032, 0x0030, 0x0030, 0x0031, 0x002E));
  EXPECT_THAT(units(59), ElementsAre(0x041A, 0x043B, 0x044E, 0x0447, 0x0020, 0x0052, 0x0053, 0x0041,
                                     0x0020, 0x0028, 0x0031, 0x0030, 0x0032, 0x0034, 0x0020, 0x0062,
                                     0x0069, 0x0074, 0x0073, 0x0029));
}

TEST_F(Registration, FillsOneStructureAgainForEveryRecord) {
  EXPECT_EQ(S_OK, Register());
  EXPECT_EQ(1u, framework.RecordMemory().size());
}

TEST_F(Registration, ResetsTheExtraValuesBehindTheLastRecord) {
  std::vector<DWORD> seen;
  framework.onCall = [&](const std::string& call) {
    if (call == "GetModuleFileNameA(ZAREXT, 260)") {
      const DWORD* extra = framework.RecordMemory().begin()->second;
      seen.assign(extra, extra + 3);
    }
  };
  EXPECT_EQ(S_OK, Register());
  EXPECT_THAT(seen, ElementsAre(0u, 0u, 25u));
}

TEST_F(Registration, FreesThePathBufferBeforeTheFirstBinding) {
  std::vector<std::size_t> held;
  framework.onCall = [&](const std::string& call) {
    if (call.starts_with("MultiByteToWideChar") ||
        call.starts_with("CryptRegisterOIDFunction(0x0")) {
      held.push_back(framework.HeldAllocations());
    }
  };
  EXPECT_EQ(S_OK, Register());
  EXPECT_THAT(held, ElementsAre(1u, 0u));
  EXPECT_EQ(1, framework.Allocations());
}

// Older systems give a path of 260 characters and more without a terminating zero.
TEST_F(Registration, CutsALongPath) {
  framework.SetModulePath(std::string(300, 'p'));
  EXPECT_EQ(S_OK, Register());
  EXPECT_EQ(std::wstring(259, L'p'), framework.LastPath());
  EXPECT_EQ(S_OK, Unregister());
}

TEST_F(Registration, WidensThePathFromTheAnsiCodePage) {
  framework.SetModulePath("C:\\\xE9\\ZAREXT.dll");
  wchar_t wide[2] = {};
  ASSERT_EQ(1, MultiByteToWideChar(GetACP(), 0, "\xE9", 1, wide, 1));
  EXPECT_EQ(S_OK, Register());
  EXPECT_EQ(std::wstring(L"C:\\") + wide + L"\\ZAREXT.dll", framework.LastPath());
}

struct Failure {
  const char* what;
  std::size_t position;  // in the calls of a registration that succeeds
  const char* call;      // how that call starts
  bool freed;            // whether crypt32 is freed afterwards
};

class RegistrationFailure : public Registration, public testing::WithParamInterface<Failure> {};

TEST_P(RegistrationFailure, StopsAtOnce) {
  const Failure& failure = GetParam();
  const Calls all = RegistrationCalls();
  ASSERT_THAT(all.at(failure.position - 1), testing::StartsWith(failure.call));
  framework.FailAt(failure.position);
  EXPECT_EQ(kUnexpected, Register());
  EXPECT_EQ(UpTo(all, failure.position, failure.freed), framework.Calls());
  EXPECT_EQ(0u, framework.HeldAllocations());

  // The next run starts from the beginning.
  framework.FailNothing();
  framework.Clear();
  EXPECT_EQ(S_OK, Register());
  EXPECT_EQ(all, framework.Calls());
}

INSTANTIATE_TEST_SUITE_P(
    At, RegistrationFailure,
    testing::Values(
        Failure{"Load", 1, "LoadLibraryA(", false},
        Failure{"LookUp1", 2, "GetProcAddress(CryptRegisterOIDInfo)", true},
        Failure{"LookUp2", 3, "GetProcAddress(CryptRegisterOIDFunction)", true},
        Failure{"LookUp3", 4, "GetProcAddress(CertRegisterPhysicalStore)", true},
        Failure{"Record1", 5, "CryptRegisterOIDInfo(1.3.6.1.5.5.7.3.10, 7,", true},
        Failure{"Record20", 24, "CryptRegisterOIDInfo(1.3.6.1.4.1.32473.1.2.4, 2,", true},
        Failure{"Record68", 72, "CryptRegisterOIDInfo(1.3.6.1.4.1.32473.1.8.24, 3,", true},
        Failure{"Path", 73, "GetModuleFileNameA(", true},
        Failure{"WidePath", 74, "MultiByteToWideChar(", true},
        Failure{"StoreBinding", 75, "CryptRegisterOIDFunction(0x0, CertDllOpenStoreProv,", false},
        Failure{"PhysicalStore", 76, "CertRegisterPhysicalStore(", true},
        Failure{"FirstBinding", 77,
                "CryptRegisterOIDFunction(0x1, CryptDllImportPrivateKeyInfoEx, "
                "1.3.6.1.4.1.32473.1.2.2,",
                true},
        Failure{"LastBinding", 550,
                "CryptRegisterOIDFunction(0x1, CryptMsgDllExportKeyTrans, "
                "1.3.6.1.4.1.32473.1.8.24,",
                true}),
    [](const testing::TestParamInfo<Failure>& tested) { return tested.param.what; });

TEST_F(Registration, FailsAtEveryCallButTheLast) {
  const Calls all = RegistrationCalls();
  for (std::size_t position = 1; position < all.size(); ++position) {
    framework.Clear();
    framework.FailAt(position);
    SetLastError(0);
    ASSERT_EQ(kUnexpected, Register()) << position;
    ASSERT_EQ(0x1234u, GetLastError()) << position;
    const bool freed = position != 1 && position != 75;
    ASSERT_EQ(UpTo(all, position, freed), framework.Calls()) << position;
    ASSERT_EQ(0u, framework.HeldAllocations()) << position;
  }
  framework.Clear();
  framework.FailAt(all.size());
  EXPECT_EQ(S_OK, Register()) << "freeing crypt32 is not checked";
}

TEST_F(Registration, FailsWithoutMemoryForThePath) {
  framework.FailAllocation(true);
  EXPECT_EQ(kUnexpected, Register());
  EXPECT_EQ(0x8009000Eu, GetLastError());
  EXPECT_EQ(UpTo(RegistrationCalls(), 72, true), framework.Calls());
}

TEST_F(Unregistration, MakesEveryCallInOrder) {
  EXPECT_EQ(S_OK, Unregister());
  EXPECT_EQ(UnregistrationCalls(), framework.Calls());
  EXPECT_EQ(1u, framework.RecordMemory().size());
  EXPECT_EQ(1, framework.Allocations());
  EXPECT_EQ(0u, framework.HeldAllocations());
}

TEST_F(Unregistration, FreesThePathBufferBeforeTheFirstBinding) {
  std::vector<std::size_t> held;
  framework.onCall = [&](const std::string& call) {
    if (call.starts_with("MultiByteToWideChar") ||
        call.starts_with("CryptUnregisterOIDFunction(0x0")) {
      held.push_back(framework.HeldAllocations());
    }
  };
  EXPECT_EQ(S_OK, Unregister());
  EXPECT_THAT(held, ElementsAre(1u, 0u));
}

TEST_F(Unregistration, PassesOverWhatTheFrameworkRefuses) {
  framework.FailAll("CertUnregisterPhysicalStore");
  framework.FailAll("CryptUnregisterOIDInfo");
  framework.FailAll("CryptUnregisterOIDFunction");
  EXPECT_EQ(S_OK, Unregister());
  EXPECT_EQ(UnregistrationCalls(), framework.Calls());
  // Nor does a second run mind.
  framework.Clear();
  EXPECT_EQ(S_OK, Unregister());
  EXPECT_EQ(UnregistrationCalls(), framework.Calls());
}

TEST_F(Unregistration, FailsOnlyWithoutTheFunctionsOrThePath) {
  const Calls all = UnregistrationCalls();
  for (std::size_t position = 1; position <= all.size(); ++position) {
    framework.Clear();
    framework.FailAt(position);
    const HRESULT result = Unregister();
    // Loading, the three look-ups, and the two path calls behind the store and the 64 records.
    if (position <= 4 || position == 70 || position == 71) {
      ASSERT_EQ(kUnexpected, result) << position;
      ASSERT_EQ(UpTo(all, position, position != 1), framework.Calls()) << position;
    } else {
      ASSERT_EQ(S_OK, result) << position;
      ASSERT_EQ(all, framework.Calls()) << position;
    }
    ASSERT_EQ(0u, framework.HeldAllocations()) << position;
  }
}

TEST_F(Unregistration, FailsWithoutMemoryForThePath) {
  framework.FailAllocation(true);
  EXPECT_EQ(kUnexpected, Unregister());
  EXPECT_EQ(UpTo(UnregistrationCalls(), 69, true), framework.Calls());
  framework.FailAllocation(false);
  framework.Clear();
  EXPECT_EQ(S_OK, Unregister());
}

}  // namespace
}  // namespace zarext::test
