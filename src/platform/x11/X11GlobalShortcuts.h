#pragma once

#include "platform/x11/X11Connection.h"

#include <QObject>
#include <QString>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>

class QSocketNotifier;

// Keys that work anywhere on an X11 desktop: each is grabbed on the root window, so its press
// reaches us whichever window has the focus. A key another program holds already is reported
// once and left to it. Thread: main.
class X11GlobalShortcuts final : public QObject {
    Q_OBJECT
public:
    // Modifier bits as X11 names them.
    enum Modifier : uint16_t { shift = 1, control = 4, alt = 8, super = 64 };
    struct Key {
        uint32_t keysym = 0; // X keysym: lower-case letters and digits are their ASCII codes
        uint16_t modifiers = 0;
        auto operator<=>(const Key&) const = default;
    };

    // Throws RecordingError when there is no X server.
    X11GlobalShortcuts();
    ~X11GlobalShortcuts() override;

    // "Ctrl+Alt+R" and the like (letters, digits, F1 to F12); absent for anything else.
    static std::optional<Key> parse(const QString& text);

    // Grabs `key` for `action`, replacing what it did before; false when another program has it.
    bool bind(Key key, std::function<void()> action);
    void unbindAll();

private:
    void readEvents();
    std::optional<uint8_t> keycodeFor(uint32_t keysym) const;
    void grab(uint8_t keycode, uint16_t modifiers, bool on, bool* refused);

    X11Connection m_x;
    std::unique_ptr<QSocketNotifier> m_notifier;
    // By keycode and modifiers as the server reports them.
    std::map<std::pair<uint8_t, uint16_t>, std::function<void()>> m_actions;
};
