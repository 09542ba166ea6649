// Exports of this folder whose work is still to come: they trace their entry and say so.
#include <windows.h>

#include "frame/export_frame.h"

using zarext::ErrorCode;
using zarext::ExportTrace;
using zarext::RunExport;

namespace {

BOOL Pending(const char* name) {
  return RunExport([&](ExportTrace& trace) -> BOOL {
    trace.Line("EXT : %s.", name);
    throw static_cast<ErrorCode>(ERROR_CALL_NOT_IMPLEMENTED);
  });
}

}  // namespace

extern "C" {
HRESULT WINAPI DllRegisterServer() { return Pending("DllRegisterServer") ? S_OK : E_UNEXPECTED; }
HRESULT WINAPI DllUnregisterServer() {
  return Pending("DllUnregisterServer") ? S_OK : E_UNEXPECTED;
}
}  // extern "C"
