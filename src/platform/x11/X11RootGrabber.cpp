#include "platform/x11/X11RootGrabber.h"

#include "media/FFmpegHandles.h"

#include "media/IdleBufferTrim.h"

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <vector>

// Shared memory segments of one frame each, lent out as frame buffers. A buffer comes back to
// the free list when the last reference to its frame goes, on whichever thread that is; the
// memory stays mapped until both the grabber and every frame have let go. Segments idle through
// a whole window are given back (IdleBufferTrim); their places stay empty until needed again.
struct X11RootGrabber::FrameSegments {
    explicit FrameSegments(std::chrono::milliseconds idleWindow) : trim(idleWindow) {}

    std::mutex mutex;
    std::vector<SharedMemoryMapping> memory; // empty where a segment was given back
    std::vector<int> free;                   // most recently returned last, so few stay warm
    size_t size = 0;
    IdleBufferTrim trim;

    // A free segment's index, or -1.
    int takeFree() {
        std::lock_guard lock(mutex);
        int index = -1;
        if (!free.empty()) {
            index = free.back();
            free.pop_back();
        }
        trim.noteTaken(free.size());
        return index;
    }
    void giveBack(int index) {
        std::lock_guard lock(mutex);
        free.push_back(index);
    }
    uint8_t* address(int index) {
        std::lock_guard lock(mutex);
        return memory[size_t(index)].get();
    }
    int add(SharedMemoryMapping segment) {
        std::lock_guard lock(mutex);
        const auto hole = std::find(memory.begin(), memory.end(), nullptr);
        if (hole != memory.end()) {
            *hole = std::move(segment);
            return int(hole - memory.begin());
        }
        memory.push_back(std::move(segment));
        return int(memory.size()) - 1;
    }
    // The segments idle for a window, taken off the free list, the longest idle first. The
    // caller detaches the server first and then lets go of the memory (`release`).
    std::vector<int> takeSurplus() {
        std::lock_guard lock(mutex);
        const auto surplus = std::ptrdiff_t(trim.surplus(free.size()));
        std::vector<int> taken(free.begin(), free.begin() + surplus);
        free.erase(free.begin(), free.begin() + surplus);
        return taken;
    }
    void release(int index) {
        std::lock_guard lock(mutex);
        memory[size_t(index)].reset();
    }
};

namespace {

struct LentSegment {
    std::shared_ptr<X11RootGrabber::FrameSegments> owner;
    int index;
};

} // namespace

X11RootGrabber::X11RootGrabber(xcb_connection_t* connection, xcb_window_t root, X11Rect source,
                               std::chrono::milliseconds idleWindow)
    : m_connection(connection), m_root(root), m_source(source), m_idleWindow(idleWindow) {
    // TAVELQUISTON_NO_SHM forces the fallback, for tests of the path remote servers take.
    if (!std::getenv("TAVELQUISTON_NO_SHM"))
        attachSharedMemory();
}

X11RootGrabber::~X11RootGrabber() {
    // The server stops writing before the detachments are sent in one go; frames still held
    // downstream keep their memory.
    m_frameAttachments.clear();
    m_shared.reset();
    xcb_flush(m_connection);
}

std::optional<X11RootGrabber::SharedSegment> X11RootGrabber::attachSegment(size_t size) {
    // Marked for removal when `id` goes, right after the server's answer: the segment goes
    // away when both sides have detached, even if this process dies.
    const SharedMemoryId id(size);
    SharedMemoryMapping memory = id.map();
    if (!memory)
        return std::nullopt;
    const uint32_t xid = xcb_generate_id(m_connection);
    const X11Error error(xcb_request_check(
        m_connection, xcb_shm_attach_checked(m_connection, xid, uint32_t(id.id()), 0)));
    if (error)
        return std::nullopt; // a server on another machine cannot see this memory
    return SharedSegment{std::move(memory), X11ShmSegment(m_connection, xid)};
}

