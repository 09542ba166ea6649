#include "contract/anomaly_effects.h"

#include <gtest/gtest.h>
#include <winerror.h>

#include <algorithm>
#include <cctype>

#include "contract/anomaly_points.h"

namespace zarext::test {
namespace {

bool MatchesLine(const char* pattern, const char* text) {
  for (; *pattern != '\0'; ++pattern) {
    if (*pattern == '*') {
      const char* start = text;
      while (std::isxdigit(static_cast<unsigned char>(*text)) != 0) ++text;
      if (text == start) return false;
    } else if (*pattern != *text++) {
      return false;
    }
  }
  return *text == '\0';
}

}  // namespace

std::string Joined(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) text += "\n    " + line;
  return text;
}

void ExpectLines(const Lines& expected, const Lines& actual) {
  const bool matches = std::equal(expected.begin(), expected.end(), actual.begin(), actual.end(),
                                  [](const std::string& pattern, const std::string& text) {
                                    return MatchesLine(pattern.c_str(), text.c_str());
                                  });
  EXPECT_TRUE(matches) << "  expected lines:" << Joined(expected)
                       << "\n  actual lines:" << Joined(actual);
}

const Effect* FindEffect(const Scenario& scenario, const FailurePoint& point) {
  for (const Rule& rule : scenario.rules) {
    const bool isMeant = rule.function == "allocation"
                             ? KindOfPoint(point.function) == PointKind::kAllocation
                             : rule.function == point.function;
    if (isMeant && (rule.occurrence == 0 || rule.occurrence == point.occurrence) &&
        rule.linesBefore.value_or(point.linesBefore) == point.linesBefore &&
        (rule.behind.empty() || rule.behind == point.behind)) {
      return &rule.effect;
    }
  }
  static const Effect noMemory = StopsSilently(static_cast<DWORD>(NTE_NO_MEMORY));
  static const Effect goesOn = GoesOn();
  switch (KindOfPoint(point.function)) {
    case PointKind::kAllocation:
      return &noMemory;
    case PointKind::kRelease:
      return &goesOn;
    default:
      return nullptr;
  }
}

Effect ThrownEffect(const Scenario& scenario, const FailurePoint& point, Manner manner) {
  Effect effect;
  if (KindOfPoint(point.function) == PointKind::kRelease) {
    effect = GoesOn();
    if (scenario.thrown) scenario.thrown(point, manner, effect);
    // The key is gone, but the call that would be booked does not come back.
    if (point.isEntry && point.function == "CryptDestroyKey") {
      effect.left = effect.left.value_or(scenario.left);
      if (++(*effect.left)["key"] == 0) effect.left->erase("key");
    }
    return effect;
  }
  const Effect* const failure = FindEffect(scenario, point);
  effect.error = manner == Manner::kThrowsCode ? kInjectedError : static_cast<DWORD>(NTE_NO_MEMORY);
  if (failure != nullptr && failure->course == Effect::Course::kStops) {
    effect.result = failure->result;
    effect.left = failure->left;
  }
  effect.writes = true;
  if (scenario.thrown) scenario.thrown(point, manner, effect);
  return effect;
}

Lines ExpectedLines(const Scenario& scenario, const FailurePoint& point, const Effect& effect) {
  if (effect.lines) return *effect.lines;
  const std::size_t before = effect.linesBefore.value_or(point.linesBefore);
  const auto& good = scenario.lines;
  Lines lines(good.begin(),
              good.begin() + static_cast<std::ptrdiff_t>(std::min(before, good.size())));
  lines.insert(lines.end(), effect.added.begin(), effect.added.end());
  if (effect.course == Effect::Course::kGoesOn) {
    const std::size_t rest = std::min(before + effect.skipped, good.size());
    lines.insert(lines.end(), good.begin() + static_cast<std::ptrdiff_t>(rest), good.end());
  }
  return lines;
}

}  // namespace zarext::test
