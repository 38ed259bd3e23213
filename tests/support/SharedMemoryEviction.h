#pragma once

#include <string>

// What an X server that drops shared memory does to its clients, done from outside: every
// MIT-SHM segment attached by any client of the server on DISPLAY is detached from a
// connection of this process (X11 lets any client free any resource). The clients' next
// shared memory request then fails with BadShmSeg.
struct SharedMemoryEviction {
    int detached = 0;  // segments detached
    std::string error; // why nothing could be done; empty on success
};
SharedMemoryEviction detachEverySharedMemorySegment();
// The same for the one client that holds the most shared memory (a screen recorder's frame
// buffers outweigh any toolkit's), leaving the others alone.
SharedMemoryEviction detachLargestClientsSharedMemory();

// Empty when detachEverySharedMemorySegment can work here, else what is missing (for
// REQUIRE_NOTHING_MISSING).
std::string sharedMemoryEvictionMissing();
