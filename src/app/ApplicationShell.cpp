#include "app/ApplicationShell.h"

#include "app/MainWindow.h"
#include "app/MessageBoxAlertPresenter.h"
#include "app/StartupRecovery.h"
#include "app/camera/FloatingCameraHeadController.h"
#include "core/model/Constants.h"
#include "core/model/RecordingError.h"
#include "core/settings/RecordingConfigurationBuilder.h"
#include "core/settings/UserDefaults.h"
#include "core/support/ErrorReporter.h"
#include "core/support/KeyboardShortcutHandler.h"
#include "core/support/Log.h"
#include "core/support/ScreenRecordingPermission.h"
#include "platform/desktop/DesktopServices.h"

#include <QApplication>
#include <QDesktopServices>
#include <QMenu>
#include <QPainter>
#include <QSystemTrayIcon>
#include <QUrl>

#include <QCoro/QCoroTask>

namespace {
// A red recording dot: the program's tray icon, drawn so no image file has to be installed.
QIcon recordIcon() {
    QPixmap pixmap(64, 64);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(220, 40, 40));
    painter.drawEllipse(QRectF(8, 8, 48, 48));
    return QIcon(pixmap);
}

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
} // namespace

bool ApplicationShell::displayAvailable() {
    return !qEnvironmentVariableIsEmpty("DISPLAY") ||
           !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") ||
           qgetenv("QT_QPA_PLATFORM") == "offscreen";
}

ApplicationShell::ApplicationShell(const QStringList& arguments)
    : m_window(std::make_unique<MainWindow>()) {
    installDesktopServices();
    ErrorReporter::shared().setAlertPresenter(std::make_unique<MessageBoxAlertPresenter>());
    ScreenRecordingPermission::setSettingsOpener(
        [](const QString& url) { QDesktopServices::openUrl(QUrl(url)); });
    KeyboardShortcutHandler::shared().startMonitoring();

    createTrayIcon();
    m_window->show();
    showCameraHeadIfEnabled();
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

ApplicationShell::~ApplicationShell() {
    m_cameraHead.reset();
    KeyboardShortcutHandler::shared().stopMonitoring();
    ErrorReporter::shared().setAlertPresenter(nullptr);
}

void ApplicationShell::requestScreenRecordingPermissionIfNeeded(const QStringList& arguments) {
    if (arguments.contains(QStringLiteral("--request-screen-recording-permission")))
        QCoro::connect(requestPermission(), this, [] {});
}

void ApplicationShell::createTrayIcon() {
    // Without a tray program the desktop has nowhere to put an icon; the window is enough then.
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        return;
    m_tray = new QSystemTrayIcon(recordIcon(), this);
    auto* menu = new QMenu(m_window.get());
    menu->addAction(tr("Show tavelquiston"), m_window.get(), [this] {
        m_window->show();
        m_window->raise();
        m_window->activateWindow();
    });
    menu->addSeparator();
    menu->addAction(tr("Quit"), qApp, &QApplication::quit);
    m_tray->setContextMenu(menu);
    m_tray->setToolTip(QStringLiteral("tavelquiston"));
    m_tray->show();
}
