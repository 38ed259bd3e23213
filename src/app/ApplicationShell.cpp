#include "app/ApplicationShell.h"

#include "app/DesktopResultOpener.h"
#include "app/DeviceRecordingController.h"
#include "app/FloatingRecordingPanel.h"
#include "app/InstanceControl.h"
#include "app/MainWindow.h"
#include "app/MessageBoxAlertPresenter.h"
#include "app/PreviewWindow.h"
#include "app/RecordingLauncher.h"
#include "app/SettingsWindow.h"
#include "app/StartupRecovery.h"
#include "app/TrayStatusBar.h"
#include "app/VideoTrimmerManager.h"
#include "app/camera/FloatingCameraHeadController.h"
#include "app/trimmer/TrimmerWindow.h"
#include "core/model/Constants.h"
#include "core/model/RecordingError.h"
#include "core/recording/RecordingCoordinator.h"
#include "core/recording/RecordingServices.h"
#include "core/recording/engines/RecordingEngineFactory.h"
#include "core/settings/RecordingConfigurationBuilder.h"
#include "core/settings/UserDefaults.h"
#include "core/support/ErrorReporter.h"
#include "core/support/KeyboardShortcutHandler.h"
#include "core/support/Log.h"
#include "core/support/ScreenRecordingPermission.h"
#include "platform/RecordingEngineLoader.h"
#include "platform/desktop/DesktopServices.h"
#include "platform/x11/X11GlobalShortcuts.h"

#include <QApplication>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QTimer>
#include <QUrl>

#include <QCoro/QCoroTask>

namespace {
QCoro::Task<void> requestPermission() {
    try {
        co_await ScreenRecordingPermission::ensureAuthorized(true);
        logLine("✅ Screen Recording permission is authorized");
    } catch (const RecordingError& error) {
        logLine("❌ Screen Recording permission request did not complete: {}",
                error.localizedDescription().toStdString());
    } catch (const std::exception& error) {
        logLine("❌ Screen Recording permission request did not complete: {}", error.what());
    }
}

QString stateName(const RecordingState& state) {
    return state.displayName().toLower().remove(QStringLiteral("..."));
}

std::unique_ptr<RecordingEngineFactory> makeEngines(const UserDefaults& defaults) {
    RecordingEngineLoaderOptions options;
    options.hiddenApps = defaults.stringValue("hiddenApps").value_or(QString()).toUtf8();
    options.backend = captureBackendSetting();
    return makeRecordingEngineFactory(options);
}
} // namespace

bool ApplicationShell::displayAvailable() {
    return !qEnvironmentVariableIsEmpty("DISPLAY") ||
           !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") ||
           qgetenv("QT_QPA_PLATFORM") == "offscreen";
}

