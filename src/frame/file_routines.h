// Small whole-file routines of the frame. Nothing in the module calls them; they are part of the
// frame for diagnostics.
#ifndef ZAREXT_FRAME_FILE_ROUTINES_H_
#define ZAREXT_FRAME_FILE_ROUTINES_H_

#include <cstdint>

namespace zarext {

// Stores the file's size in octets (its low 32 bits) and returns 0; returns 1, storing nothing, if
// the file cannot be queried.
std::int32_t QueryFileSize(const char* path, std::uint32_t* size);

// Reads exactly `size` octets from the start of the file. 0; 1: cannot be opened; 2: fewer there.
std::int32_t ReadWholeFile(const char* path, void* buffer, std::uint32_t size);

// Creates or truncates the file and writes `size` octets. 0; 1: cannot be created; 2: fewer
// written. Sets the C runtime's default file mode to binary and leaves it so; code that shares the
// C runtime sees it.
std::int32_t WriteWholeFile(const char* path, const void* data, std::uint32_t size);

}  // namespace zarext

#endif  // ZAREXT_FRAME_FILE_ROUTINES_H_
