// The handlers of every export and callback: what is thrown below becomes a result, also what
// another compiler's C++ throws.
#ifndef ZAREXT_FRAME_GUARDED_H_
#define ZAREXT_FRAME_GUARDED_H_

#include <windows.h>

namespace zarext {

// Inside the module a failure is this type, thrown by value. Anything else that is thrown (a signed
// code among them) counts as something else.
using ErrorCode = DWORD;

// Refers to something callable with these arguments, for as long as that lives: a parameter of this
// type takes a lambda that is written in the call.
template <typename... Arguments>
class Callback {
 public:
  template <typename Function>
  Callback(const Function& function)
      : function_(&function), call_([](const void* callee, Arguments... arguments) {
          (*static_cast<const Function*>(callee))(arguments...);
        }) {}
  void operator()(Arguments... arguments) const { call_(function_, arguments...); }

 private:
  const void* function_;
  void (*call_)(const void* callee, Arguments... arguments);
};

// Calls work(). A C++ exception of the platform's own compiler (code 0xE06D7363), as a provider
// built with it throws, becomes one of this module's where it is raised; without that it would pass
// every catch handler and destructor of the module on its way to the host. Only `catch (...)` takes
// it.
void CallTranslatingExceptions(const Callback<>& work);

// Calls work(), and onCode(code) if it throws an ErrorCode, onOther() if it throws anything else.
// What these throw goes on to the caller.
void RunGuarded(Callback<ErrorCode> onCode, Callback<> onOther, Callback<> work);

}  // namespace zarext

#endif  // ZAREXT_FRAME_GUARDED_H_