ApplicationShell::ApplicationShell(const QStringList& arguments, QElapsedTimer sinceStart)
    : m_defaults(UserDefaults::standard()), m_engines(makeEngines(m_defaults)),
      m_resultOpener(std::make_unique<DesktopResultOpener>()), m_sinceStart(sinceStart) {
    if (!m_sinceStart.isValid())
        m_sinceStart.start();
    installDesktopServices();
    ErrorReporter::shared().setAlertPresenter(std::make_unique<MessageBoxAlertPresenter>());
    // A finished recording opens in its trimmer. Unless the person asked to go straight to
    // trimming, the small preview shows the result on top for a moment, with its ways on.
    m_resultOpener->setTrimmerOpener([this](const QString& path) {
        m_lastTrimmer = VideoTrimmerManager::shared().openTrimmer(path);
        if (m_lastTrimmer && m_defaults.boolValue("showPreview", true) &&
            !m_defaults.trimAfterRecord()) {
            auto* preview = new PreviewWindow(path);
            preview->show();
            preview->raise();
        }
    });
    ScreenRecordingPermission::setSettingsOpener(
        [](const QString& url) { QDesktopServices::openUrl(QUrl(url)); });

    m_panel = new FloatingRecordingPanel(this);
    m_statusBar = new TrayStatusBar(this);
    RecordingServices services;
    services.engines = m_engines.get();
    services.defaults = &m_defaults;
    services.statusBar = m_statusBar;
    services.panel = m_panel;
    services.resultOpener = m_resultOpener.get();
    m_coordinator = new RecordingCoordinator(std::move(services), this);
    m_launcher = new RecordingLauncher(*m_coordinator, *m_panel, m_defaults, this);
    m_deviceRecorder =
        new DeviceRecordingController(*m_coordinator, *m_resultOpener, m_defaults, this);
    KeyboardShortcutHandler::shared().startMonitoring();

    m_window = std::make_unique<MainWindow>(*m_coordinator, *m_launcher, *m_deviceRecorder,
                                            *m_engines, m_defaults);
    connect(m_window.get(), &MainWindow::settingsRequested, this, &ApplicationShell::showSettings);
    connect(m_window.get(), &MainWindow::hiddenForRecording, this,
            [this] { m_restoreWindowAfterRecording = true; });
    connect(m_window.get(), &MainWindow::closeRequested, this, [this] {
        // With a tray icon or a recording running there is still a way back; otherwise closing
        // the only window ends the program, as a person expects.
        if ((hasTrayIcon() && m_defaults.boolValue("showInMenuBar", false)) ||
            !m_coordinator->recordingState().is<RecordingState::Idle>())
            m_window->hide();
        else
            QApplication::quit();
    });
    connect(m_statusBar, &TrayStatusBar::showMainWindowRequested, this,
            &ApplicationShell::showMainWindow);
    connect(m_statusBar, &TrayStatusBar::quitRequested, qApp, &QApplication::quit);
    connect(m_coordinator, &RecordingCoordinator::recordingStateChanged, this,
            &ApplicationShell::publishState);
    connectInstanceControl();
    installGlobalShortcuts();

    // "showInMenuBar" keeps the tray icon between recordings; "showInDock" (the window at start)
    // can be turned off only where the tray offers the way back.
    m_statusBar->setShownWhenIdle(m_defaults.boolValue("showInMenuBar", false) ||
                                  !m_defaults.boolValue("showInDock", true));
    if (m_defaults.boolValue("showInDock", true) || !hasTrayIcon())
        m_window->show();
    showCameraHeadIfEnabled();
    reportWindowShown();
    // What a killed or crashed run left in the output folder is saved before anything else.
    QCoro::connect(
        recoverUnfinishedRecordings(RecordingConfigurationBuilder::resolveOutputDirectory(
            m_defaults.stringValue("outputDirectory", {}))),
        this, [](const QStringList&) {});
    // The first recording should not pay for building the panel or listing the desktop.
    QTimer::singleShot(0, this, [this] {
        m_panel->prewarmPanel();
        m_coordinator->prewarmShareableContent();
    });
    requestScreenRecordingPermissionIfNeeded(arguments);
    // What a killed or crashed run left in the output folder is saved before anything else.
    QCoro::connect(
        recoverUnfinishedRecordings(RecordingConfigurationBuilder::resolveOutputDirectory(
            UserDefaults::standard().stringValue("outputDirectory", {}))),
        this, [](const QStringList&) {});
}

void ApplicationShell::showCameraHeadIfEnabled() {
    // Before a recording the camera shows as a bubble above the window, when it is on.
    UserDefaults& defaults = UserDefaults::standard();
    if (!defaults.boolValue(Constants::UserDefaultsKey::recordCamera, false))
        return;
    m_cameraHead = std::make_unique<FloatingCameraHeadController>(defaults);
    m_cameraHead->show(
        defaults.stringValue(Constants::UserDefaultsKey::cameraDevice, QStringLiteral("default")),
        m_window.get());
}

QString ApplicationShell::defaultToggleShortcut() {
    return QStringLiteral("Ctrl+Alt+R");
}

QString ApplicationShell::defaultPauseShortcut() {
    return QStringLiteral("Ctrl+Alt+P");
}

ApplicationShell::~ApplicationShell() {
    m_cameraHead.reset();
    m_shortcuts.reset();
    KeyboardShortcutHandler::shared().stopMonitoring();
    ErrorReporter::shared().setAlertPresenter(nullptr);
    m_window.reset();
    // A device recording still running ends with its preview, before the coordinator that owns
    // its engine.
    delete m_deviceRecorder;
    m_deviceRecorder = nullptr;
    // The coordinator goes before the engines' factory and the surfaces it points at.
    delete m_coordinator;
    m_coordinator = nullptr;
}

