#include "core/recording/SystemCursorVisibility.h"

#include "core/recording/surfaces/CursorHider.h"
#include "core/support/Log.h"

#include <QCoreApplication>

SystemCursorVisibility::~SystemCursorVisibility() {
    QObject::disconnect(m_quitConnection);
    ensureCursorRestored();
}

void SystemCursorVisibility::hideCursorIfEnabled() {
    if (!overlayEnabled || !hideSystemCursor || m_isCursorHidden)
        return;
    m_hider.hideCursor();
    m_isCursorHidden = true;
    logLine("🖱️ System cursor hidden for custom cursor overlay");
}

void SystemCursorVisibility::showCursor() {
    if (!m_isCursorHidden)
        return;
    m_hider.showCursor();
    m_isCursorHidden = false;
    logLine("🖱️ System cursor restored");
}

void SystemCursorVisibility::setupTerminationHandler() {
    // The pointer must never stay hidden past the program.
    if (auto* app = QCoreApplication::instance())
        m_quitConnection = QObject::connect(app, &QCoreApplication::aboutToQuit,
                                            [this] { ensureCursorRestored(); });
}
