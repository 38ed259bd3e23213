#include "platform/desktop/ApplicationKeyEventMonitor.h"

#include <QCoreApplication>
#include <QKeyEvent>

ApplicationKeyEventMonitor::ApplicationKeyEventMonitor(Callback callback)
    : m_callback(std::move(callback)) {
    QCoreApplication::instance()->installEventFilter(this);
}

ApplicationKeyEventMonitor::~ApplicationKeyEventMonitor() {
    if (QCoreApplication::instance())
        QCoreApplication::instance()->removeEventFilter(this);
}

bool ApplicationKeyEventMonitor::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::KeyPress) {
        const auto* key = static_cast<QKeyEvent*>(event);
        if (m_callback(key->modifiers(), key->key()))
            return true;
    }
    return QObject::eventFilter(watched, event);
}
