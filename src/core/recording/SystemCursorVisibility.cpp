#include "core/recording/SystemCursorVisibility.h"

#include "core/recording/surfaces/CursorHider.h"
#include "core/support/Log.h"

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
