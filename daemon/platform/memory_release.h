// Hands memory that the allocator keeps free back to the system, after a
// burst of large buffers or rule sets, where the allocator allows it (glibc);
// elsewhere nothing happens. Safe on any thread.
#pragma once

namespace halvo::daemon {

void returnFreeMemory();

} // namespace halvo::daemon
