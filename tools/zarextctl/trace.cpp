// trace: the module's lines as they are written.
#include <atomic>
#include <charconv>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>

#include "CLI/CLI.hpp"
#include "zarextctl/command.h"
#include "zarextctl/debug_output.h"
#include "zarextctl/oid_names.h"
#include "zarextctl/rotating_file.h"
#include "zarextctl/session_objects.h"
#include "zarextctl/text.h"
#include "zarextctl/trace_line.h"
#include "zarextctl/windows_text.h"

namespace zarext::ctl {
namespace {

using nlohmann::ordered_json;

struct Options {
  DWORD pid = 0;
  std::string process;
  bool global = false;
  std::string grep;
  bool all = false;
  std::string file;
  std::string rotate;
  bool explain = false;
  std::uint32_t queue = 100000;
  std::uint32_t seconds = 0;
  std::uint64_t count = 0;
};

// Set by Ctrl-C, by the end of the console and by the end of the session.
std::atomic<bool> isEnding{false};

BOOL WINAPI OnConsoleEvent(DWORD event) {
  isEnding = true;
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) {
    // The process ends when this returns; what has arrived is to be written before.
    constexpr DWORD kTimeToFlush = 4000;
    Sleep(kTimeToFlush);
  }
  return TRUE;
}

// "10M,5": a size with K, M or G, and a count.
struct Rotation {
  std::uint64_t size = 0;
  unsigned count = 0;
};

std::optional<std::uint64_t> ReadSize(std::string_view text) {
  std::uint64_t factor = 1;
  if (!text.empty()) {
    const char unit = text.back();
    factor = unit == 'K' ? 1ULL << 10 : unit == 'M' ? 1ULL << 20 : unit == 'G' ? 1ULL << 30 : 1;
    text.remove_suffix(factor == 1 ? 0 : 1);
  }
  std::uint64_t size = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), size);
  const bool isRead = error == std::errc() && end == text.data() + text.size();
  return isRead && size != 0 && size < (1ULL << 40) ? std::optional(size * factor) : std::nullopt;
}

Rotation ReadRotation(const std::string& text) {
  if (text.empty()) {
    return {};
  }
  const std::size_t comma = text.find(',');
  Rotation rotation;
  const auto size = ReadSize(std::string_view(text).substr(0, comma));
  const char* const countEnd = text.data() + text.size();
  const bool hasCount =
      comma != std::string::npos &&
      std::from_chars(text.data() + comma + 1, countEnd, rotation.count).ptr == countEnd;
  if (!size || !hasCount || rotation.count > 999) {
    throw Failure("read --rotate " + text, 0, "give a size and a count, such as --rotate 10M,5");
  }
  rotation.size = *size;
  return rotation;
}

Colour ColourOf(const std::string& exportName) {
  constexpr Colour kColours[] = {Colour::kGood, Colour::kCyan, Colour::kMagenta, Colour::kWarning,
                                 Colour::kStrong};
  std::size_t sum = 0;
  for (const char letter : exportName) {
    sum = sum * 31 + static_cast<unsigned char>(letter);
  }
  return exportName.empty() ? Colour::kPlain : kColours[sum % std::size(kColours)];
}

std::string ArrivalTime(const FILETIME& time) {
  FILETIME local = {};
  SYSTEMTIME parts = {};
  FileTimeToLocalFileTime(&time, &local);
  FileTimeToSystemTime(&local, &parts);
  char text[32] = {};
  (void)std::snprintf(text, sizeof text, "%02u:%02u:%02u.%03u", static_cast<unsigned>(parts.wHour),
                      static_cast<unsigned>(parts.wMinute), static_cast<unsigned>(parts.wSecond),
                      static_cast<unsigned>(parts.wMilliseconds));
  return text;
}

// One line that passed the filters.
struct Shown {
  std::string time;
  DWORD process;
  std::string processName;
  TraceLine line;  // its texts in UTF-8
  std::vector<std::string> meaning;
};

