#include "frame/guarded.h"

namespace zarext {

void RunGuarded(Callback<ErrorCode> onCode, Callback<> onOther, Callback<> work) {
  CallTranslatingExceptions([&] {
    try {
      work();
    } catch (ErrorCode code) {
      onCode(code);
    } catch (...) {
      onOther();
    }
  });
}

}  // namespace zarext
