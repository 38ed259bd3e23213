#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>
#include <QTimer>

#include <chrono>
#include <functional>

// Runs the Qt event loop of the test thread until a condition holds, within a bound.
inline bool waitUntil(const std::function<bool()>& condition,
                      std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    QDeadlineTimer deadline(timeout);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QThread::msleep(1);
    }
    return true;
}

// Runs the Qt event loop of the test thread until every timer due within `duration` from now
// has fired: a timer of our own for `duration` is waited for, and Qt fires due timers in the
// order they fall due. A loaded machine only makes this take longer, never end early.
inline void processEventsFor(std::chrono::milliseconds duration) {
    bool elapsed = false;
    QTimer marker;
    marker.setSingleShot(true);
    marker.setTimerType(Qt::PreciseTimer);
    QObject::connect(&marker, &QTimer::timeout, [&elapsed] { elapsed = true; });
    marker.start(duration);
    waitUntil([&elapsed] { return elapsed; }, duration + std::chrono::seconds(30));
}
