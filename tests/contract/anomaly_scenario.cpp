#include "contract/anomaly_scenario.h"

namespace zarext::test {

Effect Stops(std::size_t linesBefore, const std::string& line, const Leftovers& left) {
  Effect effect;
  effect.error = kInjectedError;
  effect.linesBefore = linesBefore;
  if (!line.empty()) effect.added = {line};
  effect.left = left;
  return effect;
}

Effect StopsSilently(DWORD error, const Leftovers& left) {
  Effect effect;
  effect.error = error;
  effect.left = left;
  return effect;
}

Effect GoesOn() {
  Effect effect;
  effect.course = Effect::Course::kGoesOn;
  return effect;
}

Effect GoesOnAs(const Lines& lines) {
  Effect effect = GoesOn();
  effect.lines = lines;
  return effect;
}

Effect GoesOnAs(const Lines& lines, const Leftovers& left) {
  Effect effect = GoesOnAs(lines);
  effect.left = left;
  return effect;
}

Effect GoesOnWith(std::size_t linesBefore, const Lines& lines, std::size_t skipped) {
  Effect effect = GoesOn();
  effect.linesBefore = linesBefore;
  effect.added = lines;
  effect.skipped = skipped;
  return effect;
}

}  // namespace zarext::test
