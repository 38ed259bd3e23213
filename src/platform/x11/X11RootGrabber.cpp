#include "platform/x11/X11RootGrabber.h"

#include <xcb/shm.h>

#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstdlib>
#include <mutex>
#include <optional>
#include <vector>

#include "media/FFmpegHandles.h"

// Shared memory segments of one frame each, lent out as frame buffers. A buffer comes back to
// the free list when the last reference to its frame goes, on whichever thread that is; the
// memory stays mapped until both the grabber and every frame have let go.
struct X11RootGrabber::FrameSegments {
    std::mutex mutex;
    std::vector<SharedSegment> segments;
    std::vector<int> free; // most recently returned last, so few buffers stay warm
    size_t size = 0;

    ~FrameSegments() {
        for (const SharedSegment& segment : segments)
            shmdt(segment.address);
    }
    // A free segment's index, or -1.
    int takeFree() {
        std::lock_guard lock(mutex);
        if (free.empty())
            return -1;
        const int index = free.back();
        free.pop_back();
        return index;
    }
    void giveBack(int index) {
        std::lock_guard lock(mutex);
        free.push_back(index);
    }
    SharedSegment at(int index) {
        std::lock_guard lock(mutex);
        return segments[size_t(index)];
    }
    int count() {
        std::lock_guard lock(mutex);
        return int(segments.size());
    }
    int add(SharedSegment segment) {
        std::lock_guard lock(mutex);
        segments.push_back(segment);
        return int(segments.size()) - 1;
    }
};

namespace {

struct LentSegment {
    std::shared_ptr<X11RootGrabber::FrameSegments> owner;
    int index;
};

} // namespace

X11RootGrabber::X11RootGrabber(xcb_connection_t* connection, xcb_window_t root, X11Rect source)
    : m_connection(connection), m_root(root), m_source(source) {
    // TAVELQUISTON_NO_SHM forces the fallback, for tests of the path remote servers take.
    if (!std::getenv("TAVELQUISTON_NO_SHM"))
        attachSharedMemory();
}

X11RootGrabber::~X11RootGrabber() {
    if (m_frameSegments) {
        // The server stops writing; frames still held downstream keep their memory.
        std::lock_guard lock(m_frameSegments->mutex);
        for (const auto& segment : m_frameSegments->segments)
            xcb_shm_detach(m_connection, segment.xid);
    }
    if (m_shmAddress) {
        xcb_shm_detach(m_connection, m_segment);
        shmdt(m_shmAddress);
    }
    xcb_flush(m_connection);
    std::free(m_reply);
}

std::optional<X11RootGrabber::SharedSegment> X11RootGrabber::attachSegment(size_t size) {
    const int id = shmget(IPC_PRIVATE, size, IPC_CREAT | 0600);
    if (id < 0)
        return std::nullopt;
    void* address = shmat(id, nullptr, 0);
    if (address == reinterpret_cast<void*>(-1)) {
        shmctl(id, IPC_RMID, nullptr);
        return std::nullopt;
    }
    const uint32_t xid = xcb_generate_id(m_connection);
    xcb_generic_error_t* error =
        xcb_request_check(m_connection, xcb_shm_attach_checked(m_connection, xid, uint32_t(id), 0));
    // Marked for removal now: the segment goes away when both sides have detached, even if
    // this process dies.
    shmctl(id, IPC_RMID, nullptr);
    if (error) {
        // A server on another machine cannot see this memory.
        std::free(error);
        shmdt(address);
        return std::nullopt;
    }
    return SharedSegment{static_cast<uint8_t*>(address), xid};
}

VideoFrame X11RootGrabber::grabFrame(MediaTime presentationTime, MediaTime duration) {
    if (!m_shmAddress)
        return {};
    if (!m_frameSegments) {
        m_frameSegments = std::make_shared<FrameSegments>();
        m_frameSegments->size = size_t(m_source.width) * size_t(m_source.height) * 4;
    }
    int index = m_frameSegments->takeFree();
    if (index < 0 && m_frameSegments->count() < maxFrameSegments) {
        if (const auto segment = attachSegment(m_frameSegments->size))
            index = m_frameSegments->add(*segment);
    }
    if (index < 0)
        return {};
    const SharedSegment segment = m_frameSegments->at(index);
    auto cookie = xcb_shm_get_image(m_connection, m_root, int16_t(m_source.x), int16_t(m_source.y),
                                    uint16_t(m_source.width), uint16_t(m_source.height), ~0u,
                                    XCB_IMAGE_FORMAT_Z_PIXMAP, segment.xid, 0);
    xcb_shm_get_image_reply_t* reply = xcb_shm_get_image_reply(m_connection, cookie, nullptr);
    AVFramePtr frame(reply ? av_frame_alloc() : nullptr);
    std::free(reply);
    auto* lent = frame ? new LentSegment{m_frameSegments, index} : nullptr;
    if (lent) {
        frame->buf[0] = av_buffer_create(
            segment.address, m_frameSegments->size,
            [](void* opaque, uint8_t*) {
                auto* returned = static_cast<LentSegment*>(opaque);
                returned->owner->giveBack(returned->index);
                delete returned;
            },
            lent, 0);
    }
    if (!frame || !frame->buf[0]) {
        delete lent;
        m_frameSegments->giveBack(index);
        return {};
    }
    frame->data[0] = segment.address;
    frame->linesize[0] = m_source.width * 4;
    frame->width = m_source.width;
    frame->height = m_source.height;
    frame->format = AV_PIX_FMT_BGR0;
    return VideoFrame::adopt(frame.release(), presentationTime, duration);
}

bool X11RootGrabber::attachSharedMemory() {
    const xcb_query_extension_reply_t* extension =
        xcb_get_extension_data(m_connection, &xcb_shm_id);
    if (!extension || !extension->present)
        return false;
    const auto segment = attachSegment(size_t(m_source.width) * size_t(m_source.height) * 4);
    if (!segment)
        return false;
    m_shmAddress = segment->address;
    m_segment = segment->xid;
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
