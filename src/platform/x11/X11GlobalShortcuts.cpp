#include "platform/x11/X11GlobalShortcuts.h"

#include "core/support/Log.h"

#include <QKeySequence>
#include <QSocketNotifier>

namespace {
// Lock keys change the reported modifiers; a shortcut must work with Caps Lock or Num Lock on,
// so each grab is made for every combination of them.
constexpr uint16_t capsLock = XCB_MOD_MASK_LOCK;
constexpr uint16_t numLock = XCB_MOD_MASK_2;
constexpr uint16_t lockMasks[] = {0, capsLock, numLock, capsLock | numLock};
constexpr uint16_t relevantModifiers =
    XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 | XCB_MOD_MASK_4;
} // namespace

X11GlobalShortcuts::X11GlobalShortcuts() {
    m_notifier = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(m_x.get()),
                                                   QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &X11GlobalShortcuts::readEvents);
}

X11GlobalShortcuts::~X11GlobalShortcuts() {
    unbindAll();
}

std::optional<X11GlobalShortcuts::Key> X11GlobalShortcuts::parse(const QString& text) {
    const QKeySequence sequence = QKeySequence::fromString(text, QKeySequence::PortableText);
    if (sequence.count() != 1)
        return std::nullopt;
    const QKeyCombination combination = sequence[0];
    Key key;
    const Qt::KeyboardModifiers modifiers = combination.keyboardModifiers();
    if (modifiers & Qt::ShiftModifier)
        key.modifiers |= shift;
    if (modifiers & Qt::ControlModifier)
        key.modifiers |= control;
    if (modifiers & Qt::AltModifier)
        key.modifiers |= alt;
    if (modifiers & Qt::MetaModifier)
        key.modifiers |= super;
    const int code = combination.key();
    if (code >= Qt::Key_A && code <= Qt::Key_Z)
        key.keysym = uint32_t('a' + (code - Qt::Key_A));
    else if (code >= Qt::Key_0 && code <= Qt::Key_9)
        key.keysym = uint32_t('0' + (code - Qt::Key_0));
    else if (code >= Qt::Key_F1 && code <= Qt::Key_F12)
        key.keysym = uint32_t(0xffbe + (code - Qt::Key_F1));
    else
        return std::nullopt;
    // A global key without a modifier would take the key from every program.
    if (key.modifiers == 0 && (key.keysym < 0xffbe))
        return std::nullopt;
    return key;
}

std::optional<uint8_t> X11GlobalShortcuts::keycodeFor(uint32_t keysym) const {
    const xcb_setup_t* setup = xcb_get_setup(m_x.get());
    const uint8_t first = setup->min_keycode;
    const int count = setup->max_keycode - first + 1;
    const X11Reply<xcb_get_keyboard_mapping_reply_t> mapping(xcb_get_keyboard_mapping_reply(
        m_x.get(), xcb_get_keyboard_mapping(m_x.get(), first, uint8_t(count)), nullptr));
    if (!mapping)
        return std::nullopt;
    const xcb_keysym_t* syms = xcb_get_keyboard_mapping_keysyms(mapping.get());
    const int perCode = mapping->keysyms_per_keycode;
    for (int i = 0; i < count; ++i)
        for (int j = 0; j < perCode; ++j)
            if (syms[i * perCode + j] == keysym)
                return uint8_t(first + i);
    return std::nullopt;
}

void X11GlobalShortcuts::grab(uint8_t keycode, uint16_t modifiers, bool on, bool* refused) {
    for (uint16_t locks : lockMasks) {
        const xcb_void_cookie_t cookie =
            on ? xcb_grab_key_checked(m_x.get(), 1, m_x.root(), uint16_t(modifiers | locks),
                                      keycode, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC)
               : xcb_ungrab_key_checked(m_x.get(), keycode, m_x.root(),
                                        uint16_t(modifiers | locks));
        const X11Error error(xcb_request_check(m_x.get(), cookie));
        if (error && refused)
            *refused = true;
    }
}

bool X11GlobalShortcuts::bind(Key key, std::function<void()> action) {
    const std::optional<uint8_t> keycode = keycodeFor(key.keysym);
    if (!keycode)
        return false;
    bool refused = false;
    grab(*keycode, key.modifiers, true, &refused);
    if (refused) {
        grab(*keycode, key.modifiers, false, nullptr);
        logLine("⚠️ Global shortcut is taken by another program (keysym 0x{:x})", key.keysym);
        return false;
    }
    m_actions[{*keycode, key.modifiers}] = std::move(action);
    return true;
}

void X11GlobalShortcuts::unbindAll() {
    for (const auto& [key, action] : m_actions)
        grab(key.first, key.second, false, nullptr);
    m_actions.clear();
    xcb_flush(m_x.get());
}

void X11GlobalShortcuts::readEvents() {
    while (X11Event event{xcb_poll_for_event(m_x.get())}) {
        if ((event->response_type & 0x7f) != XCB_KEY_PRESS)
            continue;
        const auto* press = reinterpret_cast<const xcb_key_press_event_t*>(event.get());
        const auto found =
            m_actions.find({press->detail, uint16_t(press->state & relevantModifiers)});
        if (found != m_actions.end())
            found->second();
    }
}
