#pragma once

#include <QMetaObject>

class CursorHider;

// Hides the system pointer while a drawn cursor replaces it, and makes sure it comes back:
// on stop, on error, on quit and when this object goes away. Thread: main.
class SystemCursorVisibility {
public:
    explicit SystemCursorVisibility(CursorHider& hider) : m_hider(hider) {}
    ~SystemCursorVisibility();
    SystemCursorVisibility(const SystemCursorVisibility&) = delete;
    SystemCursorVisibility& operator=(const SystemCursorVisibility&) = delete;

    // The two cursor overlay settings that decide whether the pointer is hidden.
    bool overlayEnabled = true;
    bool hideSystemCursor = false;

    void hideCursorIfEnabled();
    void showCursor();
    void ensureCursorRestored() { showCursor(); }
    // Restores the pointer when the application quits, for as long as this object lives.
    void setupTerminationHandler();
    bool isCursorHidden() const { return m_isCursorHidden; }

private:
    CursorHider& m_hider;
    bool m_isCursorHidden = false;
    QMetaObject::Connection m_quitConnection;
};
