#include "demo/steps.h"
namespace zarext::demo {
void MaintainStores() {}
}  // namespace zarext::demo
