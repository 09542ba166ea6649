#include "frame/export_frame.h"

#include <gmock/gmock.h>
#include <windows.h>

#include <wincrypt.h>

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>

#include "frame/exception_globals.h"
#include "frame/handles.h"
#include "frame/module_state.h"
#include "support/child_process.h"
#include "support/import_patch.h"
#include "support/trace_capture.h"

extern "C" BOOL WINAPI ZarCryptDecodeObjectEx(DWORD, LPCSTR, const BYTE*, DWORD, DWORD,
                                              PCRYPT_DECODE_PARA, void*, DWORD*);

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID);

namespace zarext::test {
namespace {

using testing::ElementsAre;

TEST(ExportFrame, ReturnsTheWorksResultAndLeavesTheLastError) {
  SetLastError(5);
  EXPECT_EQ(TRUE, RunExport("Name", [](ExportTrace&) { return TRUE; }));
  EXPECT_EQ(FALSE, RunExport("Name", [](ExportTrace&) { return FALSE; }));
  EXPECT_EQ(TRUE, RunExport("Name", [](ExportTrace&) {}));
  EXPECT_EQ(5u, GetLastError());
}

TEST(ExportFrame, AThrownCodeBecomesTheLastError) {
  TraceCapture capture;
  EXPECT_EQ(FALSE,
            RunExport("Name", [](ExportTrace&) -> BOOL { throw static_cast<ErrorCode>(87); }));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(FALSE, RunExport("Name", [](ExportTrace&) -> BOOL {
              throw static_cast<ErrorCode>(NTE_BAD_ALGID);
            }));
  EXPECT_EQ(0x80090008u, GetLastError());
  EXPECT_THAT(capture.Lines(), ElementsAre());
}

TEST(ExportFrame, AnythingElseThatIsThrownIsNoMemory) {
  TraceCapture capture;
  for (int kind = 0; kind < 4; ++kind) {
    SetLastError(0);
    EXPECT_EQ(FALSE, RunExport("Name", [kind](ExportTrace&) -> BOOL {
                switch (kind) {
                  case 0:
                    throw std::bad_alloc();
                  case 1:
                    throw 2;
                  case 2:
                    throw NTE_BAD_TYPE;  // a signed value
                  default:
                    throw std::runtime_error("unexpected");
                }
              }));
    EXPECT_EQ(0x8009000Eu, GetLastError()) << kind;
  }
  EXPECT_THAT(capture.Lines(), ElementsAre());
}

TEST(ExportFrame, AConstantResultStaysWhenSomethingIsThrown) {
  EXPECT_EQ(TRUE, RunExport<BOOL>("Name", TRUE,
                                  [](ExportTrace&) -> BOOL { throw static_cast<ErrorCode>(31); }));
  EXPECT_EQ(31u, GetLastError());
}

TEST(ExportFrame, RequiredParametersFailWith87) {
  EXPECT_EQ(FALSE, RunExport("Name", [](ExportTrace&) -> BOOL {
              RequireParameter(false);
              return TRUE;
            }));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(TRUE, RunExport("Name", [](ExportTrace&) -> BOOL {
              RequireParameter(true);
              return TRUE;
            }));
}

// The language runtime asks for them whenever something is thrown or caught.
TEST(ExceptionGlobals, AreTheThreadsOwn) {
  const void* const mine = abi::__cxa_get_globals();
  EXPECT_EQ(mine, abi::__cxa_get_globals());
  EXPECT_EQ(mine, abi::__cxa_get_globals_fast());
  const void* elsewhere = nullptr;
  std::thread([&] { elsewhere = abi::__cxa_get_globals(); }).join();
  EXPECT_NE(nullptr, elsewhere);
  EXPECT_NE(mine, elsewhere);
}

TEST(ExceptionGlobals, AreZeroUnlessSomethingIsCaught) {
  const auto* const globals = reinterpret_cast<const ExceptionGlobals*>(abi::__cxa_get_globals());
  EXPECT_EQ(nullptr, globals->caughtExceptions);
  EXPECT_EQ(0u, globals->uncaughtExceptions);
  try {
    throw 1;
  } catch (int) {
    EXPECT_NE(nullptr, globals->caughtExceptions);
  }
  EXPECT_EQ(nullptr, globals->caughtExceptions);
  EXPECT_EQ(0u, globals->uncaughtExceptions);
}

TEST(ExceptionGlobals, LeaveTheLastError) {
  SetLastError(5);
  EXPECT_NE(nullptr, abi::__cxa_get_globals());
  EXPECT_EQ(5u, GetLastError());
}

TEST(ExportFrame, LinesAreFinishedTextsForTheTrace) {
  TraceCapture capture;
  SetLastError(9);
  RunExport("Name", [](ExportTrace& trace) {
    trace.Line("%s.", "%s %n %x");
    trace.Line("%x.", 255u);
    trace.WholeLine("%s", "%s %n %x");
    trace.WholeLine("EXT : Other [%i]", 5);
    return TRUE;
  });
  EXPECT_EQ(9u, GetLastError());
  EXPECT_THAT(capture.Messages(), ElementsAre("EXT : Name : %s %n %x.", "EXT : Name : ff.",
                                              "%s %n %x", "EXT : Other [5]"));
}

TEST(ExportFrame, AFailureIsTracedAndThrown) {
  TraceCapture capture;
  EXPECT_EQ(FALSE, RunExport("Name", [](ExportTrace& trace) -> BOOL {
              trace.LineAndThrow(31, "%s = %x.", "%s", 0xABCu);
            }));
  EXPECT_EQ(31u, GetLastError());
  EXPECT_EQ(FALSE, RunExport("Name", [](ExportTrace& trace) -> BOOL {
              SetLastError(0x1234);
              ThrowFailedCall(trace, "Call");
            }));
  EXPECT_EQ(0x1234u, GetLastError());
  EXPECT_THAT(capture.Messages(),
              ElementsAre("EXT : Name : %s = abc.", "EXT : Name : Call = 1234."));
}

TEST(ExportFrame, ACallThatMustSucceedFailsWithItsCode) {
  for (const bool succeeds : {true, false}) {
    EXPECT_EQ(succeeds ? TRUE : FALSE, RunExport("Name", [&](ExportTrace&) -> BOOL {
                SetLastError(0x4321);
                RequireSuccess(succeeds);
                return TRUE;
              }));
    EXPECT_EQ(0x4321u, GetLastError());
  }
}

// What is thrown out of the debugger's channel, by a handler of the host.
TEST(ExportFrame, ATraceThatThrowsIsNoMemory) {
  const ImportPatch patch(
      GetModuleHandleA(nullptr), "KERNEL32.dll", "OutputDebugStringA",
      +[](const char*) WINAPI { throw 5; });
  EXPECT_EQ(FALSE, RunExport("Name", [](ExportTrace& trace) {
              trace.Line("line");
              return TRUE;
            }));
  EXPECT_EQ(0x8009000Eu, GetLastError());
}

// Releases behind the handlers, and out of them.
void ThrowBehind(int value) {
  SetLastError(0x99);
  throw value;
}
using Thrower = UniqueHandle<int, ThrowBehind>;

TEST(ExportFrame, WhatIsKeptIsReleasedBehindTheHandlers) {
  EXPECT_EQ(FALSE, RunExportKeeping<Thrower>("Name", [](ExportTrace&, Thrower& kept) {
              kept.Reset(7);
              throw static_cast<ErrorCode>(31);
            }));
  EXPECT_EQ(0x99u, GetLastError());
  EXPECT_EQ(TRUE,
            RunExportKeeping<Thrower>("Name", [](ExportTrace&, Thrower& kept) { kept.Reset(7); }));
}

TEST(ExportFrame, AnExceptionOfAnotherCompilerIsNoMemory) {
  bool released = false;
  struct Note {
    bool& released;
    ~Note() { released = true; }
  };
  EXPECT_EQ(FALSE, RunExport("Name", [&](ExportTrace&) -> BOOL {
              const Note note{released};
              RaiseException(0xE06D7363, EXCEPTION_NONCONTINUABLE, 0, nullptr);
              return TRUE;
            }));
  EXPECT_EQ(0x8009000Eu, GetLastError());
  EXPECT_TRUE(released);
}

// Any other exception, a fault among them, goes to the host as it was raised: it ends the process
// or not, as the host has it.
LONG WINAPI EndWithWhatWasRaised(EXCEPTION_POINTERS* raised) {
  const EXCEPTION_RECORD& record = *raised->ExceptionRecord;
  TerminateProcess(GetCurrentProcess(), (record.ExceptionCode & 0xFF) + record.ExceptionFlags);
  return EXCEPTION_CONTINUE_SEARCH;
}
ZAREXT_CHILD(RaiseInAnExport) {
  SetUnhandledExceptionFilter(&EndWithWhatWasRaised);
  RunExport("Name", [](ExportTrace&) -> BOOL {
    RaiseException(0xE0001234, 0, 0, nullptr);
    return TRUE;
  });
  return 1;
}

TEST(ExportFrame, AnotherExceptionIsTheHosts) {
  EXPECT_EQ(0x34u, ChildProcess("RaiseInAnExport").Wait());
}

TEST(ExportFrame, ALongLineIsWhole) {
  const std::string text(20000, 'z');
  TraceCapture capture;
  RunExport("Name", [&](ExportTrace& trace) {
    trace.WholeLine("%s", text.c_str());
    trace.WholeLine("short");
    return TRUE;
  });
  EXPECT_THAT(capture.Messages(), ElementsAre(text, "short"));
}

decltype(malloc)* const realMalloc = reinterpret_cast<decltype(malloc)*>(
    reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("msvcrt.dll"), "malloc")));
