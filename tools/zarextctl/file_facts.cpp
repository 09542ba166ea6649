#include "zarextctl/file_facts.h"

#include <aclapi.h>
#include <softpub.h>
#include <wintrust.h>

#include <algorithm>
#include <array>

#include "frame/handles.h"
#include "zarextctl/names.h"
#include "zarextctl/text.h"
#include "zarextctl/windows_text.h"

namespace zarext::ctl {
namespace {

std::string ReadVersion(const std::wstring& path) {
  DWORD ignored = 0;
  std::vector<BYTE> block(GetFileVersionInfoSizeW(path.c_str(), &ignored));
  VS_FIXEDFILEINFO* info = nullptr;
  UINT size = 0;
  if (block.empty() ||
      !GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(block.size()), block.data()) ||
      !VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&info), &size) ||
      size < sizeof *info) {
    return "";
  }
  const auto part = [](DWORD word) { return std::to_string(word); };
  return part(HIWORD(info->dwFileVersionMS)) + "." + part(LOWORD(info->dwFileVersionMS)) + "." +
         part(HIWORD(info->dwFileVersionLS)) + "." + part(LOWORD(info->dwFileVersionLS));
}

DWORD ReadSignature(const std::wstring& path) {
  WINTRUST_FILE_INFO file = {};
  file.cbStruct = sizeof file;
  file.pcwszFilePath = path.c_str();
  WINTRUST_DATA data = {};
  data.cbStruct = sizeof data;
  data.dwUIChoice = WTD_UI_NONE;
  data.fdwRevocationChecks = WTD_REVOKE_NONE;
  data.dwUnionChoice = WTD_CHOICE_FILE;
  data.pFile = &file;
  data.dwStateAction = WTD_STATEACTION_VERIFY;
  GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
  auto* const noWindow = static_cast<HWND>(INVALID_HANDLE_VALUE);
  const LONG result = WinVerifyTrust(noWindow, &action, &data);
  data.dwStateAction = WTD_STATEACTION_CLOSE;
  WinVerifyTrust(noWindow, &action, &data);
  return static_cast<DWORD>(result);
}

struct Group {
  WELL_KNOWN_SID_TYPE type;
  const char* name;
};
constexpr Group kBroadGroups[] = {{WinWorldSid, "Everyone"},
                                  {WinAuthenticatedUserSid, "Authenticated Users"},
                                  {WinBuiltinUsersSid, "Users"},
                                  {WinInteractiveSid, "Interactive"}};

const char* BroadGroupOf(PSID sid) {
  const auto* found = std::ranges::find_if(
      kBroadGroups, [&](const Group& group) { return IsWellKnownSid(sid, group.type) != FALSE; });
  return found == std::end(kBroadGroups) ? nullptr : found->name;
}

// The broad groups that the object's list allows one of the rights in `mask`.
std::vector<std::string> GroupsAllowed(const std::string& path, DWORD mask) {
  PACL list = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  const DWORD status =
      GetNamedSecurityInfoW(Wide(path).c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                            nullptr, &list, nullptr, &descriptor);
  const UniqueLocalMemory owner(descriptor);
  return status == ERROR_SUCCESS ? BroadGroupsIn(list, mask) : std::vector<std::string>();
}

}  // namespace

std::vector<std::string> BroadGroupsIn(PACL list, DWORD mask) {
  if (list == nullptr) {
    return {"Everyone"};
  }
  std::vector<std::string> groups;
  for (DWORD i = 0; i < list->AceCount; ++i) {
    void* entry = nullptr;
    if (!GetAce(list, i, &entry)) {
      continue;
    }
    auto* const ace = static_cast<ACCESS_ALLOWED_ACE*>(entry);
    const char* group = ace->Header.AceType == ACCESS_ALLOWED_ACE_TYPE
                            ? BroadGroupOf(reinterpret_cast<PSID>(&ace->SidStart))
                            : nullptr;
    const bool isForChildren = (ace->Header.AceFlags & INHERIT_ONLY_ACE) != 0;
    if (group != nullptr && !isForChildren && (ace->Mask & mask) != 0 &&
        std::ranges::find(groups, group) == groups.end()) {
      groups.emplace_back(group);
    }
  }
  return groups;
}

ModuleFile ReadModuleFile(const std::string& path, std::span<const char* const> functions) {
  ModuleFile file;
  file.path = path;
  const std::wstring wide = Wide(path);
  file.exists = IsRegularFile(path);
  if (file.exists) {
    file.version = ReadVersion(wide);
    file.signature = ReadSignature(wide);
  }
  const UniqueModule module(LoadLibraryW(wide.c_str()));
  file.loadCode = module ? 0 : GetLastError();
  for (const char* function : functions) {
    if (module && GetProcAddress(module.Get(), function) == nullptr) {
      file.missing.emplace_back(function);
    }
  }
  return file;
}

std::string SignatureText(DWORD signature) {
  switch (signature) {
    case 0:
      return "signed";
    case static_cast<DWORD>(TRUST_E_NOSIGNATURE):
      return "not signed";
    default:
      return "signature " + ErrorLabel(signature);
  }
}

std::vector<std::string> BroadGroupsWith(Access access, const std::string& path) {
  constexpr DWORD kTakeOver = DELETE | WRITE_DAC | WRITE_OWNER | GENERIC_ALL;
  constexpr DWORD kWriteFile = FILE_WRITE_DATA | FILE_APPEND_DATA | GENERIC_WRITE;
  constexpr DWORD kReplaceInFolder = FILE_DELETE_CHILD | WRITE_DAC | WRITE_OWNER | GENERIC_ALL;
  constexpr DWORD kAddToFolder = FILE_ADD_FILE | GENERIC_WRITE;
  const bool isWrite = access == Access::kWrite;
  std::vector<std::string> found;
  for (const std::string& group : GroupsAllowed(path, kTakeOver | (isWrite ? kWriteFile : 0))) {
    found.push_back(group);
  }
  for (const std::string& group :
       GroupsAllowed(Folder(path) + "\\", kReplaceInFolder | (isWrite ? kAddToFolder : 0))) {
    found.push_back(group + " (folder)");
  }
  return found;
}

bool IsRegularFile(const std::string& path) {
  const DWORD attributes = GetFileAttributesW(Wide(path).c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

bool Exists(const std::string& path) {
  return GetFileAttributesW(Wide(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

}  // namespace zarext::ctl
