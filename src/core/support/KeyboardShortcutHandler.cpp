#include "core/support/KeyboardShortcutHandler.h"

#include <optional>

namespace {
std::optional<KeyboardShortcutHandler::ShortcutKey> shortcutFor(int key) {
    using Key = KeyboardShortcutHandler::ShortcutKey;
    switch (key) {
    case Qt::Key_M:
        return Key::toggleMagnifier;
    case Qt::Key_S:
        return Key::stopRecording;
    case Qt::Key_P:
        return Key::pauseResume;
    case Qt::Key_F:
        return Key::saveFrame;
    default:
        return std::nullopt; // startRecording has no key
    }
}
} // namespace

KeyboardShortcutHandler& KeyboardShortcutHandler::shared() {
    static KeyboardShortcutHandler handler;
    return handler;
}

void KeyboardShortcutHandler::startMonitoring() {
    if (m_eventMonitor || !m_monitorFactory)
        return;
    m_eventMonitor = m_monitorFactory([this](Qt::KeyboardModifiers modifiers, int key) {
        return handleKeyEvent(modifiers, key);
    });
}

void KeyboardShortcutHandler::stopMonitoring() {
    m_eventMonitor.reset();
}

void KeyboardShortcutHandler::registerHandler(ShortcutKey key, std::function<void()> handler) {
    m_handlers[key] = std::move(handler);
}

void KeyboardShortcutHandler::unregisterHandler(ShortcutKey key) {
    m_handlers.erase(key);
}

bool KeyboardShortcutHandler::handleKeyEvent(Qt::KeyboardModifiers modifiers, int key) {
    const Qt::KeyboardModifiers required = Qt::ControlModifier | Qt::ShiftModifier;
    if ((modifiers & required) != required)
        return false;
    const auto shortcut = shortcutFor(key);
    if (!shortcut)
        return false;
    auto it = m_handlers.find(*shortcut);
    if (it == m_handlers.end() || !it->second)
        return false;
    // Copy first: the handler may unregister itself.
    auto handler = it->second;
    handler();
    return true;
}

QString KeyboardShortcutHandler::rawValue(ShortcutKey key) {
    switch (key) {
    case ShortcutKey::toggleMagnifier:
        return QStringLiteral("toggleMagnifier");
    case ShortcutKey::startRecording:
        return QStringLiteral("startRecording");
    case ShortcutKey::stopRecording:
        return QStringLiteral("stopRecording");
    case ShortcutKey::pauseResume:
        return QStringLiteral("pauseResume");
    case ShortcutKey::saveFrame:
        return QStringLiteral("saveFrame");
    }
    return {};
}