void* RefuseLargeBlocks(std::size_t size) {
  if (size >= 10000) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  return realMalloc(size);
}

TEST(ExportFrame, WithoutMemoryALongLineIsCutToItsBuffer) {
  const std::string text(20000, 'z');
  TraceCapture capture;
  const ImportPatch patch(GetModuleHandleA(nullptr), "msvcrt.dll", "malloc", &RefuseLargeBlocks);
  SetLastError(9);
  RunExport("Name", [&](ExportTrace& trace) {
    trace.WholeLine("%s", text.c_str());
    EXPECT_EQ(9u, GetLastError());
    trace.WholeLine("short");
    return TRUE;
  });
  EXPECT_THAT(capture.Messages(), ElementsAre(std::string(4095, 'z'), "short"));
}

// A path of the host that fills the whole buffer, as older systems leave it.
DWORD WINAPI FillHostPath(HMODULE module, char* path, DWORD size) {
  if (module != GetModuleHandleA(nullptr) || size != 260) {
    return 0;
  }
  std::fill_n(path, size, 'h');
  return size;
}

ZAREXT_CHILD(LongHostPath) {
  TraceCapture capture;
  const ImportPatch patch(GetModuleHandleA(nullptr), "KERNEL32.dll", "GetModuleFileNameA",
                          &FillHostPath);
  DllMain(GetModuleHandleA(nullptr), DLL_PROCESS_ATTACH, nullptr);
  const std::string start =
      "EXT : DLL_PROCESS_ATTACH : FilePath=" + std::string(259, 'h') + " (id=";
  return capture.Messages().at(0).rfind(start, 0) == 0 && HostPath() == std::string(259, 'h') ? 0
                                                                                              : 1;
}

