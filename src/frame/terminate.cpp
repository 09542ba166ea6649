// Replaces the runtime's default reaction to an exception that nobody catches. Every export catches
// what its work throws, so this is never reached; the runtime's own version, which names the
// exception, would put its name demangler and formatted output (70 KB) into the module.
#include <cstdlib>

namespace __gnu_cxx {  // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

void __verbose_terminate_handler() {  // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
  std::abort();
}

}  // namespace __gnu_cxx
