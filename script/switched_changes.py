"""Many changes in one build, each behind a switch: with ZAREXT_CHANGE=17 in its environment a process
runs change 17, without it the sources as they are. A change then costs a test run, and no build.

Only changes of expressions, returns and exchanges of statements that declare nothing can be switched;
what stands in a constant expression cannot, and is dropped when the compiler refuses it.
"""
import re

OPERATORS = ("argument", "operand", "conversion", "variable", "return", "cast", "exchange")

SWITCH = """#ifndef ZAREXT_SWITCH_H_
#define ZAREXT_SWITCH_H_
#include <cstdlib>
#include <type_traits>
namespace zarext_switch {
template <typename Original, typename Result>
struct Same {};
template <typename Original, typename Result>
  requires std::is_same_v<Original, Result> ||
           (std::is_same_v<std::remove_cvref_t<Original>, std::remove_cvref_t<Result>> &&
            std::is_scalar_v<std::remove_cvref_t<Original>>)
struct Same<Original, Result> {
  static constexpr int kChecked = 0;
};
inline const int change = [] {
  const char* const text = std::getenv("ZAREXT_CHANGE");
  return text == nullptr ? 0 : std::atoi(text);
}();
}
#define ZAREXT_CHANGED(n) (::zarext_switch::change == (n))
// One of two expressions. Refused where the result is not of the original's type, or a copy of an object.
#define ZAREXT_PICK(n, changed, original)                                                          \\
  (::zarext_switch::Same<decltype((original)),                                                     \\
                         decltype((ZAREXT_CHANGED(n) ? changed : original))>::kChecked,            \\
   ZAREXT_CHANGED(n) ? changed : original)
#endif
"""

LITERALS = re.compile(r'"(?:\\.|[^"\\\n])*"(?:\s+"(?:\\.|[^"\\\n])*")*')


class Switched:
    """A change with the part of the source that it exchanges as a whole."""

    def __init__(self, number, change, source):
        self.number, self.change = number, change
        start, end, new = change.at, change.at + change.length, change.new
        self.usable = change.kind in OPERATORS
        self.is_statement = change.kind in ("return", "exchange")
        if change.kind == "exchange":
            self.usable = not change.declares
        elif self.is_statement:
            begin = source.rfind("return", 0, start)
            stop = source.index(";", end)
            self.usable = source[begin + 6:start].strip() == "" and source[end:stop].strip() == ""
            start, end, new = begin, stop + 1, "return %s;" % new
        elif change.kind == "conversion":
            literal = next((m for m in LITERALS.finditer(source) if m.start() < start < m.end()), None)
            self.usable = literal is not None and source[literal.start() - 1] not in "LuUR"
            if literal:
                new = source[literal.start():start] + new + source[end:literal.end()]
                start, end = literal.span()
        else:
            # Two arguments are no expression.
            self.usable = self.usable and not (change.kind == "argument" and top_level_comma(new))
            # Both sides of a switch get one type, which would be another for what follows.
            if re.match(r"(static|reinterpret|const)_cast|[\w:]+[({]", source[start:end]) and change.kind == "cast":
                self.usable = False
        self.start, self.end, self.new = start, end, new

    def render(self, original):
        if self.is_statement:
            return "{ if (ZAREXT_CHANGED(%d)) { %s } else { %s } }" % (self.number, self.new, original)
        return "ZAREXT_PICK(%d, (%s), (%s))" % (self.number, self.new, original)


def top_level_comma(text):
    depth = 0
    for c in text:
        depth += (c in "([{") - (c in ")]}")
        if c == "," and depth == 0:
            return True
    return False


def nested(switched):
    """Those that lie in one another or apart: outermost first."""
    chosen = []
    for s in sorted(switched, key=lambda s: (s.start, -s.end)):
        if all(s.start >= o.end or s.end <= o.end for o in chosen):
            chosen.append(s)
    return chosen


def render(source, switched, header):
    """The source with all of them; and for each the lines that it takes there."""
    chosen = nested(switched)
    out, lines = [], {}

    def emit(text):
        out.append(text)

    def line():
        return "".join(out).count("\n") + 1

    def part(start, end, inner):
        position = start
        i = 0
        while i < len(inner):
            outer = inner[i]
            j = i + 1
            while j < len(inner) and inner[j].start < outer.end:
                j += 1
            emit(source[position:outer.start])
            first = line()
            marker = outer.render("\0").split("\0")
            emit(marker[0])
            part(outer.start, outer.end, inner[i + 1:j])
            emit(marker[1])
            lines[outer.number] = (first, line())
            position = outer.end
            i = j
        emit(source[position:end])

    emit('#include "%s"\n' % header)
    part(0, len(source), chosen)
    return "".join(out), lines


def refused(output, places):
    """The numbers of the changes on the lines of which the compiler found an error. `places`: by path,
    the lines of each change."""
    numbers = set()
    for path, ranges in places.items():
        for found in re.finditer(r"%s:(\d+):\d+: (?:(?:fatal )?error|note: in expansion of macro)|%s:(\d+):\d+:   required" %
                                 ((re.escape(path),) * 2), output):
            at = int(next(filter(None, found.groups())))
            inside = [(last - first, n) for n, (first, last) in ranges.items() if first <= at <= last]
            # All that end on that line: which of them it was is not said.
            if not inside:
                # The cause stands before it: a variable of another type.
                inside = sorted((at - last, n) for n, (first, last) in ranges.items() if last < at)[:3]
                numbers.update(n for _, n in inside)
            numbers.update(n for _, n in inside if ranges[n][1] - ranges[n][0] <= min(inside)[0])
    return numbers