TEST(ModuleNotifications, ALongHostPathIsCut) {
  EXPECT_EQ(0u, ChildProcess("LongHostPath").Wait());
}

TEST(ModuleNotifications, OnlyTheAttachOfAProcessDoesAnything) {
  TraceCapture capture;
  for (const DWORD reason :
       {DWORD{DLL_PROCESS_DETACH}, DWORD{DLL_THREAD_ATTACH}, DWORD{DLL_THREAD_DETACH}, DWORD{99}}) {
    EXPECT_EQ(TRUE, DllMain(GetModuleHandleA(nullptr), reason, nullptr)) << reason;
  }
  EXPECT_THAT(capture.Lines(), ElementsAre());
  EXPECT_EQ(nullptr, ModuleInstance());
  EXPECT_STREQ("", HostPath());

  const auto instance = reinterpret_cast<HINSTANCE>(0x12340000);
  EXPECT_EQ(TRUE, DllMain(instance, DLL_PROCESS_ATTACH, nullptr));
  EXPECT_EQ(instance, ModuleInstance());
  char path[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, path, MAX_PATH);
  EXPECT_STREQ(path, HostPath());
  ASSERT_EQ(1u, capture.Messages().size());
  EXPECT_EQ(0u, capture.Messages()[0].find(
                    "EXT : DLL_PROCESS_ATTACH : FilePath=" + std::string(path) + " (id="));
}

// Built and kept, although the DLL does not export it.
TEST(ExportFrame, CryptDecodeObjectExIsAPassThroughFunction) {
  TraceCapture capture;
  DWORD size = 3;
  EXPECT_EQ(TRUE, ZarCryptDecodeObjectEx(0xFEDC1234, "1.2", nullptr, 0x80000005, 0, nullptr,
                                         nullptr, &size));
  EXPECT_EQ(3u, size);
  EXPECT_THAT(
      capture.Messages(),
      ElementsAre(
          "EXT : ZarCryptDecodeObjectEx : dwCertEncodingType = fedc1234 (cbEncoded=-2147483643)."));
}

}  // namespace
}  // namespace zarext::test