// Where the lines go: text to a console, a pipe or a file, or a JSON document.
class Sink {
 public:
  Sink(const Session& session, const Options& options) : session_(session) {
    const Rotation rotation = ReadRotation(options.rotate);
    if (!options.file.empty()) {
      file_.emplace(options.file, rotation.size, rotation.count);
    }
  }

  void Begin() {
    if (session_.json) {
      Write("{\"lines\": [");
    }
  }

  void Show(const Shown& shown) {
    ++count_;
    if (session_.json) {
      ShowJson(shown);
      return;
    }
    const std::string head = shown.time + " " + shown.processName + "(" +
                             std::to_string(shown.process) + ") " +
                             (shown.line.isModule ? std::to_string(shown.line.thread) + " " : "");
    const std::string message = Printable(shown.line.message);
    if (file_) {
      file_->Write(head + message);
    } else {
      session_.Results().Labelled(head, ColourOf(shown.line.exportName), message, 4);
    }
    for (const std::string& meaning : shown.meaning) {
      Write("    -- " + meaning, Colour::kFaint);
    }
  }

  void Dropped(std::uint64_t count) {
    if (count == 0) {
      return;
    }
    dropped_ += count;
    if (!session_.json) {
      Write("    -- " + std::to_string(count) +
                " lines were dropped here: they came quicker than they could be shown",
            Colour::kWarning);
    }
  }

  void End() {
    if (session_.json) {
      Write("], \"count\": " + std::to_string(count_) +
            ", \"dropped\": " + std::to_string(dropped_) + "}");
    }
  }

  [[nodiscard]] std::uint64_t Count() const { return count_; }
  [[nodiscard]] std::uint64_t DroppedCount() const { return dropped_; }
  [[nodiscard]] bool IsOpen() const { return file_ || session_.Results().IsOpen(); }

 private:
  void Write(const std::string& line, Colour colour = Colour::kPlain) {
    if (file_) {
      file_->Write(line);
    } else {
      session_.Results().Line(line, colour, 6);
    }
  }

  void ShowJson(const Shown& shown) {
    ordered_json line = {{"time", shown.time},           {"process", shown.process},
                         {"name", shown.processName},    {"thread", shown.line.thread},
                         {"written", shown.line.time},   {"export", shown.line.exportName},
                         {"message", shown.line.message}};
    if (!shown.meaning.empty()) {
      line["meaning"] = shown.meaning;
    }
    Write((count_ == 1 ? "" : ", ") +
          line.dump(-1, ' ', false, ordered_json::error_handler_t::replace));
  }

  const Session& session_;
  std::optional<RotatingFile> file_;
  std::uint64_t count_ = 0;
  std::uint64_t dropped_ = 0;
};

bool Passes(const Options& options, const DebugMessage& message, const std::string& text,
            const TraceLine& line) {
  return (options.pid == 0 || options.pid == message.process) &&
         (options.process.empty() || SameIgnoringCase(options.process, message.processName)) &&
         (options.all || line.isModule) && ContainsIgnoringCase(text, options.grep);
}

void ShowMessage(const Options& options, const DebugMessage& message, Sink* sink) {
  sink->Dropped(message.droppedBefore);
  for (const std::string& text : LinesOf(Utf8FromAnsi(message.text))) {
    const TraceLine line = ParseTraceLine(text);
    if (!Passes(options, message, text, line) ||
        (options.count != 0 && sink->Count() >= options.count)) {
      continue;
    }
    sink->Show(
        {ArrivalTime(message.time), message.process, message.processName, line,
         options.explain
             ? ExplainMessage(line.message, [](const std::string& oid) { return OidName(oid); })
             : std::vector<std::string>()});
  }
}

// Says what keeps lines from arriving, once for each process.
class SilenceWatch {
 public:
  SilenceWatch(const Session& session, const Options& options)
      : session_(session), options_(options) {}

