#include "demo/steps.h"
namespace zarext::demo {
void ShowCache() {}
void OpenStoreOnce() {}
}  // namespace zarext::demo
