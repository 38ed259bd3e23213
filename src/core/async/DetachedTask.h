#pragma once

#include <QFuture>
#include <QPromise>
#include <QThreadPool>

#include <QCoro/QCoroFuture>
#include <QCoro/QCoroTask>

#include <exception>
#include <functional>
#include <memory>
#include <optional>

// Runs blocking `work` on the global thread pool and resumes the awaiting coroutine on its own
// thread with the value or the exception. The caller's thread never waits.
template <typename T>
QCoro::Task<T> runDetached(std::function<T()> work) {
    struct Outcome {
        std::optional<T> value;
        std::exception_ptr error;
    };
    auto outcome = std::make_shared<Outcome>();
    // Held in a shared pointer because the pool only takes copyable work.
    auto promise = std::make_shared<QPromise<void>>();
    QFuture<void> future = promise->future();
    promise->start();
    QThreadPool::globalInstance()->start([work = std::move(work), outcome, promise] {
        try {
            outcome->value.emplace(work());
        } catch (...) {
            outcome->error = std::current_exception();
        }
        promise->finish();
    });
    co_await future;
    if (outcome->error)
        std::rethrow_exception(outcome->error);
    co_return std::move(*outcome->value);
}
