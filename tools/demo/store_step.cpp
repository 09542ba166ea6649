#include "demo/steps.h"
namespace zarext::demo {
void UseStore() {}
}  // namespace zarext::demo
