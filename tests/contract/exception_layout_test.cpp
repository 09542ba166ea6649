// What the language runtime reads and writes of the globals that the module gives it. Nothing of
// the module is linked: the globals lie at the end of a page, and behind it there is nothing.
#include <cxxabi.h>
#include <gmock/gmock.h>

#include <exception>
#include <stdexcept>

#include "frame/exception_globals.h"
#include "support/guarded_memory.h"

namespace {

zarext::ExceptionGlobals* guarded = nullptr;
// Room enough, for whatever is thrown outside of the test.
alignas(16) unsigned char elsewhere[256];

void* CurrentGlobals() { return guarded != nullptr ? static_cast<void*>(guarded) : elsewhere; }

}  // namespace

namespace __cxxabiv1 {

extern "C" __cxa_eh_globals* __cxa_get_globals() noexcept {
  return static_cast<__cxa_eh_globals*>(CurrentGlobals());
}
extern "C" __cxa_eh_globals* __cxa_get_globals_fast() noexcept {
  return static_cast<__cxa_eh_globals*>(CurrentGlobals());
}

}  // namespace __cxxabiv1

namespace zarext::test {
namespace {

// What is on its way while the block is left.
struct CountOnTheWay {
  unsigned int& count;
  ~CountOnTheWay() { count = guarded->uncaughtExceptions; }
};

TEST(ExceptionGlobals, AreAllThatTheRuntimeTouches) {
  GuardedMemory memory(sizeof(ExceptionGlobals));
  guarded = new (memory.Data()) ExceptionGlobals{};
  unsigned int during = 0;
  std::exception_ptr kept;
  try {
    const CountOnTheWay count{during};
    throw std::runtime_error("outer");
  } catch (const std::runtime_error&) {
    const void* const outer = guarded->caughtExceptions;
    EXPECT_NE(nullptr, outer);
    EXPECT_EQ(0u, guarded->uncaughtExceptions);
    kept = std::current_exception();
    try {
      try {
        throw 5ul;
      } catch (unsigned long) {
        EXPECT_NE(outer, guarded->caughtExceptions);
        throw;
      }
    } catch (...) {
      EXPECT_NE(outer, guarded->caughtExceptions);
    }
    EXPECT_EQ(outer, guarded->caughtExceptions);
  }
  EXPECT_EQ(1u, during);
  EXPECT_THROW(std::rethrow_exception(kept), std::runtime_error);
  EXPECT_EQ(nullptr, guarded->caughtExceptions);
  EXPECT_EQ(0u, guarded->uncaughtExceptions);
  guarded = nullptr;
}

}  // namespace
}  // namespace zarext::test
