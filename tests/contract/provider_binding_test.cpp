// Every case runs in a process of its own: a binding stays until the process ends.
#include "frame/provider_binding.h"

#include <gmock/gmock.h>
#include <windows.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "frame/export_frame.h"
#include "frame/handles.h"
#include "support/child_process.h"
#include "support/event_log.h"
#include "support/recorded_import.h"

namespace zarext::test {
namespace {

constexpr char kKey[] = "SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\Zarvel CSP";

void DeleteProviderKey() { RegDeleteKeyA(HKEY_LOCAL_MACHINE, kKey); }

void WriteImagePath(DWORD type, const std::string& octets) {
  UniqueRegistryKey key;
  RegCreateKeyExA(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.Put(),
                  nullptr);
  RegSetValueExA(key.Get(), "Image Path", 0, type, reinterpret_cast<const BYTE*>(octets.data()),
                 static_cast<DWORD>(octets.size()));
}

std::string Text(const std::string& text) { return text + '\0'; }

std::string ProviderWithout(const char* missing) {
  return ProgramFolder() + "provider_without_" + missing + ".dll";
}

constexpr char kEmptyFolder[] = "c:\\zarext_binding\\";

void CopyHere(const std::string& path) {
  const std::string name = path.substr(path.rfind('\\') + 1);
  if (!CopyFileA(path.c_str(), (kEmptyFolder + name).c_str(), FALSE)) {
    throw std::runtime_error("cannot copy " + path);
  }
}

// A copy of this program in a folder without a provider: the default file is searched beside the
// program first, where the build leaves the real one.
std::string LonelyProgram() {
  static const std::string path = [] {
    CreateDirectoryA(kEmptyFolder, nullptr);
    CopyHere(ProgramFolder() + "frame_internal.exe");
    CopyHere(ProviderWithout("none"));
    return std::string(kEmptyFolder) + "frame_internal.exe";
  }();
  return path;
}

// Stands for the provider's default file, beside the copied program.
class DefaultFile {
 public:
  DefaultFile() {
    LonelyProgram();
    CopyFileA(ProviderWithout("none").c_str(), path_.c_str(), FALSE);
  }
  ~DefaultFile() { DeleteFileA(path_.c_str()); }

