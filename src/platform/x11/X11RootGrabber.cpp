#include "platform/x11/X11RootGrabber.h"

#include <xcb/shm.h>

#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstdlib>

X11RootGrabber::X11RootGrabber(xcb_connection_t* connection, xcb_window_t root, X11Rect source)
    : m_connection(connection), m_root(root), m_source(source) {
    // TAVELQUISTON_NO_SHM forces the fallback, for tests of the path remote servers take.
    if (!std::getenv("TAVELQUISTON_NO_SHM"))
        attachSharedMemory();
}

X11RootGrabber::~X11RootGrabber() {
    if (m_shmAddress) {
        xcb_shm_detach(m_connection, m_segment);
        xcb_flush(m_connection);
        shmdt(m_shmAddress);
    }
    std::free(m_reply);
}

bool X11RootGrabber::attachSharedMemory() {
    const xcb_query_extension_reply_t* extension =
        xcb_get_extension_data(m_connection, &xcb_shm_id);
    if (!extension || !extension->present)
        return false;
    const size_t size = size_t(m_source.width) * size_t(m_source.height) * 4;
    m_shmID = shmget(IPC_PRIVATE, size, IPC_CREAT | 0600);
    if (m_shmID < 0)
        return false;
    void* address = shmat(m_shmID, nullptr, 0);
    if (address == reinterpret_cast<void*>(-1)) {
        shmctl(m_shmID, IPC_RMID, nullptr);
        return false;
    }
    m_segment = xcb_generate_id(m_connection);
    xcb_generic_error_t* error = xcb_request_check(
        m_connection, xcb_shm_attach_checked(m_connection, m_segment, uint32_t(m_shmID), 0));
    // Marked for removal now: the segment goes away when both sides have detached, even if
    // this process dies.
    shmctl(m_shmID, IPC_RMID, nullptr);
    if (error) {
        // A server on another machine cannot see this memory.
        std::free(error);
        shmdt(address);
        return false;
    }
    m_shmAddress = static_cast<uint8_t*>(address);
    return true;
}

bool X11RootGrabber::grab() {
    if (m_shmAddress) {
        auto cookie =
            xcb_shm_get_image(m_connection, m_root, int16_t(m_source.x), int16_t(m_source.y),
                              uint16_t(m_source.width), uint16_t(m_source.height), ~0u,
                              XCB_IMAGE_FORMAT_Z_PIXMAP, m_segment, 0);
        xcb_shm_get_image_reply_t* reply = xcb_shm_get_image_reply(m_connection, cookie, nullptr);
        if (!reply)
            return false;
        std::free(reply);
        m_pixels = m_shmAddress;
        return true;
    }
    auto cookie = xcb_get_image(m_connection, XCB_IMAGE_FORMAT_Z_PIXMAP, m_root,
                                int16_t(m_source.x), int16_t(m_source.y), uint16_t(m_source.width),
                                uint16_t(m_source.height), ~0u);
    xcb_get_image_reply_t* reply = xcb_get_image_reply(m_connection, cookie, nullptr);
    if (!reply)
        return false;
    if (xcb_get_image_data_length(reply) < m_source.width * m_source.height * 4) {
        std::free(reply);
        return false; // not a 32-bit visual
    }
    std::free(m_reply);
    m_reply = reply;
    m_pixels = xcb_get_image_data(reply);
    return true;
}
