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
BOOL WINAPI ZarOpenStoreProv() { return Pending("ZarOpenStoreProv"); }
BOOL WINAPI SetOtherCert() { return Pending("SetOtherCert"); }
BOOL WINAPI SetSelfCert() { return Pending("SetSelfCert"); }
BOOL WINAPI DelOtherCert() { return Pending("DelOtherCert"); }
}  // extern "C"
