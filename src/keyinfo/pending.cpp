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
BOOL WINAPI ZarImportPublicKeyInfoEx() { return Pending("ZarImportPublicKeyInfoEx"); }
BOOL WINAPI ZarConvertPublicKeyInfo() { return Pending("ZarConvertPublicKeyInfo"); }
BOOL WINAPI ZarEncodePublicKeyAndParameters() { return Pending("ZarEncodePublicKeyAndParameters"); }
BOOL WINAPI ZarImportPrivKeyFunc() { return Pending("ZarImportPrivKeyFunc"); }
BOOL WINAPI ZarExportPrivKeyFunc() { return Pending("ZarExportPrivKeyFunc"); }
BOOL WINAPI ZarImportPublicKeyInfo() { return Pending("ZarImportPublicKeyInfo"); }
BOOL WINAPI ZarExportPublicKeyInfoEx() { return Pending("ZarExportPublicKeyInfoEx"); }
BOOL WINAPI ZarExportPublicKeyInfo() { return Pending("ZarExportPublicKeyInfo"); }
}  // extern "C"
