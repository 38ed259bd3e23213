#pragma once

#include "core/model/RecordingConfiguration.h"
#include "core/recording/RecordingOutputFinisher.h"

#include <QString>

#include <QCoro/QCoroTask>

#include <functional>
#include <optional>

class CursorSampler;
class RecordingEngines;
class RecordingError;
class RecordingResultOpener;
class RecordingSurfaces;
class RecordingTimers;
class StreamRecovery;
class SystemCursorVisibility;
class SystemEventResponder;
class UserDefaults;

// Brings a recording's running parts to rest and settles what it wrote: finished and handed to
// the person after a stop, kept as "(Recovered)" or discarded after a failure. The coordinator
// keeps the state machine and calls these between its states; this holds the order of the
// steps. Thread: main.
class RecordingShutdown {
public:
    // The coordinator's collaborators; none is owned here and all outlive this object.
    struct Parts {
        RecordingEngines& engines;
        RecordingTimers& timers;
        SystemEventResponder& systemEvents;
        StreamRecovery& recovery;
        CursorSampler& cursorSampler;
        SystemCursorVisibility& cursorVisibility;
        RecordingSurfaces& surfaces;
        RecordingResultOpener& resultOpener;
    };

    explicit RecordingShutdown(Parts parts) : m_parts(parts) {}

    // `isAlive` below is asked after every wait: when it says no, the owner and this object are
    // gone and nothing more is touched.

    // Stops the timers, the pump, the pointer and capture, finishes the writers and saves the
    // metadata. Returns the result's path; `unwrittenURL` names it when nothing was written.
    // Throws what finishing the writers throws.
    QCoro::Task<QString> finish(std::optional<RecordingConfiguration> configuration,
                                double duration, std::function<QString()> unwrittenURL,
                                std::function<bool()> isAlive);
    // Logs the editor decisions about the result finish() returned.
    RecordingOutputFinisher::Result
    describeResult(const QString& url, const std::optional<RecordingConfiguration>& configuration,
                   const UserDefaults& defaults) const;
    // Videos open in the editor, audio in the default application.
    void openResult(const RecordingOutputFinisher::Result& result);

    // After an unrecoverable failure: stops everything a recording runs, hides the surfaces
    // (allowing sleep again when asked), keeps what the writer already wrote in salvagedURL()
    // and discards the rest. Never throws.
    QCoro::Task<void> releaseAfterError(bool allowSleep, std::function<bool()> isAlive);
    // The writer's file (or the layer files) removed, the metadata and click-zoom state dropped.
    void discardOutputs();
    const std::optional<QString>& salvagedURL() const { return m_salvagedURL; }

    // The alerts of a recording that ended on a failure, with where its kept part went.
    void alertStreamInterrupted() const;
    void alertWriterFailed(const RecordingError& error) const;

private:
    QCoro::Task<void> stopMonitoringAndCapture(std::function<bool()> isAlive);

    Parts m_parts;
    std::optional<QString> m_salvagedURL;
};
