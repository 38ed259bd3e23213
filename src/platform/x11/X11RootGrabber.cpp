#include "platform/x11/X11RootGrabber.h"

#include <xcb/shm.h>

#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstdlib>
#include <mutex>
#include <vector>

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/frame.h>
}

// Shared memory segments of one frame each, lent out as frame buffers. A buffer comes back to
// the free list when the last reference to its frame goes, on whichever thread that is; the
// memory stays mapped until both the grabber and every frame have let go.
struct X11RootGrabber::FrameSegments {
    struct Segment {
        uint8_t* address = nullptr;
        uint32_t xid = 0;
    };
    std::mutex mutex;
    std::vector<Segment> segments;
    std::vector<int> free; // most recently returned last, so few buffers stay warm
    size_t size = 0;

    ~FrameSegments() {
        for (const Segment& segment : segments)
            shmdt(segment.address);
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

int X11RootGrabber::addFrameSegment() {
    const int id = shmget(IPC_PRIVATE, m_frameSegments->size, IPC_CREAT | 0600);
    if (id < 0)
        return -1;
    void* address = shmat(id, nullptr, 0);
    if (address == reinterpret_cast<void*>(-1)) {
        shmctl(id, IPC_RMID, nullptr);
        return -1;
    }
    const uint32_t xid = xcb_generate_id(m_connection);
    xcb_generic_error_t* error =
        xcb_request_check(m_connection, xcb_shm_attach_checked(m_connection, xid, uint32_t(id), 0));
    shmctl(id, IPC_RMID, nullptr);
    if (error) {
        std::free(error);
        shmdt(address);
        return -1;
    }
    std::lock_guard lock(m_frameSegments->mutex);
    m_frameSegments->segments.push_back({static_cast<uint8_t*>(address), xid});
    return int(m_frameSegments->segments.size()) - 1;
}

VideoFrame X11RootGrabber::grabFrame(MediaTime presentationTime, MediaTime duration) {
    if (!m_shmAddress)
        return {};
    if (!m_frameSegments) {
        m_frameSegments = std::make_shared<FrameSegments>();
        m_frameSegments->size = size_t(m_source.width) * size_t(m_source.height) * 4;
    }
    int index = -1;
    {
        std::lock_guard lock(m_frameSegments->mutex);
        if (!m_frameSegments->free.empty()) {
            index = m_frameSegments->free.back();
            m_frameSegments->free.pop_back();
        } else if (m_frameSegments->segments.size() >= size_t(maxFrameSegments)) {
            return {};
        }
    }
    if (index < 0 && (index = addFrameSegment()) < 0)
        return {};
    uint8_t* address = nullptr;
    uint32_t xid = 0;
    {
        std::lock_guard lock(m_frameSegments->mutex);
        address = m_frameSegments->segments[size_t(index)].address;
        xid = m_frameSegments->segments[size_t(index)].xid;
    }
    auto giveBack = [this, index] {
        std::lock_guard lock(m_frameSegments->mutex);
        m_frameSegments->free.push_back(index);
    };
    auto cookie = xcb_shm_get_image(m_connection, m_root, int16_t(m_source.x), int16_t(m_source.y),
                                    uint16_t(m_source.width), uint16_t(m_source.height), ~0u,
                                    XCB_IMAGE_FORMAT_Z_PIXMAP, xid, 0);
    xcb_shm_get_image_reply_t* reply = xcb_shm_get_image_reply(m_connection, cookie, nullptr);
    if (!reply) {
        giveBack();
        return {};
    }
    std::free(reply);

    auto* lent = new LentSegment{m_frameSegments, index};
    AVBufferRef* buffer = av_buffer_create(
        address, m_frameSegments->size,
        [](void* opaque, uint8_t*) {
            auto* segment = static_cast<LentSegment*>(opaque);
            {
                std::lock_guard lock(segment->owner->mutex);
                segment->owner->free.push_back(segment->index);
            }
            delete segment;
        },
        lent, 0);
    AVFrame* frame = buffer ? av_frame_alloc() : nullptr;
    if (!frame) {
        if (buffer)
            av_buffer_unref(&buffer); // gives the segment back
        else {
            delete lent;
            giveBack();
        }
        return {};
    }
    frame->buf[0] = buffer;
    frame->data[0] = address;
    frame->linesize[0] = m_source.width * 4;
    frame->width = m_source.width;
    frame->height = m_source.height;
    frame->format = AV_PIX_FMT_BGR0;
    return VideoFrame::adopt(frame, presentationTime, duration);
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
