#include "daemon/platform/memory_release.h"

namespace halvo::daemon {

void returnFreeMemory() {}

} // namespace halvo::daemon