VideoFrame X11RootGrabber::grabFrame(MediaTime presentationTime, MediaTime duration) {
    if (!m_shared)
        return {};
    if (!m_frameSegments) {
        m_frameSegments = std::make_shared<FrameSegments>(m_idleWindow);
        m_frameSegments->size = size_t(m_source.width) * size_t(m_source.height) * 4;
    }
    int index = m_frameSegments->takeFree();
    if (index < 0 && frameSegmentCount() < size_t(maxFrameSegments)) {
        if (auto segment = attachSegment(m_frameSegments->size)) {
            index = m_frameSegments->add(std::move(segment->memory));
            if (size_t(index) >= m_frameAttachments.size())
                m_frameAttachments.resize(size_t(index) + 1);
            m_frameAttachments[size_t(index)] = std::move(segment->attachment);
        }
    }
    for (const int surplus : m_frameSegments->takeSurplus()) {
        m_frameAttachments[size_t(surplus)].reset();
        m_frameSegments->release(surplus);
    }
    if (index < 0)
        return {};
    uint8_t* const address = m_frameSegments->address(index);
    auto cookie =
        xcb_shm_get_image(m_connection, m_root, int16_t(m_source.x), int16_t(m_source.y),
                          uint16_t(m_source.width), uint16_t(m_source.height), ~0u,
                          XCB_IMAGE_FORMAT_Z_PIXMAP, m_frameAttachments[size_t(index)].id(), 0);
    xcb_generic_error_t* failure = nullptr;
    const X11Reply<xcb_shm_get_image_reply_t> reply(
        xcb_shm_get_image_reply(m_connection, cookie, &failure));
    noteSharedMemoryError(X11Error(failure).get());
    AVFramePtr frame(reply ? av_frame_alloc() : nullptr);
    auto* lent = frame ? new LentSegment{m_frameSegments, index} : nullptr;
    if (lent) {
        frame->buf[0] = av_buffer_create(
            address, m_frameSegments->size,
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
    frame->data[0] = address;
    frame->linesize[0] = m_source.width * 4;
    frame->width = m_source.width;
    frame->height = m_source.height;
    frame->format = AV_PIX_FMT_BGR0;
    return VideoFrame::adopt(frame.release(), presentationTime, duration);
}

size_t X11RootGrabber::frameSegmentCount() const {
    return size_t(std::count_if(m_frameAttachments.begin(), m_frameAttachments.end(),
                                [](const X11ShmSegment& segment) { return bool(segment); }));
}

bool X11RootGrabber::attachSharedMemory() {
    const xcb_query_extension_reply_t* extension =
        xcb_get_extension_data(m_connection, &xcb_shm_id);
    if (!extension || !extension->present)
        return false;
    m_shmFirstError = extension->first_error;
    m_shared = attachSegment(size_t(m_source.width) * size_t(m_source.height) * 4);
    return m_shared.has_value();
}

bool X11RootGrabber::grab() {
    if (m_shared) {
        auto cookie =
            xcb_shm_get_image(m_connection, m_root, int16_t(m_source.x), int16_t(m_source.y),
                              uint16_t(m_source.width), uint16_t(m_source.height), ~0u,
                              XCB_IMAGE_FORMAT_Z_PIXMAP, m_shared->attachment.id(), 0);
        xcb_generic_error_t* failure = nullptr;
        const X11Reply<xcb_shm_get_image_reply_t> reply(
            xcb_shm_get_image_reply(m_connection, cookie, &failure));
        noteSharedMemoryError(X11Error(failure).get());
        if (!reply)
            return false;
        m_pixels = m_shared->memory.get();
        return true;
    }
    auto cookie = xcb_get_image(m_connection, XCB_IMAGE_FORMAT_Z_PIXMAP, m_root,
                                int16_t(m_source.x), int16_t(m_source.y), uint16_t(m_source.width),
                                uint16_t(m_source.height), ~0u);
    X11Reply<xcb_get_image_reply_t> reply(xcb_get_image_reply(m_connection, cookie, nullptr));
    if (!reply)
        return false;
    if (xcb_get_image_data_length(reply.get()) < m_source.width * m_source.height * 4)
        return false; // not a 32-bit visual
    m_reply = std::move(reply);
    m_pixels = xcb_get_image_data(m_reply.get());
    return true;
}

void X11RootGrabber::noteSharedMemoryError(const xcb_generic_error_t* error) {
    // BadMatch is a source off the screen for now, which passes; BadShmSeg is the server
    // saying the segment is gone, which does not.
    if (error && error->error_code == m_shmFirstError + XCB_SHM_BAD_SEG)
        m_sharedMemoryLost = true;
}
