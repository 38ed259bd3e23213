#include "platform/x11/X11CursorMonitor.h"

#include "core/support/Log.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Coordinates.h"
#include "platform/x11/X11MagnifierSource.h"

#include <QGuiApplication>
#include <QSocketNotifier>
#include <QStyleHints>
#include <QTimer>
#include <QWindow>

#include <xcb/xfixes.h>
#include <xcb/xinput.h>

#include <chrono>
#include <cstdlib>

namespace {

template <typename T>
using Reply = std::unique_ptr<T, decltype(&std::free)>;

template <typename T>
Reply<T> reply(T* raw) {
    return Reply<T>(raw, &std::free);
}

double monotonicSeconds() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

// The desktop's double-click rules when a GUI runs; the common X defaults otherwise.
ClickClassifier::DoubleClickRules desktopDoubleClickRules() {
    ClickClassifier::DoubleClickRules rules;
    if (qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
        rules.interval = QGuiApplication::styleHints()->mouseDoubleClickInterval() / 1000.0;
        rules.distance = QGuiApplication::styleHints()->mouseDoubleClickDistance();
    }
    return rules;
}

ClickClassifier::Button buttonOf(uint32_t detail) {
    switch (detail) {
    case 1:
        return ClickClassifier::Button::left;
    case 3:
        return ClickClassifier::Button::right;
    default:
        return ClickClassifier::Button::other;
    }
}

// Buttons 4 to 7 are the wheel's steps; they neither click nor move anything.
bool isScroll(uint32_t detail) {
    return detail >= 4 && detail <= 7;
}

const char* boolText(bool value) {
    return value ? "true" : "false";
}

} // namespace

X11CursorMonitor::X11CursorMonitor() : m_classifier(desktopDoubleClickRules()) {}

X11CursorMonitor::~X11CursorMonitor() {
    stopMonitoring();
}

void X11CursorMonitor::configureCustomCursor(std::optional<CursorStyle> style, double size,
                                             bool enabled, bool scaleAnimation, bool rippleEffect,
                                             std::optional<CodableColor> rippleColor) {
    const bool wasCustom = m_useCustomCursor;
    m_customCursorStyle = style;
    m_customCursorSize = size;
    m_useCustomCursor = enabled;
    m_enableScaleAnimation = scaleAnimation;
    m_enableRippleEffect = rippleEffect;
    if (rippleColor)
        m_rippleColor = *rippleColor;
    if (wasCustom && !enabled)
        setSystemCursorHidden(false);
    else if (!wasCustom && enabled && m_notifier)
        setSystemCursorHidden(true);
    if (m_overlays)
        m_overlays->setLook(pointerLook());
}

void X11CursorMonitor::setHighlightEnabled(bool enabled) {
    m_highlightEnabled = enabled;
    if (m_overlays)
        m_overlays->setLook(pointerLook());
}

PointerLook X11CursorMonitor::pointerLook() const {
    PointerLook look;
    look.highlight = m_highlightEnabled;
    if (m_useCustomCursor)
        look.customStyle = m_customCursorStyle;
    look.customSize = m_customCursorSize;
    look.scaleAnimation = m_enableScaleAnimation;
    return look;
}

void X11CursorMonitor::setHideOverlays(bool hide) {
    m_hideMousePointer = hide;
    m_hideMagnifier = hide;
    if (hide && m_overlays)
        m_overlays->hidePointer();
    refreshMagnifier();
}

void X11CursorMonitor::setMagnifierEnabled(bool enabled) {
    m_magnifierEnabled = enabled;
    refreshMagnifier();
}

bool X11CursorMonitor::ensureOverlays() {
    if (m_overlays)
        return true;
    if (!CursorOverlayWindows::isAvailable())
        return false;
    m_overlays = std::make_unique<CursorOverlayWindows>();
    m_overlays->setLook(pointerLook());
    reportCompositing();
    return true;
}

