#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>

#include <chrono>
#include <functional>

// Runs the Qt event loop of the test thread for a while, or until a condition holds (bounded).
inline void processEventsFor(std::chrono::milliseconds duration) {
    QDeadlineTimer deadline(duration);
    while (!deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QThread::msleep(1);
    }
}

inline bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
    QDeadlineTimer deadline(timeout);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QThread::msleep(1);
    }
    return true;
}
