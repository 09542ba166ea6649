// A zip of files as they are, without compression (PKWARE's APPNOTE, 4.3).
#ifndef ZAREXT_TOOLS_CHECK_ZIP_H_
#define ZAREXT_TOOLS_CHECK_ZIP_H_

#include <filesystem>

namespace zarext::check {

// Writes the files that lie in a folder (not those below) into a new archive; false where that
// fails.
bool ZipFolder(const std::filesystem::path& folder, const std::filesystem::path& archive);

}  // namespace zarext::check

#endif  // ZAREXT_TOOLS_CHECK_ZIP_H_
