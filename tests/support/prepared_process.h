// crypt32 reads the OID information of the registry once, when it is loaded: what a process
// registers becomes visible to it only in a later process.
#ifndef ZAREXT_TESTS_SUPPORT_PREPARED_PROCESS_H_
#define ZAREXT_TESTS_SUPPORT_PREPARED_PROCESS_H_

#include <string>

namespace zarext::test {

// A static object of this type makes the test program run `prepare` and then start itself again,
// with the same arguments, before any test runs; the second process is the one that tests, and its
// exit code becomes the program's.
class PreparedProcess {
 public:
  explicit PreparedProcess(void (*prepare)());
};

// What PreparedProcess functions write, in the registry of the prefix.

// The information record of an OID in a group (2: content encryption).
void RegisterOidInfo(const char* oid, unsigned group, const wchar_t* name, unsigned algId);
// Binds a framework function for an OID, encoding type 1, to an export of ZAREXT.dll.
void BindOidFunction(const char* function, const char* oid, const char* exportName);

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_PREPARED_PROCESS_H_
