#include <gmock/gmock.h>
#include <stdio.h>

#include "support/child_process.h"

int main(int argc, char** argv) {
  if (const auto child = zarext::test::ChildRequest(argc, argv)) {
    return zarext::test::RunChild(*child);
  }
  testing::InitGoogleMock(&argc, argv);
  // A crash would otherwise lose what stdio still holds.
  setvbuf(stdout, nullptr, _IONBF, 0);
  return RUN_ALL_TESTS();
}
