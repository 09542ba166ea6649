// What the watched process tells the watching one. It goes through the debugger channel, so that it
// arrives in one order with the lines that the module traces.
#ifndef ZAREXT_TOOLS_DEMO_STORY_H_
#define ZAREXT_TOOLS_DEMO_STORY_H_

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zarext::demo {

using Octets = std::vector<std::uint8_t>;

// Kinds of lines, each the first character behind kStoryMark.
inline constexpr char kStoryMark[] = "zarext-demo ";
inline constexpr char kCallMark = 'C';
inline constexpr char kNoteMark = 'N';
inline constexpr char kCheckMark = 'V';
inline constexpr char kTracedMark = 'T';
inline constexpr char kUntracedMark = 'U';
inline constexpr char kFailureMark = 'F';
inline constexpr char kEndMark = 'E';

// The call that comes next, as the reader is to see it. None of these changes the last error.
void Call(const std::string& text);
// A remark, for example that the framework at hand cannot make a call itself.
void Note(const std::string& text);
// A result that was checked: throws, which ends the demo, if it does not hold.
void Expect(bool holds, const std::string& what);
// A call ended with this last error, 0 if it has to succeed; any other goes into the failure.
void ExpectCode(DWORD expected, DWORD code, const std::string& what);
// Checked by the watching process: the module has, or has not, traced a line with `part` in it
// since the last call.
void ExpectTraced(const std::string& part);
void ExpectNotTraced(const std::string& part);
// Used by main alone: the step went wrong; the step is over.
void Fail(const std::string& why);
void End();

std::string Hex(DWORD number);
std::string Utf8(const wchar_t* text);

}  // namespace zarext::demo

#endif  // ZAREXT_TOOLS_DEMO_STORY_H_
