#include "unit/fake_answers.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "unit/fake_platform.h"

namespace zarext::test {
namespace {

DWORD lastError = 0;
volatile std::uint8_t readOctet;

}  // namespace

BOOL Fail(DWORD code) {
  lastError = code;
  return FALSE;
}

bool CallFails() {
  if (Platform().input.Octet() % 8 != 7) {
    return false;
  }
  lastError = Platform().input.Word();
  return true;
}

BOOL Answer(BYTE* data, DWORD* size) {
  const std::vector<std::uint8_t> octets = Platform().input.Octets(data == nullptr ? 0 : *size);
  std::copy(octets.begin(), octets.end(), data);
  const std::uint8_t claim = Platform().input.Octet();
  *size = claim == 0xFF ? Platform().input.Word() : static_cast<DWORD>(octets.size());
  return TRUE;
}

void ReadAll(const BYTE* data, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) {
    readOctet = data[i];
  }
}

}  // namespace zarext::test

DWORD GetLastError() { return zarext::test::lastError; }
void SetLastError(DWORD code) { zarext::test::lastError = code; }
