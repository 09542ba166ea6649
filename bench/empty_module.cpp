// A module that does nothing, from the same toolchain and with the same runtime linked in: the
// floor for loading and unloading.
#include <windows.h>

#include <stdexcept>

extern "C" __declspec(dllexport) int Nothing(int value) {
  try {
    if (value == 42) {
      throw std::runtime_error("never");
    }
  } catch (const std::exception&) {
    return 1;
  }
  return 0;
}
