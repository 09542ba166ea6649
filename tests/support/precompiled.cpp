// Nothing of its own: a target that owns the common headers needs one file.
#include "support/precompiled.h"
