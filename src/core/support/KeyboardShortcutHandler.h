#pragma once

#include <QString>
#include <Qt>

#include <functional>
#include <map>
#include <memory>

// A source of the application's key presses (an event filter on the application in the app);
// the handler installs it while it monitors. Thread: main.
class KeyEventMonitor {
public:
    // Returns true when the event was consumed and must go no further.
    using Callback = std::function<bool(Qt::KeyboardModifiers modifiers, int key)>;
    virtual ~KeyEventMonitor() = default;
};

// The recording's keyboard shortcuts, active only while the application has focus. On this
// platform Ctrl+Shift takes the place of Command+Shift. Thread: main.
class KeyboardShortcutHandler {
public:
    enum class ShortcutKey {
        toggleMagnifier,
        startRecording,
        stopRecording,
        pauseResume,
        saveFrame
    };
    using MonitorFactory =
        std::function<std::unique_ptr<KeyEventMonitor>(KeyEventMonitor::Callback)>;

    static KeyboardShortcutHandler& shared();

    // How monitors are made; the app installs its own, without one monitoring does nothing.
    void setMonitorFactory(MonitorFactory factory) { m_monitorFactory = std::move(factory); }

    void startMonitoring();
    void stopMonitoring();
    bool isMonitoring() const { return m_eventMonitor != nullptr; }
    void registerHandler(ShortcutKey key, std::function<void()> handler);
    void unregisterHandler(ShortcutKey key);

    // Calls the handler of a Ctrl+Shift shortcut and returns true (the event is swallowed);
    // anything else returns false and passes on.
    bool handleKeyEvent(Qt::KeyboardModifiers modifiers, int key);

    static QString rawValue(ShortcutKey key);

private:
    MonitorFactory m_monitorFactory;
    std::unique_ptr<KeyEventMonitor> m_eventMonitor;
    std::map<ShortcutKey, std::function<void()>> m_handlers;
};
