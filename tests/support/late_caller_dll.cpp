// A DLL of the host that is older than the module, and still calls it when the process ends: its
// exit routine runs behind the module's.
namespace {

struct LateCaller {
  ~LateCaller() {
    if (call != nullptr) call();
  }
  void (*call)() = nullptr;
};
LateCaller caller;

}  // namespace

extern "C" __declspec(dllexport) void CallWhenTheProcessEnds(void (*call)()) { caller.call = call; }
