#pragma once

#include "core/model/RecordingError.h"

#include <QDateTime>
#include <QString>

#include <variant>

// Where a recording stands. The coordinator is the only writer.
class RecordingState {
public:
    struct Idle {};
    struct Preparing {};
    struct Ready {};
    struct Recording {
        QDateTime startTime;
    };
    struct Paused {
        QDateTime pauseTime;
        double elapsed = 0.0;
    };
    struct Finalizing {};
    struct Completed {
        QString fileURL; // a local file path
    };
    struct Failed {
        RecordingError error;
    };

    using Value =
        std::variant<Idle, Preparing, Ready, Recording, Paused, Finalizing, Completed, Failed>;

    RecordingState() : m_value(Idle{}) {}
    static RecordingState idle() { return RecordingState(Idle{}); }
    static RecordingState preparing() { return RecordingState(Preparing{}); }
    static RecordingState ready() { return RecordingState(Ready{}); }
    static RecordingState recording(QDateTime startTime) {
        return RecordingState(Recording{std::move(startTime)});
    }
    static RecordingState paused(QDateTime pauseTime, double elapsed) {
        return RecordingState(Paused{std::move(pauseTime), elapsed});
    }
    static RecordingState finalizing() { return RecordingState(Finalizing{}); }
    static RecordingState completed(QString fileURL) {
        return RecordingState(Completed{std::move(fileURL)});
    }
    static RecordingState failed(RecordingError error) {
        return RecordingState(Failed{std::move(error)});
    }

    const Value& value() const { return m_value; }
    template <typename Case>
    bool is() const {
        return std::holds_alternative<Case>(m_value);
    }
    template <typename Case>
    const Case* as() const {
        return std::get_if<Case>(&m_value);
    }

    QString displayName() const;
    bool isRecording() const { return is<Recording>(); }
    bool isPaused() const { return is<Paused>(); }
    bool isActive() const { return isRecording() || isPaused(); }
    bool canPause() const { return isRecording(); }
    bool canResume() const { return isPaused(); }
    bool canStop() const { return isActive(); }

    // Payloads compare by value; two failures are equal when their descriptions read the same,
    // whatever their kinds.
    bool operator==(const RecordingState& other) const;

private:
    explicit RecordingState(Value value) : m_value(std::move(value)) {}
    Value m_value;
};
