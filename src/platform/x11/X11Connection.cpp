#include "platform/x11/X11Connection.h"

#include "core/model/RecordingError.h"

#include <cstdlib>

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
    xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(m_connection, cookie, nullptr);
    if (!reply)
        return XCB_ATOM_NONE;
    const xcb_atom_t result = reply->atom;
    std::free(reply);
    return result;
}

std::string X11Connection::property(xcb_window_t window, xcb_atom_t property, xcb_atom_t type,
                                    uint32_t maxLength) const {
    auto cookie = xcb_get_property(m_connection, 0, window, property, type, 0, maxLength / 4);
    xcb_get_property_reply_t* reply = xcb_get_property_reply(m_connection, cookie, nullptr);
    if (!reply)
        return {};
    std::string bytes(static_cast<const char*>(xcb_get_property_value(reply)),
                      size_t(xcb_get_property_value_length(reply)));
    std::free(reply);
    return bytes;
}
