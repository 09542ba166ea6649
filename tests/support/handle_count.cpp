#include "support/handle_count.h"

#include <windows.h>

#include <winternl.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace zarext::test {
namespace {

// SystemExtendedHandleInformation and what it gives; the headers lack both.
constexpr int kExtendedHandleInformation = 64;
using Query = NTSTATUS NTAPI(int, void*, ULONG, ULONG*);
struct HandleEntry {
  void* object;
  ULONG_PTR process;
  ULONG_PTR handle;
  ULONG access;
  USHORT traceIndex;
  USHORT type;
  ULONG attributes;
  ULONG reserved;
};
static_assert(sizeof(HandleEntry) == 40);
constexpr std::size_t kHeadSize = 16;  // count, reserved

}  // namespace

std::size_t OpenHandleCount() {
  constexpr auto kTooSmall = static_cast<NTSTATUS>(0xC0000004);
  static std::vector<BYTE> buffer(1 << 16);
  ULONG size = 0;
  NTSTATUS status = kTooSmall;
  auto* const query = reinterpret_cast<Query*>(reinterpret_cast<void*>(&NtQuerySystemInformation));
  while ((status = query(kExtendedHandleInformation, buffer.data(),
                         static_cast<ULONG>(buffer.size()), &size)) == kTooSmall) {
    buffer.resize(buffer.size() * 2);
  }
  if (status != 0) {
    throw std::runtime_error("the system does not list its handles");
  }
  const ULONG_PTR count = *reinterpret_cast<const ULONG_PTR*>(buffer.data());
  const auto* const entries = reinterpret_cast<const HandleEntry*>(buffer.data() + kHeadSize);
  return static_cast<std::size_t>(std::count_if(
      entries, entries + count,
      [](const HandleEntry& entry) { return entry.process == GetCurrentProcessId(); }));
}

}  // namespace zarext::test
