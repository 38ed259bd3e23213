#pragma once

// The one place where libpulse's C headers enter the code: every pulse object is held by one of
// the handles below, so each is released exactly once on every path.

#include <pulse/pulseaudio.h>

#include <memory>

namespace pulse_detail {
struct StopAndFreeMainloop {
    void operator()(pa_threaded_mainloop* mainloop) const {
        // Stopping a loop that is not running does nothing; freeing a running one is not allowed.
        pa_threaded_mainloop_stop(mainloop);
        pa_threaded_mainloop_free(mainloop);
    }
};
struct DisconnectContext {
    void operator()(pa_context* context) const {
        pa_context_set_state_callback(context, nullptr, nullptr);
        pa_context_disconnect(context);
        pa_context_unref(context);
    }
};
struct DisconnectStream {
    void operator()(pa_stream* stream) const {
        pa_stream_set_read_callback(stream, nullptr, nullptr);
        pa_stream_set_state_callback(stream, nullptr, nullptr);
        if (PA_STREAM_IS_GOOD(pa_stream_get_state(stream)))
            pa_stream_disconnect(stream);
        pa_stream_unref(stream);
    }
};
struct UnrefOperation {
    void operator()(pa_operation* operation) const { pa_operation_unref(operation); }
};
} // namespace pulse_detail

// Streams and the context must be released with the loop locked or stopped.
using PaThreadedMainloopPtr =
    std::unique_ptr<pa_threaded_mainloop, pulse_detail::StopAndFreeMainloop>;
using PaContextPtr = std::unique_ptr<pa_context, pulse_detail::DisconnectContext>;
using PaStreamPtr = std::unique_ptr<pa_stream, pulse_detail::DisconnectStream>;
using PaOperationPtr = std::unique_ptr<pa_operation, pulse_detail::UnrefOperation>;

// Holds the threaded loop's lock for a scope. Never taken on the loop's own thread.
class PaMainloopLock {
public:
    explicit PaMainloopLock(pa_threaded_mainloop* mainloop) : m_mainloop(mainloop) {
        pa_threaded_mainloop_lock(m_mainloop);
    }
    ~PaMainloopLock() { pa_threaded_mainloop_unlock(m_mainloop); }
    PaMainloopLock(const PaMainloopLock&) = delete;
    PaMainloopLock& operator=(const PaMainloopLock&) = delete;

private:
    pa_threaded_mainloop* m_mainloop;
};
