#include "zarextctl/windows_text.h"

#include <array>
#include <cstdio>
#include <vector>

namespace zarext::ctl {
namespace {

std::wstring ToWideFrom(UINT codePage, std::string_view text) {
  const int size = static_cast<int>(text.size());
  const int units = MultiByteToWideChar(codePage, 0, text.data(), size, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(units), L'\0');
  MultiByteToWideChar(codePage, 0, text.data(), size, wide.data(), units);
  return wide;
}

std::string ToOctets(UINT codePage, std::wstring_view text) {
  const int units = static_cast<int>(text.size());
  const int size =
      WideCharToMultiByte(codePage, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
  std::string octets(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(codePage, 0, text.data(), units, octets.data(), size, nullptr, nullptr);
  return octets;
}

}  // namespace

std::string Utf8(const wchar_t* text) { return text == nullptr ? "" : ToOctets(CP_UTF8, text); }

std::wstring Wide(std::string_view utf8) { return ToWideFrom(CP_UTF8, utf8); }

std::string Utf8FromAnsi(std::string_view text) {
  return ToOctets(CP_UTF8, ToWideFrom(CP_ACP, text));
}

std::string Ansi(std::string_view utf8) { return ToOctets(CP_ACP, Wide(utf8)); }

std::string LocalTime(const FILETIME& time) {
  FILETIME local = {};
  SYSTEMTIME parts = {};
  FileTimeToLocalFileTime(&time, &local);
  if (!FileTimeToSystemTime(&local, &parts)) {
    return "(no time)";
  }
  std::array<char, 64> text = {};
  (void)std::snprintf(text.data(), text.size(), "%04u-%02u-%02u %02u:%02u:%02u",
                      static_cast<unsigned>(parts.wYear), static_cast<unsigned>(parts.wMonth),
                      static_cast<unsigned>(parts.wDay), static_cast<unsigned>(parts.wHour),
                      static_cast<unsigned>(parts.wMinute), static_cast<unsigned>(parts.wSecond));
  return text.data();
}

std::string FileName(const std::string& path) { return path.substr(path.find_last_of("\\/") + 1); }

std::string Folder(const std::string& path) {
  const std::size_t end = path.find_last_of("\\/");
  return end == std::string::npos ? "" : path.substr(0, end);
}

std::string ModulePath(HMODULE module) {
  std::vector<wchar_t> path(32768);
  GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()) - 1);
  return Utf8(path.data());
}

std::string Expanded(const std::string& text) {
  const std::wstring wide = Wide(text);
  std::vector<wchar_t> expanded(32768);
  const DWORD size =
      ExpandEnvironmentStringsW(wide.c_str(), expanded.data(), static_cast<DWORD>(expanded.size()));
  return size == 0 || size > expanded.size() ? text : Utf8(expanded.data());
}

}  // namespace zarext::ctl
