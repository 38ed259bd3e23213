#pragma once

#include "core/recording/surfaces/StatusBarController.h"

#include <QObject>
#include <QPointer>

class QAction;
class QMenu;
class QSystemTrayIcon;

// The recording's controls in the desktop's tray, where the desktop has one: the title
// "⏺ 00:12" (shown as the icon's tooltip), a menu with "Stop Recording" and "Pause Recording" or
// "Resume Recording". Between recordings the icon offers the main window and Quit. Without a
// tray it keeps its state for whoever asks and shows nothing. Thread: main.
class TrayStatusBar final : public QObject, public StatusBarController {
    Q_OBJECT
public:
    explicit TrayStatusBar(QObject* parent = nullptr);
    ~TrayStatusBar() override;

    // StatusBarController
    void showRecordingControls(RecordingCoordinator& coordinator) override;
    void hideRecordingControls() override;
    void updateDuration(const QString& formattedDuration) override;
    void updatePauseState(bool paused) override;

    bool hasTrayIcon() const { return m_statusItem != nullptr; }
    // Whether the icon stays in the tray between recordings ("showInMenuBar"); while recording
    // it is always there.
    void setShownWhenIdle(bool shown);
    bool isRecording() const { return m_isRecording; }
    bool isPaused() const { return m_isPaused; }
    const QString& recordingDuration() const { return m_recordingDuration; }
    QString title() const;
    // The controls, also where there is no tray to show them in.
    QMenu* menu() const { return m_menu; }

    void handleStop();
    void handlePauseResume();

signals:
    void showMainWindowRequested();
    void quitRequested();

private:
    void createStatusItem();
    void removeStatusItem();
    void updateStatusItemView();
    void rebuildMenu();

    QSystemTrayIcon* m_statusItem = nullptr;
    QMenu* m_menu = nullptr;
    QPointer<RecordingCoordinator> m_recordingCoordinator;
    bool m_isRecording = false;
    bool m_isPaused = false;
    bool m_shownWhenIdle = true;
    QString m_recordingDuration = QStringLiteral("00:00");
};
