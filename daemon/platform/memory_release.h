// Hands memory that the allocator keeps free back to the system, after a
// burst of large buffers, where the allocator allows it (glibc); elsewhere
// nothing happens.
#pragma once

namespace halvo::daemon {

void returnFreeMemory();

} // namespace halvo::daemon
