#pragma once

#include <QObject>

#include <memory>

class FloatingCameraHeadController;
class MainWindow;
class QSystemTrayIcon;

// Everything that lives as long as the application: the main window, the tray icon when the
// desktop has a tray, and the desktop services. Thread: main.
class ApplicationShell final : public QObject {
    Q_OBJECT
public:
    explicit ApplicationShell(const QStringList& arguments);
    ~ApplicationShell() override;

    MainWindow* mainWindow() const { return m_window.get(); }
    bool hasTrayIcon() const { return m_tray != nullptr; }
    // The camera bubble; null unless the camera is switched on ("recordCamera").
    FloatingCameraHeadController* cameraHead() const { return m_cameraHead.get(); }

    // Whether this process can show windows at all: an X11 or Wayland display, or Qt's
    // offscreen platform. Checked before the application object exists.
    static bool displayAvailable();

private:
    void requestScreenRecordingPermissionIfNeeded(const QStringList& arguments);
    void createTrayIcon();
    void showCameraHeadIfEnabled();

    std::unique_ptr<MainWindow> m_window;
    QSystemTrayIcon* m_tray = nullptr; // child of this
    std::unique_ptr<FloatingCameraHeadController> m_cameraHead;
};