 private:
  std::string path_ = std::string(kEmptyFolder) + "cpzarvel.dll";
};

std::string BoundFile() {
  char path[MAX_PATH] = {};
  GetModuleFileNameA(ProviderModule(), path, MAX_PATH);
  const std::string text = path;
  return text.substr(text.rfind('\\') + 1);
}

// The code that binding throws, or 0. The default file is searched in the current folder too, and
// whoever runs the tests may have one there.
DWORD BindingError() {
  SetCurrentDirectoryA(kEmptyFolder);
  try {
    BindProvider();
  } catch (ErrorCode code) {
    return code;
  }
  return 0;
}

// 0 where the named file is bound.
int BindsTo(const std::string& file) {
  if (ProviderModule() != nullptr) return 10;
  if (const DWORD error = BindingError(); error != 0) return 11;
  if (ProviderModule() == nullptr) return 12;
  return BoundFile() == file ? 0 : 13;
}

ZAREXT_CHILD(BindDefault) { return BindsTo("cpzarvel.dll"); }
ZAREXT_CHILD(BindComplete) {
  const int result = BindsTo("provider_without_none.dll");
  if (result != 0) return result;
  const ProviderFunctions& functions = Provider();
  const HMODULE module = ProviderModule();
  const auto is = [&](auto function, const char* name) {
    return reinterpret_cast<void*>(function) ==
           reinterpret_cast<void*>(GetProcAddress(module, name));
  };
  if (!is(functions.CPAcquireContext, "CPAcquireContext") ||
      !is(functions.CPReleaseContext, "CPReleaseContext") ||
      !is(functions.CPGetProvParam, "CPGetProvParam") ||
      !is(functions.CPGetKeyParam, "CPGetKeyParam") ||
      !is(functions.CPSetKeyParam, "CPSetKeyParam") ||
      !is(functions.CPGetUserKey, "CPGetUserKey")) {
    return 1;
  }
  // A second call does nothing, whatever the registry says by now.
  DeleteProviderKey();
  BindProvider();
  return ProviderModule() == module ? 0 : 2;
}
// The registry key is open until the file is loaded, and all six are looked up, in this order,
// whatever is missing. The argument: which file is loaded, and what comes last.
ZAREXT_CHILD(BindInOrder) {
  const HMODULE program = GetModuleHandleA(nullptr);
  const RecordedImport<"RegOpenKeyExA", decltype(RegOpenKeyExA)> open(
      program, "ADVAPI32.dll", [](HKEY root, const char* name, DWORD options, DWORD access, HKEY*) {
        char text[128] = {};
        snprintf(text, sizeof text, "%s, %s, %lx, %lx", root == HKEY_LOCAL_MACHINE ? "HKLM" : "?",
                 name, options, access);
        return std::string(text);
      });
  const RecordedImport<"RegQueryValueExA", decltype(RegQueryValueExA)> query(
      program, "ADVAPI32.dll",
      [](HKEY, const char* name, DWORD*, const DWORD* type, BYTE*, const DWORD* size) {
        return std::string(name) + ", " + (type == nullptr ? "null" : "?") + ", " +
               std::to_string(*size);
      });
  const RecordedImport<"RegCloseKey", decltype(RegCloseKey)> close(program, "ADVAPI32.dll");
  const RecordedImport<"LoadLibraryA", decltype(LoadLibraryA)> load(
      program, "KERNEL32.dll", [](const char* path) {
        const std::string text = path;
        return text.substr(text.rfind('\\') + 1);
      });
  const RecordedImport<"GetProcAddress", decltype(GetProcAddress)> look(
      program, "KERNEL32.dll", [](HMODULE, const char* name) { return std::string(name); });
  const RecordedImport<"FreeLibrary", decltype(FreeLibrary)> free(program, "KERNEL32.dll");
  const EventView events;
  BindingError();
  const std::string& file = arguments.at(0);
  const std::string& end = arguments.at(1);
  std::vector<std::string> expected = {std::string("platform: RegOpenKeyExA(HKLM, ") + kKey +
                                       ", 0, 20019)"};
  if (file != "cpzarvel.dll") {
    expected.emplace_back("platform: RegQueryValueExA(Image Path, null, 256)");
  }
  expected.push_back("platform: LoadLibraryA(" + file + ")");
  if (file != "cpzarvel.dll") {
    expected.emplace_back("platform: RegCloseKey()");
  }
  if (end != "refused") {
    for (const char* name : {"CPAcquireContext", "CPReleaseContext", "CPGetProvParam",
                             "CPGetKeyParam", "CPSetKeyParam", "CPGetUserKey"}) {
      expected.push_back(std::string("platform: GetProcAddress(") + name + ")");
    }
  }
  if (end == "freed") {
    expected.emplace_back("platform: FreeLibrary()");
  }
  for (const std::string& line : events.Lines()) {
    printf("%s\n", line.c_str());
  }
  return events.Lines() == expected ? 0 : 1;
}
// Threads that bind at once all find the module bound, and one reference each at the most.
DWORD WINAPI BindInThread(void* start) {
  WaitForSingleObject(start, INFINITE);
  BindProvider();
  return ProviderModule() != nullptr && Provider().CPGetUserKey != nullptr ? 0 : 1;
}
ZAREXT_CHILD(BindInThreads) {
  const UniqueKernelObject start(CreateEventA(nullptr, TRUE, FALSE, nullptr));
  HANDLE threads[8];
  for (HANDLE& thread : threads) {
    thread = CreateThread(nullptr, 0, &BindInThread, start.Get(), 0, nullptr);
  }
  SetEvent(start.Get());
  DWORD failures = 0;
  for (const HANDLE thread : threads) {
    WaitForSingleObject(thread, INFINITE);
    DWORD code = 1;
    GetExitCodeThread(thread, &code);
    failures += code;
    CloseHandle(thread);
  }
  return static_cast<int>(failures);
}
ZAREXT_CHILD(BindWithoutGetUserKey) {
  const int result = BindsTo("provider_without_CPGetUserKey.dll");
  if (result != 0) return result;
  return Provider().CPGetUserKey == nullptr && Provider().CPSetKeyParam != nullptr ? 0 : 1;
}
ZAREXT_CHILD(BindIncomplete) {
  // No error, not bound, and not loaded any more.
  if (BindingError() != 0) return 1;
  if (ProviderModule() != nullptr) return 2;
  if (GetModuleHandleA(arguments.at(0).c_str()) != nullptr) return 3;
  // The next call tries again, and succeeds when the registration is mended.
  WriteImagePath(REG_SZ, Text(ProviderWithout("none")));
  return BindsTo("provider_without_none.dll");
}
ZAREXT_CHILD(BindMissing) {
  if (BindingError() != std::stoul(arguments.at(0))) return 1;
  if (ProviderModule() != nullptr) return 2;
  WriteImagePath(REG_SZ, Text(ProviderWithout("none")));
  return BindsTo("provider_without_none.dll");
}

DWORD RunInChild(const std::string& name, const std::string& argument = "") {
  return ChildProcess::Program(LonelyProgram() + " --child=" + name + " " + argument)
      .Wait()
      .value_or(999);
}

TEST(BindProvider, WithoutAKeyTheDefaultFileIsLoaded) {
  const DefaultFile file;
  DeleteProviderKey();
  EXPECT_EQ(0u, RunInChild("BindDefault"));
}

TEST(BindProvider, WithoutAKeyAndFileTheLoadsErrorIsThrown) {
  DeleteProviderKey();
  EXPECT_EQ(0u, RunInChild("BindMissing", "126"));
}

TEST(BindProvider, WithoutAValueTheDefaultFileIsLoaded) {
  const DefaultFile file;
  DeleteProviderKey();
  UniqueRegistryKey key;
  RegCreateKeyExA(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.Put(),
                  nullptr);
  EXPECT_EQ(0u, RunInChild("BindDefault"));
}

TEST(BindProvider, TheRegisteredFileIsLoaded) {
  WriteImagePath(REG_SZ, Text(ProviderWithout("none")));
  EXPECT_EQ(0u, RunInChild("BindComplete"));
}

TEST(BindProvider, TheValuesTypeDoesNotMatter) {
  WriteImagePath(REG_BINARY, Text(ProviderWithout("none")));
  EXPECT_EQ(0u, RunInChild("BindComplete"));
}

TEST(BindProvider, NothingIsExpanded) {
  WriteImagePath(REG_EXPAND_SZ, Text("%SystemRoot%\\x.dll"));
  EXPECT_EQ(0u, RunInChild("BindMissing", "126"));
}

TEST(BindProvider, AMissingRegisteredFileThrowsTheLoadsError) {
  const DefaultFile file;
  WriteImagePath(REG_SZ, Text("c:\\nowhere\\missing.dll"));
  EXPECT_EQ(0u, RunInChild("BindMissing", "126"));
}

TEST(BindProvider, AValueThatFillsTheBufferIsUnreadable) {
  const DefaultFile file;
  WriteImagePath(REG_BINARY, std::string(256, 'x'));
  EXPECT_EQ(0u, RunInChild("BindDefault"));
  WriteImagePath(REG_BINARY, std::string(300, 'x'));
  EXPECT_EQ(0u, RunInChild("BindDefault"));
}

// The path of the complete provider in so many characters.
std::string ProviderPathOf(std::size_t size) {
  std::string path = ProviderWithout("none");
  const std::size_t name = path.rfind('\\');
  while (path.size() < size) path.insert(name, path.size() + 1 < size ? "\\." : "\\");
  return path;
}

TEST(BindProvider, APathThatLeavesRoomForItsTerminatorIsRead) {
  ASSERT_EQ(255u, ProviderPathOf(255).size());
  WriteImagePath(REG_BINARY, Text(ProviderPathOf(255)));
  EXPECT_EQ(0u, RunInChild("BindComplete"));
}

TEST(BindProvider, APathThatIsLongerThanTheBufferWithItsTerminatorIsUnreadable) {
  const DefaultFile file;
  for (const std::size_t size : {256U, 257U, 258U}) {
    SCOPED_TRACE(size);
    ASSERT_EQ(size, ProviderPathOf(size).size());
    WriteImagePath(REG_SZ, Text(ProviderPathOf(size)));
    EXPECT_EQ(0u, RunInChild("BindDefault"));
  }
}

TEST(BindProvider, AValueWithoutTerminatorThatFitsIsRead) {
  WriteImagePath(REG_BINARY, ProviderWithout("none"));
  EXPECT_EQ(0u, RunInChild("BindComplete"));
}

class MissingEntryPoint : public testing::TestWithParam<const char*> {};

TEST_P(MissingEntryPoint, UnloadsAndTriesAgain) {
  WriteImagePath(REG_SZ, Text(ProviderWithout(GetParam())));
  EXPECT_EQ(0u,
            RunInChild("BindIncomplete", std::string("provider_without_") + GetParam() + ".dll"));
}

INSTANTIATE_TEST_SUITE_P(FirstFive, MissingEntryPoint,
                         testing::Values("CPAcquireContext", "CPReleaseContext", "CPGetProvParam",
                                         "CPGetKeyParam", "CPSetKeyParam"));

TEST(BindProvider, KeepsTheKeyUntilTheFileIsLoadedAndLooksUpAllSixInOrder) {
  for (const auto& [missing, end] : {std::pair{"none", "kept"},
                                     {"CPAcquireContext", "freed"},
                                     {"CPGetKeyParam", "freed"},
                                     {"CPGetUserKey", "kept"}}) {
    const std::string path = ProviderWithout(missing);
    WriteImagePath(REG_SZ, Text(path));
    EXPECT_EQ(0u, RunInChild("BindInOrder", path.substr(path.rfind('\\') + 1) + " " + end))
        << missing;
  }
  WriteImagePath(REG_SZ, Text("c:\\nowhere\\missing.dll"));
  EXPECT_EQ(0u, RunInChild("BindInOrder", "missing.dll refused"));
  DeleteProviderKey();
  EXPECT_EQ(0u, RunInChild("BindInOrder", "cpzarvel.dll refused"));
}

TEST(BindProvider, ThreadsMayBindAtOnce) {
  WriteImagePath(REG_SZ, Text(ProviderWithout("none")));
  EXPECT_EQ(0u, RunInChild("BindInThreads"));
}

TEST(BindProvider, AProviderWithoutGetUserKeyIsAccepted) {
  WriteImagePath(REG_SZ, Text(ProviderWithout("CPGetUserKey")));
  EXPECT_EQ(0u, RunInChild("BindWithoutGetUserKey"));
}

}  // namespace
}  // namespace zarext::test