void X11CursorMonitor::refreshMagnifier() {
    const bool wanted = m_magnifierEnabled && !m_hideMagnifier && !m_magnifierStopped;
    if (!wanted) {
        m_magnifierTimer.reset();
        m_magnifierSource.reset();
        m_magnifierConnection.reset();
        if (m_overlays)
            m_overlays->hideMagnifier();
        return;
    }
    if (m_magnifierTimer || !ensureOverlays())
        return;
    try {
        m_magnifierConnection = std::make_unique<X11Connection>();
    } catch (const std::exception& error) {
        logLine("❌ CursorOverlayController: No X server for the magnifier: {}", error.what());
        return;
    }
    // Every window of this program is left out of what the magnifier shows, itself first.
    m_magnifierSource =
        std::make_unique<X11MagnifierSource>(*m_magnifierConnection, [](xcb_window_t window) {
            for (QWindow* own : QGuiApplication::allWindows())
                if (own->handle() && own->winId() == window)
                    return true;
            return false;
        });
    if (!m_magnifierSource->isAvailable()) {
        if (!m_reportedMagnifierFailure)
            logLine("⚠️ CursorOverlayController: The X server has no Composite extension; the "
                    "magnifier cannot see under itself and stays hidden");
        m_reportedMagnifierFailure = true;
        m_magnifierSource.reset();
        m_magnifierConnection.reset();
        return;
    }
    reportCompositing();
    m_magnifierTimer = std::make_unique<QTimer>();
    m_magnifierTimer->setTimerType(Qt::PreciseTimer);
    m_magnifierTimer->setInterval(16);
    QObject::connect(m_magnifierTimer.get(), &QTimer::timeout, [this] { updateMagnifier(); });
    m_magnifierTimer->start();
    updateMagnifier();
}

void X11CursorMonitor::updateMagnifier() {
    xcb_connection_t* c = m_magnifierConnection->get();
    X11Reply<xcb_query_pointer_reply_t> pointer(
        xcb_query_pointer_reply(c, xcb_query_pointer(c, m_magnifierConnection->root()), nullptr));
    if (!pointer) {
        // The server went away: the round ends here, once.
        logLine("❌ CursorOverlayController: Lost the X server; the magnifier stops (error {})",
                xcb_connection_has_error(c));
        m_magnifierTimer->stop();
        m_overlays->hideMagnifier();
        return;
    }
    const int w = CursorOverlayWindows::magnifierCropWidth;
    const int h = CursorOverlayWindows::magnifierCropHeight;
    const std::optional<QImage> crop =
        m_magnifierSource->read(X11Rect{pointer->root_x - w / 2, pointer->root_y - h / 2, w, h});
    if (!crop)
        return;
    m_overlays->showMagnifier(pointer->root_x, pointer->root_y, *crop);
}

void X11CursorMonitor::updateOverlays(const PointerState& pointer) {
    const bool wanted = !m_hideMousePointer && (m_highlightEnabled || m_useCustomCursor);
    if (!wanted) {
        if (m_overlays)
            m_overlays->hidePointer();
        return;
    }
    if (!ensureOverlays())
        return;
    m_overlays->movePointer(pointer.rootX, pointer.rootY);
}

void X11CursorMonitor::reportCompositing() {
    // The magnifier may run without the monitor.
    const X11Connection* connection =
        m_connection ? m_connection.get() : m_magnifierConnection.get();
    if (m_reportedCompositing || !connection)
        return;
    m_reportedCompositing = true;
    xcb_connection_t* c = connection->get();
    const xcb_atom_t selection = connection->atom("_NET_WM_CM_S0");
    auto owner =
        reply(xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, selection), nullptr));
    if (!owner || owner->owner == XCB_WINDOW_NONE)
        logLine("⚠️ CursorOverlayController: No compositing manager; overlays are cut to their "
                "shapes instead of blended");
}

void X11CursorMonitor::setSystemCursorHidden(bool hidden) {
    if (!m_connection || hidden == m_systemCursorHidden)
        return;
    xcb_connection_t* c = m_connection->get();
    // The server hides the cursor only for clients that said which XFixes they speak.
    auto version =
        reply(xcb_xfixes_query_version_reply(c, xcb_xfixes_query_version(c, 4, 0), nullptr));
    if (!version)
        return;
    if (hidden)
        xcb_xfixes_hide_cursor(c, m_connection->root());
    else
        xcb_xfixes_show_cursor(c, m_connection->root());
    xcb_flush(c);
    m_systemCursorHidden = hidden;
}

