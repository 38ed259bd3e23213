#pragma once

#include <pipewire/pipewire.h>

#include <memory>

// Owners of the PipeWire objects one capture stream uses. Tear-down order matters and is the
// owner's job: stop the thread loop first, then let the stream, the core and the context go
// (nothing runs their callbacks any more), then the loop itself.
struct PipeWireThreadLoopDeleter {
    void operator()(pw_thread_loop* loop) const {
        pw_thread_loop_stop(loop);
        pw_thread_loop_destroy(loop);
    }
};
struct PipeWireContextDeleter {
    void operator()(pw_context* context) const { pw_context_destroy(context); }
};
struct PipeWireCoreDeleter {
    void operator()(pw_core* core) const { pw_core_disconnect(core); }
};
struct PipeWireStreamDeleter {
    void operator()(pw_stream* stream) const { pw_stream_destroy(stream); }
};

struct PipeWireRegistryDeleter {
    void operator()(pw_registry* registry) const {
        pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
    }
};

using PipeWireThreadLoop = std::unique_ptr<pw_thread_loop, PipeWireThreadLoopDeleter>;
using PipeWireContext = std::unique_ptr<pw_context, PipeWireContextDeleter>;
using PipeWireCore = std::unique_ptr<pw_core, PipeWireCoreDeleter>;
using PipeWireStream = std::unique_ptr<pw_stream, PipeWireStreamDeleter>;
using PipeWireRegistry = std::unique_ptr<pw_registry, PipeWireRegistryDeleter>;

// Holds the thread loop's lock for a scope; callbacks of the loop never take it (they run
// with it held already).
class PipeWireLoopLock {
public:
    explicit PipeWireLoopLock(pw_thread_loop* loop) : m_loop(loop) { pw_thread_loop_lock(m_loop); }
    ~PipeWireLoopLock() { pw_thread_loop_unlock(m_loop); }
    PipeWireLoopLock(const PipeWireLoopLock&) = delete;
    PipeWireLoopLock& operator=(const PipeWireLoopLock&) = delete;

private:
    pw_thread_loop* m_loop;
};

// The library is set up once per process, before the first stream.
void ensurePipeWireInitialised();
