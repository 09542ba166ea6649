#include "demo/steps.h"
namespace zarext::demo {
void OpenEnvelopes() {}
}  // namespace zarext::demo