void X11CursorMonitor::startMonitoring() {
    if (m_notifier) {
        logLine("⚠️ CursorOverlayController: Already monitoring");
        return;
    }
    logLine("🎯 CursorOverlayController: Starting mouse event monitoring...");
    logLine("   Click threshold: {}s", formatDouble(m_classifier.clickThreshold()));
    logLine("   Click handler set: {}", boolText(bool(m_clickHandler)));
    try {
        m_connection = std::make_unique<X11Connection>();
    } catch (const std::exception& error) {
        logLine("❌ CursorOverlayController: No X server for the pointer monitor: {}", error.what());
        return;
    }
    if (!selectRawEvents()) {
        m_connection.reset();
        return;
    }
    m_reportedConnectionLoss = false;
    m_notifier = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(m_connection->get()),
                                                   QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, m_notifier.get(),
                     [this] { readEvents(); });
    logLine("✅ CursorOverlayController: Mouse monitoring started");
    m_magnifierStopped = false;
    refreshMagnifier();
    if (m_useCustomCursor)
        setSystemCursorHidden(true);
    m_lastReported.reset();
    if (m_highlightEnabled || m_useCustomCursor) {
        m_overlayPoll = std::make_unique<QTimer>();
        m_overlayPoll->setInterval(16);
        QObject::connect(m_overlayPoll.get(), &QTimer::timeout, [this] { reportMove(); });
        m_overlayPoll->start();
    }
    // The overlay shows at once, not at the first move.
    if (const std::optional<PointerState> pointer = queryPointer(false))
        updateOverlays(*pointer);
    // Whatever was queued while selecting is read now, not at the next event.
    readEvents();
}

bool X11CursorMonitor::selectRawEvents() {
    xcb_connection_t* c = m_connection->get();
    const xcb_query_extension_reply_t* extension = xcb_get_extension_data(c, &xcb_input_id);
    if (!extension || !extension->present) {
        logLine("❌ CursorOverlayController: The X server has no XInput extension");
        return false;
    }
    m_inputOpcode = extension->major_opcode;
    // Raw events on the root need XInput 2.1 or later.
    auto version =
        reply(xcb_input_xi_query_version_reply(c, xcb_input_xi_query_version(c, 2, 2), nullptr));
    if (!version || (version->major_version < 2 ||
                     (version->major_version == 2 && version->minor_version < 1))) {
        logLine("❌ CursorOverlayController: The X server's XInput is older than 2.1");
        return false;
    }
    struct {
        xcb_input_event_mask_t head;
        uint32_t mask;
    } mask{};
    mask.head.deviceid = XCB_INPUT_DEVICE_ALL_MASTER;
    mask.head.mask_len = 1;
    mask.mask = XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_MOTION;
    auto error = reply(xcb_request_check(
        c, xcb_input_xi_select_events_checked(c, m_connection->root(), 1, &mask.head)));
    if (error) {
        logLine("❌ CursorOverlayController: Could not select pointer events (X error {})",
                int(error->error_code));
        return false;
    }
    return true;
}

void X11CursorMonitor::stopMonitoring() {
    m_magnifierStopped = true;
    refreshMagnifier();
    if (m_overlays)
        m_overlays->hideAll();
    // Closing the connection would show the cursor too; saying so keeps the state honest.
    setSystemCursorHidden(false);
    m_overlayPoll.reset();
    m_notifier.reset();
    m_connection.reset();
}

void X11CursorMonitor::readEvents() {
    if (!m_connection)
        return;
    xcb_connection_t* c = m_connection->get();
    bool moved = false;
    while (auto event = reply(xcb_poll_for_event(c))) {
        if ((event->response_type & 0x7f) != XCB_GE_GENERIC)
            continue;
        const auto* generic = reinterpret_cast<const xcb_ge_generic_event_t*>(event.get());
        if (generic->extension != m_inputOpcode)
            continue;
        if (generic->event_type == XCB_INPUT_RAW_MOTION) {
            moved = true;
        } else if (generic->event_type == XCB_INPUT_RAW_BUTTON_PRESS) {
            const auto* press =
                reinterpret_cast<const xcb_input_raw_button_press_event_t*>(event.get());
            if (isScroll(press->detail))
                continue;
            // Movement before the press is reported first, as it happened.
            if (moved)
                reportMove();
            moved = false;
            handleButtonPress(press->detail);
        }
    }
    // A burst of motion is one move: only where the pointer is now matters.
    if (moved)
        reportMove();
    if (xcb_connection_has_error(c) && !m_reportedConnectionLoss) {
        m_reportedConnectionLoss = true;
        logLine("❌ CursorOverlayController: Lost the X server; no more clicks are seen");
        m_notifier->setEnabled(false);
    }
}

