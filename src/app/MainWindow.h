#pragma once

#include "app/CardWindow.h"

#include "core/model/RecordingMode.h"

#include <QPointer>

#include <QCoro/QCoroTask>

class DeviceRecordingController;
class QButtonGroup;
class QLabel;
class QPushButton;
class QToolButton;
class RecordingCoordinator;
class RecordingEngineFactory;
class RecordingLauncher;
class UserDefaults;

// The program's main window, where a recording is chosen and started: the mode tiles, the
// source chips (camera, microphone, system audio) with their devices, the settings gear and
// the record button, which opens the selector of the chosen mode. Thread: main.
class MainWindow final : public CardWindow {
    Q_OBJECT
public:
    // `device` is the model's iOSDevice: an attached capture device.
    enum class Mode { display, area, window, windows, application, audioOnly, device };

    MainWindow(RecordingCoordinator& coordinator, RecordingLauncher& launcher,
               DeviceRecordingController& deviceRecorder, RecordingEngineFactory& engines,
               UserDefaults& defaults, QWidget* parent = nullptr);
    ~MainWindow() override;

    void setStatusText(const QString& text);
    QString statusText() const;
    Mode mode() const { return m_mode; }
    void setMode(Mode mode);

    // What the record button does: the chosen mode's selector (the device picker for Device),
    // or the recording itself for audio alone.
    void record();
    // The selector window open now, for tests and screenshots.
    QWidget* openSelector() const { return m_selector; }

signals:
    void settingsRequested();
    void closeRequested();
    // The window stepped aside for a recording it started; it comes back afterwards.
    void hiddenForRecording();

protected:
    void closeEvent(QCloseEvent* event) override;
    void moveEvent(QMoveEvent* event) override;

private:
    QWidget* makeHeader();
    QWidget* makeModeTiles();
    QWidget* makeSourceChips();
    QWidget* makeRecordArea();
    QToolButton* makeChip(const char* name, const QString& text, const QString& icon,
                          const char* key, bool fallback);
    void fillDeviceMenu(QToolButton* chip, bool cameras);
    QCoro::Task<void> openSelectorForMode();
    QCoro::Task<void> openDeviceSelector();
    void showSelector(QWidget* selector);
    void restorePosition();

    RecordingCoordinator& m_coordinator;
    RecordingLauncher& m_launcher;
    DeviceRecordingController& m_deviceRecorder;
    RecordingEngineFactory& m_engines;
    UserDefaults& m_defaults;
    Mode m_mode = Mode::display;
    QButtonGroup* m_tiles = nullptr;
    QLabel* m_status = nullptr;
    QPushButton* m_record = nullptr;
    QPointer<QWidget> m_selector;
};
