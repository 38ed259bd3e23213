#pragma once

#include "core/model/RecordingConfiguration.h"
#include "core/settings/RecordingConfigurationBuilder.h"

#include <QObject>
#include <QPointer>

#include <QCoro/QCoroTask>

class FloatingRecordingPanel;
class RecordingCoordinator;
class UserDefaults;

// How every selector starts a recording, and what the outside controls (D-Bus, shortcuts, the
// tray) do: trace, panel in its starting state, preparation, start (the coordinator counts
// down), with one alert when it fails. Thread: main.
class RecordingLauncher final : public QObject {
    Q_OBJECT
public:
    RecordingLauncher(RecordingCoordinator& coordinator, FloatingRecordingPanel& panel,
                      const UserDefaults& defaults, QObject* parent = nullptr);

    // Starts a recording of `mode` with the persisted defaults as `selector` reads them.
    // `source` names where the start came from ("area", "toggle", ...) in the start-up trace.
    QCoro::Task<bool> start(RecordingMode mode, RecordingConfigurationBuilder::Selector selector,
                            const QString& source, int screenAutoStopMinutes = 0);
    QCoro::Task<bool> start(RecordingConfiguration configuration,
                            QString source = QStringLiteral("recordButtonClicked"));

    // Idle: records the primary display with the defaults. Starting: cancels. Recording or
    // paused: stops.
    void toggleRecording();
    void togglePause();
    void stop();

    bool isStarting() const { return m_isStarting; }

signals:
    // A recording has begun (true) or the attempt has ended without one (false).
    void startFinished(bool recording);

private:
    QCoro::Task<void> startPrimaryDisplay();

    QPointer<RecordingCoordinator> m_coordinator;
    FloatingRecordingPanel& m_panel;
    const UserDefaults& m_defaults;
    bool m_isStarting = false;
    bool m_cancelled = false;
};
