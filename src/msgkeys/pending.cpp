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
BOOL WINAPI ZarMsgGenContentEncryptKey() { return Pending("ZarMsgGenContentEncryptKey"); }
BOOL WINAPI ZarGenEncryptKey() { return Pending("ZarGenEncryptKey"); }
BOOL WINAPI ZarMsgExportKeyTrans() { return Pending("ZarMsgExportKeyTrans"); }
BOOL WINAPI ZarExportEncryptKey() { return Pending("ZarExportEncryptKey"); }
BOOL WINAPI ZarImportEncryptKey() { return Pending("ZarImportEncryptKey"); }
BOOL WINAPI ZarMsgImportKeyTrans() { return Pending("ZarMsgImportKeyTrans"); }
}  // extern "C"