bool ApplicationShell::hasTrayIcon() const {
    return m_statusBar->hasTrayIcon();
}

void ApplicationShell::reportWindowShown() {
    // Measured when the window is first drawn, which is when a person sees it.
    QTimer::singleShot(0, this, [this] {
        logLine("🚀 Main window shown {:.1f} ms after start", m_sinceStart.nsecsElapsed() / 1e6);
    });
}

void ApplicationShell::showMainWindow() {
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
}

void ApplicationShell::showSettings() {
    if (!m_settings)
        m_settings = new SettingsWindow(m_defaults, *m_engines);
    m_settings->show();
    m_settings->raise();
    m_settings->activateWindow();
}

void ApplicationShell::connectInstanceControl() {
    m_control = new InstanceControlService(this);
    if (!m_control->registerOnSessionBus())
        logLine("⚠️ tavelquiston cannot be controlled over D-Bus in this session");
    connect(m_control, &InstanceControlService::activateRequested, this,
            &ApplicationShell::showMainWindow);
    connect(m_control, &InstanceControlService::toggleRecordingRequested, m_launcher,
            &RecordingLauncher::toggleRecording);
    connect(m_control, &InstanceControlService::pauseRequested, m_launcher,
            &RecordingLauncher::togglePause);
    connect(m_control, &InstanceControlService::stopRequested, m_launcher,
            &RecordingLauncher::stop);
    connect(m_control, &InstanceControlService::openFileRequested, this,
            [](const QString& path) { VideoTrimmerManager::shared().openTrimmer(path); });
}

void ApplicationShell::installGlobalShortcuts() {
    // Only an X11 desktop lets a program take keys for itself; elsewhere the desktop's own
    // shortcut settings run `tavelquiston --toggle-recording`.
    if (QGuiApplication::platformName() != QLatin1String("xcb"))
        return;
    try {
        m_shortcuts = std::make_unique<X11GlobalShortcuts>();
    } catch (const std::exception& error) {
        logLine("⚠️ Global shortcuts are unavailable: {}", error.what());
        return;
    }
    const auto bindSetting = [this](const char* key, const QString& fallback, auto action) {
        const QString text = m_defaults.stringValue(key, fallback);
        const auto parsed = X11GlobalShortcuts::parse(text);
        if (!parsed) {
            logLine("⚠️ Global shortcut \"{}\" is not a key this desktop can grab",
                    text.toStdString());
            return;
        }
        if (m_shortcuts->bind(*parsed, action))
            logLine("⌨️ Global shortcut {} ready", text.toStdString());
    };
    // A device recording has no coordinator state of its own to toggle: the key stops it.
    bindSetting("shortcutToggleRecording", defaultToggleShortcut(), [this] {
        if (m_deviceRecorder->isRecording())
            m_deviceRecorder->stop();
        else
            m_launcher->toggleRecording();
    });
    bindSetting("shortcutPauseRecording", defaultPauseShortcut(),
                [this] { m_launcher->togglePause(); });
}

void ApplicationShell::publishState() {
    const RecordingState& state = m_coordinator->recordingState();
    m_control->setState(stateName(state));
    m_window->setStatusText(state.displayName());
    // The window would only be in the picture; it comes back when the recording is done.
    if (state.isRecording() && m_window->isVisible()) {
        m_window->hide();
        m_restoreWindowAfterRecording = true;
    } else if ((state.is<RecordingState::Idle>() || state.is<RecordingState::Failed>()) &&
               m_restoreWindowAfterRecording && !m_launcher->isStarting()) {
        m_restoreWindowAfterRecording = false;
        m_window->show();
        // The recording just opened in the trimmer: that is what the person looks at next.
        if (m_lastTrimmer) {
            m_lastTrimmer->raise();
            m_lastTrimmer->activateWindow();
        }
    }
}

void ApplicationShell::requestScreenRecordingPermissionIfNeeded(const QStringList& arguments) {
    if (arguments.contains(QStringLiteral("--request-screen-recording-permission")))
        QCoro::connect(requestPermission(), this, [] {});
}
