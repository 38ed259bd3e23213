#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>

#include <memory>

class FloatingCameraHeadController;
class TrimmerWindow;
class DesktopResultOpener;
class DeviceRecordingController;
class FloatingRecordingPanel;
class InstanceControlService;
class MainWindow;
class RecordingCoordinator;
class RecordingEngineFactory;
class RecordingLauncher;
class SettingsWindow;
class TrayStatusBar;
class UserDefaults;
class X11GlobalShortcuts;

// Everything that lives as long as the application: the engines' factory, the one recording
// coordinator and its surfaces (tray, panel), the main window, the instance's D-Bus control and
// the desktop services. Thread: main.
class ApplicationShell final : public QObject {
    Q_OBJECT
public:
    // `sinceStart` runs from the top of main, for the start-to-window figure.
    ApplicationShell(const QStringList& arguments, QElapsedTimer sinceStart = {});
    ~ApplicationShell() override;

    MainWindow* mainWindow() const { return m_window.get(); }
    // The camera bubble; null unless the camera is switched on ("recordCamera").
    FloatingCameraHeadController* cameraHead() const { return m_cameraHead.get(); }
    bool hasTrayIcon() const;
    RecordingCoordinator& coordinator() const { return *m_coordinator; }
    RecordingLauncher& launcher() const { return *m_launcher; }
    DeviceRecordingController& deviceRecorder() const { return *m_deviceRecorder; }
    FloatingRecordingPanel& panel() const { return *m_panel; }
    TrayStatusBar& statusBar() const { return *m_statusBar; }

    void showMainWindow();
    void showSettings();

    // Whether this process can show windows at all: an X11 or Wayland display, or Qt's
    // offscreen platform. Checked before the application object exists.
    static bool displayAvailable();
    // The global keys when none are set in "shortcutToggleRecording" / "shortcutPauseRecording".
    static QString defaultToggleShortcut();
    static QString defaultPauseShortcut();

private:
    void requestScreenRecordingPermissionIfNeeded(const QStringList& arguments);
    void showCameraHeadIfEnabled();
    void connectInstanceControl();
    void installGlobalShortcuts();
    void publishState();
    void reportWindowShown();

    UserDefaults& m_defaults;
    std::unique_ptr<RecordingEngineFactory> m_engines;
    std::unique_ptr<DesktopResultOpener> m_resultOpener;
    FloatingRecordingPanel* m_panel = nullptr; // children of this
    TrayStatusBar* m_statusBar = nullptr;
    RecordingCoordinator* m_coordinator = nullptr;
    RecordingLauncher* m_launcher = nullptr;
    DeviceRecordingController* m_deviceRecorder = nullptr;
    InstanceControlService* m_control = nullptr;
    std::unique_ptr<MainWindow> m_window;
    std::unique_ptr<FloatingCameraHeadController> m_cameraHead;
    QPointer<SettingsWindow> m_settings;
    std::unique_ptr<X11GlobalShortcuts> m_shortcuts;
    QElapsedTimer m_sinceStart;
    bool m_restoreWindowAfterRecording = false;
    QPointer<TrimmerWindow> m_lastTrimmer; // closes and deletes itself
};
