// Where the framework of the tests handles enveloped messages in another way than Windows, each
// found out by calling it, with functions of the process' own that take the place of a module's.
// They stay installed, for identifiers that nothing else uses.
#ifndef ZAREXT_TESTS_SUPPORT_MESSAGE_GAPS_H_
#define ZAREXT_TESTS_SUPPORT_MESSAGE_GAPS_H_

#include <windows.h>

namespace zarext::test {

// Which CryptMsgDllImportKeyTrans is called for a message, and with which recipient's record.
struct ImportDispatch {
  bool byContent = false;  // that of the content's algorithm, not that of the recipient's key
  unsigned recipient = 0;  // of two, where the second (1) was asked for
};
// Throws where none is called.
ImportDispatch DispatchOfImport();

// CryptMsgOpenToEncode does not know the content algorithm, unless an information record names it.
bool ContentAlgorithmIsUnknown(const char* oid);

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_MESSAGE_GAPS_H_
