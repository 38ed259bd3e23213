#pragma once

#include <coroutine>
#include <exception>
#include <memory>

// A point a coroutine waits at until a callback resumes it, with or without an error: the
// bridge from timers and completion callbacks into a coroutine. Copies share one state, so the
// callback holds a copy while the coroutine awaits another. Resuming twice does nothing.
// Thread: resume on the thread the coroutine should continue on.
class Continuation {
public:
    void resume() {
        const auto state = m_state; // the coroutine may release the last other copy
        if (state->done)
            return;
        state->done = true;
        if (state->handle)
            state->handle.resume();
    }
    void fail(std::exception_ptr error) {
        if (m_state->done)
            return;
        m_state->error = std::move(error);
        resume();
    }

    bool await_ready() const noexcept { return m_state->done; }
    void await_suspend(std::coroutine_handle<> handle) noexcept { m_state->handle = handle; }
    void await_resume() const {
        if (m_state->error)
            std::rethrow_exception(m_state->error);
    }

private:
    struct State {
        std::coroutine_handle<> handle;
        bool done = false;
        std::exception_ptr error;
    };
    std::shared_ptr<State> m_state = std::make_shared<State>();
};