void X11CursorMonitor::handleButtonPress(uint32_t detail) {
    const std::optional<PointerState> pointer = queryPointer(true);
    if (!pointer || pointer->onOwnWindow)
        return;
    const double now = monotonicSeconds();
    const ClickClassifier::Button button = buttonOf(detail);
    const int count = m_classifier.countPress(button, pointer->location, now);
    const ClickClassifier::Outcome outcome = m_classifier.classify(button, count, now);
    if (!outcome.type)
        return;
    logLine("🖱️ CursorOverlayController: Click detected - Type: {}",
            rawValue(*outcome.type).toStdString());
    if (outcome.filtered) {
        logLine("   ⏭️ Filtered rapid click (threshold: {}s, elapsed: {:.3f}s)",
                formatDouble(m_classifier.clickThreshold()), outcome.elapsed);
        return;
    }
    logLine("   📍 Position: ({}, {})", int(pointer->location.x), int(pointer->location.y));
    if (m_overlays)
        m_overlays->click(pointer->rootX, pointer->rootY, *outcome.type,
                          m_enableRippleEffect ? std::optional(m_rippleColor) : std::nullopt);
    logLine("   🔔 Calling clickHandler...");
    logLine("   clickHandler exists: {}", boolText(bool(m_clickHandler)));
    if (m_clickHandler)
        m_clickHandler(pointer->location, *outcome.type);
    logLine("   ✅ clickHandler called");
}

void X11CursorMonitor::reportMove() {
    const std::optional<PointerState> pointer = queryPointer(false);
    if (!pointer)
        return;
    const std::pair<int, int> at{pointer->rootX, pointer->rootY};
    if (m_lastReported == at)
        return;
    m_lastReported = at;
    updateOverlays(*pointer);
    if (m_moveHandler)
        m_moveHandler(pointer->location);
}

std::optional<X11CursorMonitor::PointerState>
X11CursorMonitor::queryPointer(bool checkOwnWindows) const {
    xcb_connection_t* c = m_connection->get();
    auto root =
        reply(xcb_query_pointer_reply(c, xcb_query_pointer(c, m_connection->root()), nullptr));
    if (!root)
        return std::nullopt;
    PointerState state;
    state.location =
        X11Coordinates::pointToGlobal(root->root_x, root->root_y, m_connection->rootHeight());
    state.rootX = root->root_x;
    state.rootY = root->root_y;
    if (!checkOwnWindows)
        return state;
    // A window manager puts a frame between the root and a client: walk down to the deepest
    // window under the pointer and look for one of ours on the way.
    xcb_window_t window = root->child;
    for (int depth = 0; window != XCB_WINDOW_NONE && depth < 8; ++depth) {
        if (isOwnWindow(window)) {
            state.onOwnWindow = true;
            break;
        }
        auto below = reply(xcb_query_pointer_reply(c, xcb_query_pointer(c, window), nullptr));
        window = below ? below->child : xcb_window_t(XCB_WINDOW_NONE);
    }
    return state;
}

bool X11CursorMonitor::isOwnWindow(xcb_window_t window) const {
    if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        return false;
    // The overlays take no input; a click through them belongs to what lies below.
    for (QWindow* own : QGuiApplication::allWindows())
        if (own->handle() && own->isVisible() &&
            !own->flags().testFlag(Qt::WindowTransparentForInput) && own->winId() == window)
            return true;
    return false;
}

std::optional<Point> X11CursorMonitor::mouseLocation() const {
    if (!m_connection)
        return std::nullopt;
    const std::optional<PointerState> pointer = queryPointer(false);
    // Waiting for the reply reads whatever events were on the socket into xcb's queue, where
    // the socket notifier no longer sees them: they are handled right after this call.
    if (m_notifier)
        QMetaObject::invokeMethod(
            m_notifier.get(), [this] { const_cast<X11CursorMonitor*>(this)->readEvents(); },
            Qt::QueuedConnection);
    if (pointer)
        return pointer->location;
    return std::nullopt;
}
