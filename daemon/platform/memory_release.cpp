#include "daemon/platform/memory_release.h"

#if __has_include(<malloc.h>)
#include <malloc.h>
#endif

namespace halvo::daemon {

void returnFreeMemory() {
#if defined(__GLIBC__)
    ::malloc_trim(0);
#endif
}

} // namespace halvo::daemon
