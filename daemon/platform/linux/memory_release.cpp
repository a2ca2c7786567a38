#include "daemon/platform/memory_release.h"

#include <malloc.h>

namespace halvo::daemon {

void returnFreeMemory() {
#if defined(__GLIBC__)
    ::malloc_trim(0);
#endif
}

} // namespace halvo::daemon
