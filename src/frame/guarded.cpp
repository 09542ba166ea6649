#include "frame/guarded.h"

namespace zarext {

void CallGuarded(Callback<ErrorCode> onCode, Callback<> onOther, Callback<> work) {
  auto guarded = [&] {
    try {
      work();
    } catch (ErrorCode code) {
      onCode(code);
    } catch (...) {
      onOther();
    }
  };
  CallTranslatingExceptions(Callback<>(guarded));
}

}  // namespace zarext
