#pragma once

#include "support/EventLoop.h"

#include <QCoro/QCoroTask>

#include <chrono>
#include <exception>
#include <optional>

// Runs a coroutine to its end on the test thread's event loop, bounded in time. QCoro's own
// waitFor never returns when a task throws before its first suspension, so tests use this.
struct TaskOutcome {
    bool finished = false;
    std::exception_ptr error;
};

inline TaskOutcome runTask(QCoro::Task<void> task,
                           std::chrono::milliseconds timeout = std::chrono::milliseconds(5000)) {
    TaskOutcome outcome;
    auto wrapper = [](QCoro::Task<void> inner, TaskOutcome& result) -> QCoro::Task<void> {
        try {
            co_await std::move(inner);
        } catch (...) {
            result.error = std::current_exception();
        }
        result.finished = true;
    };
    auto running = wrapper(std::move(task), outcome);
    waitUntil([&] { return outcome.finished; }, timeout);
    return outcome;
}
