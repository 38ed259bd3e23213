#include "platform/wayland/PipeWireBufferLender.h"

#include "media/FFmpegHandles.h"

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/frame.h>
}

#include <spa/buffer/buffer.h>
#include <sys/mman.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace {

// Frames out at once, beyond which pictures are copied: the kept picture and a frame or two on
// their way to the writer. The producer keeps enough buffers to fill whatever the writer holds
// on to (GStreamer's producer stalls with only two).
constexpr int maxLent = 3;
constexpr int buffersKeptForProducer = 4;
constexpr auto returnTimeout = std::chrono::milliseconds(250);

// A shared-memory file as we map it ourselves: PipeWire unmaps its own mapping when the buffer
// is removed, while a frame that shows it may still be on its way to the writer.
class SharedMapping {
public:
    SharedMapping(int fd, size_t size) : m_size(size) {
        void* address = mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
        if (address != MAP_FAILED)
            m_address = static_cast<const uint8_t*>(address);
    }
    ~SharedMapping() {
        if (m_address)
            munmap(const_cast<uint8_t*>(m_address), m_size);
    }
    SharedMapping(const SharedMapping&) = delete;
    SharedMapping& operator=(const SharedMapping&) = delete;
    const uint8_t* data() const { return m_address; }
    size_t size() const { return m_size; }

private:
    size_t m_size;
    const uint8_t* m_address = nullptr;
};

} // namespace

struct PipeWireBufferLender::Slot {
    pw_buffer* buffer = nullptr;
    uint64_t id = 0;
    // Our own mapping of a shared-memory file; absent for memory PipeWire maps itself.
    std::shared_ptr<const SharedMapping> mapping;
};

// Written by whichever thread releases a lent frame; read on the capture thread.
struct PipeWireBufferLender::Shared {
    std::mutex mutex;
    std::condition_variable signal;                        // a frame came back
    std::vector<std::pair<pw_buffer*, uint64_t>> returned; // guarded by mutex
    std::vector<uint64_t> out;                             // ids lent; guarded by mutex
    std::unique_ptr<Remains> remains;                      // set once, at the end
};

// What a lent frame holds.
struct PipeWireBufferLender::Lease {
    std::shared_ptr<Shared> shared;
    std::shared_ptr<const SharedMapping> mapping;
    pw_buffer* buffer = nullptr;
    uint64_t id = 0;
};

PipeWireBufferLender::PipeWireBufferLender() : m_shared(std::make_shared<Shared>()) {}

PipeWireBufferLender::~PipeWireBufferLender() = default;

void PipeWireBufferLender::addBuffer(pw_buffer* buffer) {
    auto slot = std::make_unique<Slot>();
    slot->buffer = buffer;
    slot->id = m_nextID++;
    const spa_data& plane = buffer->buffer->datas[0];
    if (buffer->buffer->n_datas >= 1 && plane.type == SPA_DATA_MemFd && plane.fd >= 0) {
        auto mapping =
            std::make_shared<SharedMapping>(int(plane.fd), size_t(plane.mapoffset + plane.maxsize));
        if (mapping->data())
            slot->mapping = std::move(mapping);
    }
    m_slots.push_back(std::move(slot));
}

const PipeWireBufferLender::Slot* PipeWireBufferLender::slotOf(const pw_buffer* buffer) const {
    const auto found = std::find_if(m_slots.begin(), m_slots.end(),
                                    [&](const auto& slot) { return slot->buffer == buffer; });
    return found == m_slots.end() ? nullptr : found->get();
}

bool PipeWireBufferLender::isLent(const pw_buffer* buffer) const {
    const Slot* slot = slotOf(buffer);
    if (!slot)
        return false;
    std::lock_guard lock(m_shared->mutex);
    return std::find(m_shared->out.begin(), m_shared->out.end(), slot->id) != m_shared->out.end();
}

