// Replaces what the standard library calls where a length, a position or an allocation is refused.
// The exports report each of these as lack of memory, so one exception serves; the library's own
// functions would put its message strings, error categories and a random device (16 to 26 KB) into
// the module. Only the DLL links this file: elsewhere messages are read.
#include <new>

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,cert-dcl58-cpp)
namespace std {

[[noreturn]] void __throw_bad_alloc() { throw bad_alloc(); }
[[noreturn]] void __throw_bad_array_new_length() { throw bad_alloc(); }
[[noreturn]] void __throw_length_error(const char* /*message*/) { throw bad_alloc(); }
[[noreturn]] void __throw_logic_error(const char* /*message*/) { throw bad_alloc(); }
[[noreturn]] void __throw_out_of_range_fmt(const char* /*format*/, ...) { throw bad_alloc(); }

}  // namespace std
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,cert-dcl58-cpp)
