#include "demo/watcher.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>

#include "demo/story.h"
#include "support/child_process.h"

namespace zarext::demo {
namespace {

constexpr DWORD kStepTimeLimit = 120000;
constexpr DWORD kChannelTimeLimit = 10000;
constexpr DWORD kPollTime = 20;
constexpr char kTraceMark[] = "EXT : ";

bool StartsWith(const std::string& text, const char* beginning) {
  return text.rfind(beginning, 0) == 0;
}

}  // namespace

std::string ActCommandLine(const char* name) {
  char program[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, program, MAX_PATH);
  return "\"" + std::string(program) + "\" --act=" + name;
}

bool Watcher::Run(const Step& step) {
  records_.push_back({.title = step.title});
  std::printf("\n%u. %s\n", static_cast<unsigned>(records_.size()), step.title);
  if (step.inWatcher) {
    RunHere(step);
  } else {
    RunThere(step);
  }
  const Record& record = records_.back();
  return record.ended && record.failures == 0;
}

void Watcher::RunHere(const Step& step) {
  try {
    step.act();
  } catch (const std::exception& error) {
    Fail(error.what());
  }
  End();
  WaitForEnd(GetCurrentProcessId());
}

void Watcher::RunThere(const Step& step) {
  const auto process = test::ChildProcess::Program(ActCommandLine(step.name));
  for (DWORD waited = 0; waited < kStepTimeLimit && !process.Wait(kPollTime); waited += kPollTime) {
    Print(process.Id());
  }
  WaitForEnd(process.Id());
  const auto code = process.Wait(0);
  if (code != 0U) {
    std::printf("   WRONG: the process %s\n", code ? "failed" : "does not end");
    ++records_.back().failures;
  }
}

// The channel is behind the process by a line at most.
void Watcher::WaitForEnd(DWORD own) {
  for (DWORD waited = 0; waited < kChannelTimeLimit && !records_.back().ended;
       waited += kPollTime) {
    Print(own);
    Sleep(kPollTime);
  }
}

void Watcher::Print(DWORD own) {
  for (const test::DebugLine& line : channel_.Take()) {
    if (StartsWith(line.text, kStoryMark)) {
      PrintStory(line.text.substr(std::strlen(kStoryMark)));
    } else if (line.text.find(kTraceMark) != std::string::npos) {
      PrintTrace(line, own);
    }
  }
  (void)std::fflush(stdout);
}

void Watcher::PrintStory(const std::string& line) {
  Record& record = records_.back();
  const char* const text = line.c_str() + 1;
  switch (line[0]) {
    case kCallMark:
      ++record.calls;
      tracedSinceCall_.clear();
      std::printf("   %s\n", text);
      break;
    case kNoteMark:
      std::printf("   -- %s\n", text);
      break;
    case kCheckMark:
      ++record.checks;
      std::printf("   => %s\n", text);
      break;
    case kTracedMark:
    case kUntracedMark:
      CheckTraced(text, line[0] == kTracedMark);
      break;
    case kFailureMark:
      ++record.failures;
      std::printf("   WRONG: %s\n", text);
      break;
    default:
      record.ended = true;
  }
}

void Watcher::CheckTraced(const std::string& part, bool expected) {
  const bool traced =
      std::any_of(tracedSinceCall_.begin(), tracedSinceCall_.end(),
                  [&](const std::string& line) { return line.find(part) != std::string::npos; });
  Record& record = records_.back();
  ++(traced == expected ? record.checks : record.failures);
  std::printf("   %s \"%s\" was %s\n", traced == expected ? "=>" : "WRONG:", part.c_str(),
              traced ? "traced" : "not traced");
}

void Watcher::PrintTrace(const test::DebugLine& line, DWORD own) {
  ++records_.back().lines;
  tracedSinceCall_.push_back(line.text);
  const std::string text = rawTrace_ ? line.text : line.text.substr(line.text.find(kTraceMark));
  if (line.process == own) {
    std::printf("        %s\n", text.c_str());
  } else {
    std::printf("        [process %lx] %s\n", line.process, text.c_str());
  }
}

void Watcher::PrintSummary() const {
  std::printf("\n   %-58s %5s %5s %6s  %s\n", "Step", "calls", "trace", "checks", "result");
  unsigned number = 0;
  for (const Record& record : records_) {
    const bool right = record.ended && record.failures == 0;
    std::printf("%u. %-58s %5u %5u %6u  %s\n", ++number, record.title.c_str(), record.calls,
                record.lines, record.checks, right ? "right" : "WRONG");
  }
}

}  // namespace zarext::demo