void PipeWireBufferLender::removeBuffer(pw_buffer* buffer) {
    if (const Slot* slot = slotOf(buffer)) {
        std::unique_lock lock(m_shared->mutex);
        m_shared->signal.wait_for(lock, returnTimeout, [&] {
            return std::find(m_shared->out.begin(), m_shared->out.end(), slot->id) ==
                   m_shared->out.end();
        });
    }
    std::erase_if(m_slots, [&](const auto& slot) { return slot->buffer == buffer; });
}

VideoFrame PipeWireBufferLender::lend(pw_buffer* buffer, int width, int height, int stride,
                                      bool hasAlpha) {
    const Slot* slot = slotOf(buffer);
    if (!slot || buffer->buffer->n_datas < 1 || stride % 4 != 0 || stride < width * 4)
        return {};
    const spa_data& plane = buffer->buffer->datas[0];
    if (!slot->mapping && !(plane.type == SPA_DATA_MemPtr && plane.data))
        return {};
    const int lendable = std::min(maxLent, int(m_slots.size()) - buffersKeptForProducer);
    {
        std::lock_guard lock(m_shared->mutex);
        if (int(m_shared->out.size()) >= lendable)
            return {};
    }
    // Our mapping starts at the file's start; PipeWire's at the data's.
    const size_t offset =
        (slot->mapping ? size_t(plane.mapoffset) : 0) + size_t(plane.chunk->offset);
    const size_t size = size_t(stride) * size_t(height);
    const size_t available = slot->mapping ? slot->mapping->size() : size_t(plane.maxsize);
    if (offset + size > available)
        return {};
    const uint8_t* memory =
        slot->mapping ? slot->mapping->data() : static_cast<const uint8_t*>(plane.data);
    AVFramePtr frame(av_frame_alloc());
    if (!frame)
        return {};
    auto* lease = new Lease{m_shared, slot->mapping, buffer, slot->id};
    // Runs on whichever thread drops the frame's last copy: the buffer goes back through the
    // capture thread, which alone may queue it.
    frame->buf[0] = av_buffer_create(
        const_cast<uint8_t*>(memory + offset), size,
        [](void* opaque, uint8_t*) {
            auto* returned = static_cast<Lease*>(opaque);
            {
                std::lock_guard lock(returned->shared->mutex);
                returned->shared->returned.emplace_back(returned->buffer, returned->id);
                std::erase(returned->shared->out, returned->id);
            }
            returned->shared->signal.notify_all();
            delete returned; // the last frame of an ended stream takes its remains along
        },
        lease, AV_BUFFER_FLAG_READONLY);
    if (!frame->buf[0]) {
        delete lease;
        return {};
    }
    {
        std::lock_guard lock(m_shared->mutex);
        m_shared->out.push_back(slot->id);
    }
    frame->data[0] = frame->buf[0]->data;
    frame->linesize[0] = stride;
    frame->width = width;
    frame->height = height;
    // BGRx leaves the fourth byte to the producer: such a picture counts as opaque.
    frame->format = hasAlpha ? AV_PIX_FMT_BGRA : AV_PIX_FMT_BGR0;
    ++m_lentCount;
    return VideoFrame::adopt(frame.release(), MediaTime::invalid(), MediaTime::invalid());
}

std::vector<pw_buffer*> PipeWireBufferLender::takeReturned() {
    std::vector<std::pair<pw_buffer*, uint64_t>> returned;
    {
        std::lock_guard lock(m_shared->mutex);
        returned.swap(m_shared->returned);
    }
    std::vector<pw_buffer*> live;
    for (const auto& [buffer, id] : returned) {
        // A buffer removed since it was lent is gone; another may have its address.
        const Slot* slot = slotOf(buffer);
        if (slot && slot->id == id)
            live.push_back(buffer);
    }
    return live;
}

void PipeWireBufferLender::keepUntilReturned(std::unique_ptr<Remains> remains) {
    m_slots.clear();
    {
        std::lock_guard lock(m_shared->mutex);
        if (!m_shared->out.empty()) {
            m_shared->remains = std::move(remains);
            return;
        }
    }
    remains.reset(); // nothing out: everything goes now, the stream first
}
