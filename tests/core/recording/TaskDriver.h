#pragma once

#include "FakeRecordingClock.h"
#include "core/recording/ErrorDescription.h"

#include <QCoreApplication>

#include <QCoro/QCoroTask>

#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <thread>

// Watches a coroutine that a test started: whether it is done and how it ended.
template <typename T>
struct TaskProbe {
    bool done = false;
    std::optional<T> value;
    std::exception_ptr error;
    std::string errorText() const { return error ? describeError(error) : std::string(); }
};
template <>
struct TaskProbe<void> {
    bool done = false;
    std::exception_ptr error;
    std::string errorText() const { return error ? describeError(error) : std::string(); }
};

template <typename T>
QCoro::Task<void> watch(QCoro::Task<T> task, std::shared_ptr<TaskProbe<T>> probe) {
    try {
        if constexpr (std::is_void_v<T>)
            co_await task;
        else
            probe->value = co_await task;
    } catch (...) {
        probe->error = std::current_exception();
    }
    probe->done = true;
}

template <typename T>
std::shared_ptr<TaskProbe<T>> launch(QCoro::Task<T> task) {
    auto probe = std::make_shared<TaskProbe<T>>();
    watch(std::move(task), probe);
    return probe;
}

// Runs the event loop (and what is due now on the fake clock, such as a zero sleep) until the
// probe is done or a real second has passed; the thread pool's work is real, so this waits.
template <typename T>
bool settle(const std::shared_ptr<TaskProbe<T>>& probe, FakeRecordingClock& clock) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!probe->done && std::chrono::steady_clock::now() < deadline) {
        QCoreApplication::processEvents();
        clock.advance(0.0);
        if (!probe->done)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    QCoreApplication::processEvents();
    return probe->done;
}

// Lets queued work run without waiting for anything in particular.
inline void drainEvents(FakeRecordingClock& clock) {
    for (int i = 0; i < 5; ++i) {
        QCoreApplication::processEvents();
        clock.advance(0.0);
    }
}
