// The log of the exports for installers.
#ifndef ZAREXT_STORE_LOG_FILE_H_
#define ZAREXT_STORE_LOG_FILE_H_

namespace zarext {

// Written only if it is there: whoever wants a log creates the file.
inline constexpr char kLogFile[] = "c:\\zarext.log";

}  // namespace zarext

#endif  // ZAREXT_STORE_LOG_FILE_H_
