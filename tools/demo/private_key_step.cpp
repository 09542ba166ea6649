#include "demo/steps.h"
namespace zarext::demo {
void MovePrivateKey() {}
}  // namespace zarext::demo
