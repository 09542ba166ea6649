// Marks that a load runs. Only the same thread can find the mark set, as the critical section keeps
// others out: a provider call, a trace line or a dialogue of the "ROOT" store can run code of the
// host that opens the store again.
#ifndef ZAREXT_STORE_RUNNING_LOAD_H_
#define ZAREXT_STORE_RUNNING_LOAD_H_

#include "frame/guarded.h"

namespace zarext {

// Calls load(isNested): whether another load runs around this one. The mark also goes where an
// exception passes that is none of C++, a fault in the provider, and a handler of the host's takes
// it; no destructor runs then.
void RunLoad(const Callback<bool>& load);

}  // namespace zarext

#endif  // ZAREXT_STORE_RUNNING_LOAD_H_
