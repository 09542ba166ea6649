// The trace on the debugger channel, always on, and the file loggers of the maintenance exports.
#ifndef ZAREXT_FRAME_TRACE_H_
#define ZAREXT_FRAME_TRACE_H_

#include "frame/text.h"

namespace zarext {

// Writes one line to the debugger channel (OutputDebugStringA): "id=%i : tm=%s : " with the thread
// identifier and a timestamp such as "Mon Nov 16 00:12:46.007", then the caller's text, without a
// newline. Lines are not cut. The thread's last error is kept. Throws only what the platform's
// calls throw: what a debugger's handler inside the process does.
void Trace(const char* format, ...) ZAREXT_PRINTF(1, 2);

// Appends "thid=%i : time=%s : %s\n" to the log file `path`, if that file exists and is a regular
// file; it is never created here, so that an administrator decides whether there is a log. Writers
// of all processes lock "zarext.lock" in the temporary directory and take turns by a lock far
// behind the log's end, for which each waits ten seconds at most while another holds it. The last
// error afterwards is whatever the calls made here leave. What they throw is passed over.
void FileLog(const char* path, const char* format, ...) ZAREXT_PRINTF(2, 3);

// The same for a finished message, with the lock file "zarint.lock". For internal diagnostics.
void InternalFileLog(const char* path, const char* message);

}  // namespace zarext

#endif  // ZAREXT_FRAME_TRACE_H_