  void Look() {
    if (options_.pid != 0) {
      Tell(options_.pid);
    }
    for (const ProcessName& process : ProcessesWithModule()) {
      if (options_.pid == 0 &&
          (options_.process.empty() || SameIgnoringCase(options_.process, process.name))) {
        Tell(process.id);
      }
    }
  }

 private:
  void Tell(DWORD process) {
    const std::string why = WhySilent(process, options_.global);
    if (!why.empty() && told_.insert(process).second) {
      session_.Messages().Line("note: " + why + ".", Colour::kWarning);
    }
  }

  const Session& session_;
  const Options& options_;
  std::set<DWORD> told_;
};

int Run(const Session& session, const Options& options) {
  constexpr DWORD kPause = 200;  // milliseconds
  constexpr DWORD kGather = 10;
  constexpr ULONGLONG kLookEvery = 5000;
  // A file that cannot be written is said before anybody waits for lines.
  Sink sink(session, options);
  MessageQueue queue(options.queue);
  std::optional<DebugOutputReader> reader(std::in_place, options.global, queue);
  SetConsoleCtrlHandler(&OnConsoleEvent, TRUE);
  SilenceWatch watch(session, options);
  const ULONGLONG start = GetTickCount64();
  ULONGLONG nextLook = start;
  session.Messages().Line("listening; Ctrl-C ends it");
  sink.Begin();
  const auto isDone = [&] {
    return isEnding || !sink.IsOpen() || (options.count != 0 && sink.Count() >= options.count) ||
           (options.seconds != 0 && GetTickCount64() - start >= options.seconds * 1000ULL);
  };
  while (!isDone()) {
    if (GetTickCount64() >= nextLook) {
      watch.Look();
      nextLook = GetTickCount64() + kLookEvery;
    }
    for (const DebugMessage& message : queue.Take(kPause)) {
      ShowMessage(options, message, &sink);
    }
    // Woken for every line, this thread would take the processor from who writes the next.
    Sleep(kGather);
  }
  reader.reset();
  for (const DebugMessage& message : queue.Take(0)) {
    ShowMessage(options, message, &sink);
  }
  sink.Dropped(queue.DroppedLast());
  sink.End();
  session.Messages().Line(Count(sink.Count(), "line") + ", " + std::to_string(sink.DroppedCount()) +
                          " dropped");
  return sink.DroppedCount() == 0 ? kNothingToReport : kFindings;
}

}  // namespace

void AddTrace(CLI::App& app, Session& session) {
  CLI::App* command = app.add_subcommand("trace", "The module's lines as they are written");
  const auto options = std::make_shared<Options>();
  command->add_option("--pid", options->pid, "Only of this process");
  command->add_option("--process", options->process,
                      "Only of processes of this name (notepad.exe)");
  command->add_flag("--global", options->global, "Of services; needs an administrator");
  command->add_option("--grep", options->grep, "Only lines with this text, in any case");
  command->add_flag("--all", options->all, "Lines of other programs too");
  command->add_option("--file", options->file, "Append to a file instead of standard output");
  command->add_option("--rotate", options->rotate,
                      "SIZE,COUNT: at this size the file becomes F.1, F.1 becomes F.2 (10M,5)");
  command->add_flag("--explain", options->explain, "Below a line what its numbers mean");
  command->add_option("--queue", options->queue, "How many lines may wait to be shown (100000)");
  command->add_option("--for", options->seconds, "End after so many seconds");
  command->add_option("--count", options->count, "End after so many lines");
  command->footer(
      "There can be one viewer of debugger output in a session. Lines of a process under a\n"
      "debugger go to the debugger. With --json the document ends when the command does.\n\n"
      "Exit codes: 0 all lines were shown, 1 some had to be dropped, 2 it could not listen.\n\n"
      "Example:\n  zarextctl trace --process certmgr.exe --explain");
  command->callback([&session, options] {
    session.command = [&session, options] { return Run(session, *options); };
  });
}

}  // namespace zarext::ctl
