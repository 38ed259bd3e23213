#include "platform/x11/X11Connection.h"

#include "core/model/RecordingError.h"
#include "platform/x11/X11Handles.h"

#include <cstring>

X11Connection::X11Connection() {
    int screenNumber = 0;
    m_connection = xcb_connect(nullptr, &screenNumber);
    if (xcb_connection_has_error(m_connection)) {
        xcb_disconnect(m_connection);
        m_connection = nullptr;
        throw RecordingError::captureDeviceUnavailable();
    }
    xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(m_connection));
    for (int i = 0; i < screenNumber && it.rem; ++i)
        xcb_screen_next(&it);
    m_screen = it.data;
    if (!m_screen) {
        xcb_disconnect(m_connection);
        m_connection = nullptr;
        throw RecordingError::captureDeviceUnavailable();
    }
}

X11Connection::~X11Connection() {
    if (m_connection)
        xcb_disconnect(m_connection);
}

xcb_atom_t X11Connection::atom(std::string_view name) const {
    auto cookie = xcb_intern_atom(m_connection, 0, uint16_t(name.size()), name.data());
    const X11Reply<xcb_intern_atom_reply_t> reply(
        xcb_intern_atom_reply(m_connection, cookie, nullptr));
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

std::string X11Connection::property(xcb_window_t window, xcb_atom_t property, xcb_atom_t type,
                                    uint32_t maxLength) const {
    auto cookie = xcb_get_property(m_connection, 0, window, property, type, 0, maxLength / 4);
    const X11Reply<xcb_get_property_reply_t> reply(
        xcb_get_property_reply(m_connection, cookie, nullptr));
    if (!reply)
        return {};
    return std::string(static_cast<const char*>(xcb_get_property_value(reply.get())),
                       size_t(xcb_get_property_value_length(reply.get())));
}

std::vector<xcb_window_t> X11Connection::rootWindowList(xcb_atom_t listProperty) const {
    const std::string bytes = property(root(), listProperty, XCB_ATOM_WINDOW, 1 << 20);
    std::vector<xcb_window_t> windows(bytes.size() / sizeof(xcb_window_t));
    std::memcpy(windows.data(), bytes.data(), windows.size() * sizeof(xcb_window_t));
    return windows;
}

X11Reply<xcb_get_image_reply_t> X11Connection::wallpaper(const X11Rect& area) const {
    const std::string id = property(root(), atom("_XROOTPMAP_ID"), XCB_ATOM_PIXMAP);
    xcb_pixmap_t pixmap = 0;
    if (id.size() >= sizeof pixmap)
        std::memcpy(&pixmap, id.data(), sizeof pixmap);
    if (!pixmap)
        return nullptr;
    X11Reply<xcb_get_image_reply_t> image(xcb_get_image_reply(
        m_connection,
        xcb_get_image(m_connection, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap, int16_t(area.x),
                      int16_t(area.y), uint16_t(area.width), uint16_t(area.height), ~0u),
        nullptr));
    if (image && xcb_get_image_data_length(image.get()) < area.width * area.height * 4)
        image.reset();
    return image;
}
