#include "provider/files.h"

#include <atomic>

#include "provider/hash.h"

namespace zarext::provider {
namespace {

struct EndFind {
  using pointer = HANDLE;
  void operator()(HANDLE handle) const noexcept { FindClose(handle); }
};
using Find = std::unique_ptr<HANDLE, EndFind>;

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr LONGLONG kLongestFile = 1 << 24;

[[noreturn]] void FailLast() { Fail(GetLastError()); }

bool IsMissing(DWORD error) {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

UniqueHandle OpenFile(const std::wstring& path, DWORD access, DWORD disposition) {
  HANDLE handle = CreateFileW(path.c_str(), access, kShareAll, nullptr, disposition, 0, nullptr);
  return UniqueHandle(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
}

std::optional<std::wstring> Variable(const wchar_t* name) {
  const DWORD size = GetEnvironmentVariableW(name, nullptr, 0);
  if (size <= 1) {
    return {};
  }
  std::wstring value(size, L'\0');
  const DWORD length = GetEnvironmentVariableW(name, value.data(), size);
  if (length == 0 || length >= size) {
    return {};
  }
  value.resize(length);
  return value;
}

void MakeFolders(const std::wstring& path) {
  if (IsFolder(path)) {
    return;
  }
  const std::size_t slash = path.find_last_of(L"\\/");
  if (slash != std::wstring::npos && slash > 2) {
    MakeFolders(path.substr(0, slash));
  }
  if (!CreateDirectoryW(path.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) {
    FailLast();
  }
}

// The same for every spelling of the home folder's path.
std::wstring LockName() {
  const std::wstring home = HomeFolder();
  std::wstring full(GetFullPathNameW(home.c_str(), 0, nullptr, nullptr), L'\0');
  full.resize(
      GetFullPathNameW(home.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr));
  CharLowerBuffW(full.data(), static_cast<DWORD>(full.size()));
  Bytes octets(full.size() * sizeof(wchar_t));
  std::memcpy(octets.data(), full.data(), octets.size());
  std::wstring name = L"cpzarvel-";
  for (const std::uint8_t octet : HashOf(*FindHashAlgorithm(CALG_SHA_256), octets)) {
    name += {L"0123456789abcdef"[octet >> 4], L"0123456789abcdef"[octet & 0x0F]};
  }
  return name;
}

void WriteNewFile(const std::wstring& path, View content) {
  const UniqueHandle file = OpenFile(path, GENERIC_WRITE, CREATE_NEW);
  if (!file) {
    FailLast();
  }
  DWORD written = 0;
  const auto length = static_cast<DWORD>(content.size());
  if (!WriteFile(file.get(), content.data(), length, &written, nullptr)) {
    FailLast();
  }
  Require(written == length, ERROR_DISK_FULL);
  if (!FlushFileBuffers(file.get())) {
    FailLast();
  }
}

}  // namespace

std::wstring HomeFolder() {
  if (auto home = Variable(L"ZARVEL_DEV_HOME")) {
    return *home;
  }
  const auto local = Variable(L"LOCALAPPDATA");
  Require(local.has_value(), ERROR_PATH_NOT_FOUND);
  return *local + L"\\Zarvel\\DevProvider";
}

HomeLock::HomeLock() : mutex_(CreateMutexW(nullptr, FALSE, LockName().c_str())) {
  if (!mutex_) {
    FailLast();
  }
  // A process that ended while it held the lock left whole files behind: there is nothing to
  // repair.
  if (WaitForSingleObject(mutex_.get(), INFINITE) == WAIT_FAILED) {
    FailLast();
  }
}

HomeLock::~HomeLock() { ReleaseMutex(mutex_.get()); }

void MakeHomeFolder() { MakeFolders(HomeFolder()); }

std::optional<Bytes> ReadWholeFile(const std::wstring& path) {
  const UniqueHandle file = OpenFile(path, GENERIC_READ, OPEN_EXISTING);
  if (!file) {
    if (IsMissing(GetLastError())) {
      return {};
    }
    FailLast();
  }
  LARGE_INTEGER size{};
  if (!GetFileSizeEx(file.get(), &size)) {
    FailLast();
  }
  Require(size.QuadPart <= kLongestFile, NTE_KEYSET_ENTRY_BAD);
  Bytes content(static_cast<std::size_t>(size.QuadPart));
  DWORD read = 0;
  if (!ReadFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &read, nullptr)) {
    FailLast();
  }
  content.resize(read);
  return content;
}

void ReplaceWholeFile(const std::wstring& path, View content) {
  const std::wstring beside = path + UniqueSuffix();
  try {
    WriteNewFile(beside, content);
    if (!MoveFileExW(beside.c_str(), path.c_str(),
                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
      FailLast();
    }
  } catch (const Error&) {
    DeleteFileW(beside.c_str());
    throw;
  }
}

bool IsFolder(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

std::vector<std::wstring> ListFolders(const std::wstring& parent) {
  std::vector<std::wstring> names;
  WIN32_FIND_DATAW entry{};
  HANDLE handle = FindFirstFileW((parent + L"\\*").c_str(), &entry);
  if (handle == INVALID_HANDLE_VALUE) {
    if (IsMissing(GetLastError())) {
      return names;
    }
    FailLast();
  }
  const Find find(handle);
  do {
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
      names.emplace_back(entry.cFileName);
    }
  } while (FindNextFileW(handle, &entry));
  std::sort(names.begin(), names.end());
  return names;
}

bool MoveFolder(const std::wstring& from, const std::wstring& to) {
  if (MoveFileExW(from.c_str(), to.c_str(), 0)) {
    return true;
  }
  if (IsMissing(GetLastError())) {
    return false;
  }
  FailLast();
}

void MakeFolder(const std::wstring& path) {
  if (!CreateDirectoryW(path.c_str(), nullptr)) {
    FailLast();
  }
}

void RemoveFolder(const std::wstring& path) {
  WIN32_FIND_DATAW entry{};
  HANDLE handle = FindFirstFileW((path + L"\\*").c_str(), &entry);
  if (handle != INVALID_HANDLE_VALUE) {
    const Find find(handle);
    do {
      DeleteFileW((path + L"\\" + entry.cFileName).c_str());
    } while (FindNextFileW(handle, &entry));
  }
  RemoveDirectoryW(path.c_str());
}

std::wstring UniqueSuffix() {
  static std::atomic<unsigned> counter{0};
  return L"~" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(GetTickCount64()) +
         L"-" + std::to_wstring(++counter);
}

}  // namespace zarext::provider
