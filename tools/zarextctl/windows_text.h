// Between the tool's UTF-8 and the platform's two kinds of text.
#ifndef ZAREXT_TOOLS_ZAREXTCTL_WINDOWS_TEXT_H_
#define ZAREXT_TOOLS_ZAREXTCTL_WINDOWS_TEXT_H_

#include <windows.h>

#include <string>
#include <string_view>

namespace zarext::ctl {

// Empty for null.
std::string Utf8(const wchar_t* text);
inline std::string Utf8(const std::wstring& text) { return Utf8(text.c_str()); }
std::wstring Wide(std::string_view utf8);

// From the ANSI code page: what the trace, the provider and container names are in.
std::string Utf8FromAnsi(std::string_view text);
// Into the ANSI code page.
std::string Ansi(std::string_view utf8);

// "2026-11-21 17:45:12", local time.
std::string LocalTime(const FILETIME& time);

// What is behind the last backslash, and what is before it ("" without one).
std::string FileName(const std::string& path);
std::string Folder(const std::string& path);

// The full path of a module; of the tool itself without one.
std::string ModulePath(HMODULE module = nullptr);

// With the environment's variables in place of %NAME%.
std::string Expanded(const std::string& text);

}  // namespace zarext::ctl

#endif  // ZAREXT_TOOLS_ZAREXTCTL_WINDOWS_TEXT_H_
