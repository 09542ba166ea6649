#include "zarextctl/trace_line.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "zarextctl/names.h"
#include "zarextctl/text.h"

namespace zarext::ctl {
namespace {

constexpr std::string_view kThreadPrefix = "id=";
constexpr std::string_view kTimePrefix = " : tm=";
constexpr std::string_view kSeparator = " : ";
constexpr std::string_view kModulePrefix = "EXT : ";
// "Sat Nov 21 23:46:14.046", or shorter where the platform gave no time.
constexpr std::size_t kLongestTime = 31;

// Takes `prefix` from the front of `text`, if it is there.
bool Take(std::string_view* text, std::string_view prefix) {
  if (!text->starts_with(prefix)) {
    return false;
  }
  text->remove_prefix(prefix.size());
  return true;
}

bool IsHexDigit(char letter) {
  return (letter >= '0' && letter <= '9') || (letter >= 'a' && letter <= 'f') ||
         (letter >= 'A' && letter <= 'F');
}

bool IsWordLetter(char letter) {
  return (letter >= '0' && letter <= '9') || (letter >= 'a' && letter <= 'z') ||
         (letter >= 'A' && letter <= 'Z') || letter == '_';
}

std::string_view LeadingWord(std::string_view text) {
  return text.substr(
      0, static_cast<std::size_t>(std::ranges::find_if_not(text, IsWordLetter) - text.begin()));
}

enum class Kind { kError, kAlgorithm, kProviderType, kKeySpec };

struct Label {
  std::string_view name;
  Kind kind;
};
// What the module writes before "=" or " = " and a hexadecimal number.
constexpr Label kLabels[] = {
    {"error", Kind::kError},
    {"ERROR", Kind::kError},
    {"CryptImportKey", Kind::kError},
    {"CryptExportKey", Kind::kError},
    {"CryptGetUserKey", Kind::kError},
    {"CryptGenKey", Kind::kError},
    {"aiKeyAlg", Kind::kAlgorithm},
    {"aiKey", Kind::kAlgorithm},
    {"algID", Kind::kAlgorithm},
    {"PP_PROVTYPE", Kind::kProviderType},
    {"dwProvType", Kind::kProviderType},
    {"dwKeySpec", Kind::kKeySpec},
};

std::string Explain(Kind kind, std::uint32_t value) {
  switch (kind) {
    case Kind::kError: {
      const ErrorText* error = FindError(value);
      return error == nullptr ? "" : ErrorLabel(value) + ": " + error->meaning;
    }
    case Kind::kAlgorithm: {
      const std::string_view meaning = AlgorithmMeaning(value);
      return meaning.empty() ? "" : "ALG_ID " + Hex(value) + ": " + std::string(meaning);
    }
    case Kind::kProviderType:
      return "provider type " + ProviderTypeLabel(value);
    case Kind::kKeySpec:
      return value == 1   ? "key specification 1: AT_KEYEXCHANGE"
             : value == 2 ? "key specification 2: AT_SIGNATURE"
                          : "";
  }
  return "";
}

// The hexadecimal number at the front of `text`, if it is one of at most eight digits.
std::optional<std::uint32_t> HexAt(std::string_view text) {
  const auto digits =
      static_cast<std::size_t>(std::ranges::find_if_not(text, IsHexDigit) - text.begin());
  std::uint32_t value = 0;
  if (digits == 0 || digits > 8 || (digits < text.size() && IsWordLetter(text[digits]))) {
    return std::nullopt;
  }
  std::from_chars(text.data(), text.data() + digits, value, 16);
  return value;
}

class Explanation {
 public:
  void Add(std::string text) {
    if (!text.empty() && std::ranges::find(lines_, text) == lines_.end()) {
      lines_.push_back(std::move(text));
    }
  }
  [[nodiscard]] std::vector<std::string> Take() { return std::move(lines_); }

 private:
  std::vector<std::string> lines_;
};

// "label = value" and "label=value"; a value in brackets behind dwKeySpec is the key's ALG_ID.
void ExplainLabelled(std::string_view word, std::string_view rest, Explanation* explanation) {
  const auto* label = std::ranges::find(kLabels, word, &Label::name);
  if (label == std::end(kLabels)) {
    return;
  }
  Take(&rest, " ");
  if (!Take(&rest, "=")) {
    return;
  }
  Take(&rest, " ");
  const auto value = HexAt(rest);
  if (!value) {
    return;
  }
  explanation->Add(Explain(label->kind, *value));
  rest.remove_prefix(LeadingWord(rest).size());
  if (label->kind == Kind::kKeySpec && Take(&rest, " (")) {
    if (const auto algorithm = HexAt(rest)) {
      explanation->Add(Explain(Kind::kAlgorithm, *algorithm));
    }
  }
}

// Eight digits that are a known error of the framework need no label.
void ExplainCode(std::string_view word, Explanation* explanation) {
  const auto value = word.size() == 8 ? HexAt(word) : std::nullopt;
  if (value && *value >= 0x80000000 && FindError(*value) != nullptr) {
    explanation->Add(Explain(Kind::kError, *value));
  }
}

}  // namespace

TraceLine ParseTraceLine(std::string_view text) {
  TraceLine line;
  line.message = text;
  std::string_view rest = text;
  if (!Take(&rest, kThreadPrefix)) {
    return line;
  }
  // The thread's number is written as a signed one.
  std::int64_t thread = 0;
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), thread);
  if (error != std::errc()) {
    return line;
  }
  rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
  const std::size_t timeEnd =
      Take(&rest, kTimePrefix) ? rest.find(kSeparator) : std::string_view::npos;
  if (timeEnd > kLongestTime) {
    return line;
  }
  line.thread = static_cast<std::uint32_t>(thread);
  line.time = rest.substr(0, timeEnd);
  rest.remove_prefix(timeEnd + kSeparator.size());
  line.message = rest;
  line.isModule = Take(&rest, kModulePrefix);
  if (line.isModule) {
    line.exportName = LeadingWord(rest);
  }
  return line;
}

std::vector<std::string> ExplainMessage(std::string_view message, const OidNames& oidName) {
  Explanation explanation;
  for (std::size_t at = 0; at < message.size();) {
    const std::string_view rest = message.substr(at);
    const std::string_view dotted = rest.substr(0, rest.find_first_not_of("0123456789."));
    // A full stop behind an identifier belongs to the sentence.
    const std::string_view oid =
        dotted.ends_with('.') ? dotted.substr(0, dotted.size() - 1) : dotted;
    if (std::ranges::count(oid, '.') >= 3 && LooksLikeOid(oid)) {
      const std::string name = oidName(std::string(oid));
      explanation.Add(name.empty() ? "" : std::string(oid) + ": " + name);
      at += dotted.size();
      continue;
    }
    const std::string_view word = LeadingWord(rest);
    if (!word.empty()) {
      ExplainLabelled(word, rest.substr(word.size()), &explanation);
      ExplainCode(word, &explanation);
    }
    at += std::max<std::size_t>(word.size(), 1);
  }
  return explanation.Take();
}

std::vector<std::string> LinesOf(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
    std::string_view line = text.substr(0, end);
    line = line.substr(0, line.find_last_not_of(" \t") + 1);
    if (!line.empty()) {
      lines.emplace_back(line);
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

}  // namespace zarext::ctl
