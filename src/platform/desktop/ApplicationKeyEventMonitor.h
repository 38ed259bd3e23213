#pragma once

#include "core/support/KeyboardShortcutHandler.h"

#include <QObject>

// Sees every key press the application receives, before its widgets do, and lets the shortcut
// handler swallow the ones it handles. Presses in other programs are never seen. Thread: main.
class ApplicationKeyEventMonitor final : public QObject, public KeyEventMonitor {
    Q_OBJECT
public:
    explicit ApplicationKeyEventMonitor(Callback callback);
    ~ApplicationKeyEventMonitor() override;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    Callback m_callback;
};
