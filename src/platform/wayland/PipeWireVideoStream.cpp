#include "platform/wayland/PipeWireVideoStream.h"

#include "core/support/Log.h"
#include "platform/x11/X11FramePixels.h"

#include <libyuv/scale_argb.h>
#include <linux/dma-buf.h>
#include <spa/buffer/meta.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/builder.h>
#include <spa/utils/result.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <stdexcept>

namespace {

// A DMA-BUF is only readable through a mapping when its layout is linear.
constexpr uint64_t linearModifier = 0; // DRM_FORMAT_MOD_LINEAR
constexpr int maxDamageRegions = 16;
constexpr int maxCursorSide = 256;
constexpr size_t cursorMetaSize(int side) {
    return sizeof(spa_meta_cursor) + sizeof(spa_meta_bitmap) + size_t(side) * size_t(side) * 4;
}

// What we accept: BGRx or BGRA at any size and rate, optionally as a linear DMA-BUF.
const spa_pod* buildFormat(spa_pod_builder* b, int frameRate, bool withModifier) {
    spa_pod_frame frame;
    spa_pod_builder_push_object(b, &frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    spa_pod_builder_add(b, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video), 0);
    spa_pod_builder_add(b, SPA_FORMAT_mediaSubtype, SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), 0);
    spa_pod_builder_add(b, SPA_FORMAT_VIDEO_format,
                        SPA_POD_CHOICE_ENUM_Id(3, SPA_VIDEO_FORMAT_BGRx, SPA_VIDEO_FORMAT_BGRx,
                                               SPA_VIDEO_FORMAT_BGRA),
                        0);
    if (withModifier) {
        spa_pod_builder_prop(b, SPA_FORMAT_VIDEO_modifier, SPA_POD_PROP_FLAG_MANDATORY);
        spa_pod_builder_long(b, int64_t(linearModifier));
    }
    const spa_rectangle defaultSize{1920, 1080}, minSize{1, 1}, maxSize{16384, 16384};
    spa_pod_builder_add(b, SPA_FORMAT_VIDEO_size,
                        SPA_POD_CHOICE_RANGE_Rectangle(&defaultSize, &minSize, &maxSize), 0);
    // Screen casts announce 0/1 (variable) with a maximum; test sources a fixed rate.
    const spa_fraction defaultRate{uint32_t(frameRate), 1}, minRate{0, 1}, maxRate{1000, 1};
    spa_pod_builder_add(b, SPA_FORMAT_VIDEO_framerate,
                        SPA_POD_CHOICE_RANGE_Fraction(&defaultRate, &minRate, &maxRate), 0);
    return static_cast<const spa_pod*>(spa_pod_builder_pop(b, &frame));
}

// A mapping of a DMA-BUF for reading, synchronised with the GPU for as long as it lives.
class DmaBufReadMapping {
public:
    DmaBufReadMapping(int fd, size_t size) : m_fd(fd), m_size(size) {
        void* address = mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
        if (address == MAP_FAILED)
            return;
        m_address = static_cast<const uint8_t*>(address);
        dma_buf_sync sync{DMA_BUF_SYNC_START | DMA_BUF_SYNC_READ};
        ioctl(m_fd, DMA_BUF_IOCTL_SYNC, &sync);
    }
    ~DmaBufReadMapping() {
        if (!m_address)
            return;
        dma_buf_sync sync{DMA_BUF_SYNC_END | DMA_BUF_SYNC_READ};
        ioctl(m_fd, DMA_BUF_IOCTL_SYNC, &sync);
        munmap(const_cast<uint8_t*>(m_address), m_size);
    }
    DmaBufReadMapping(const DmaBufReadMapping&) = delete;
    DmaBufReadMapping& operator=(const DmaBufReadMapping&) = delete;
    const uint8_t* data() const { return m_address; }

private:
    int m_fd;
    size_t m_size;
    const uint8_t* m_address = nullptr;
};

const pw_stream_events streamEvents = [] {
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    return events;
}();

} // namespace

void ensurePipeWireInitialised() {
    static std::once_flag once;
    std::call_once(once, [] { pw_init(nullptr, nullptr); });
}

PipeWireVideoStream::PipeWireVideoStream(Options options, FrameHandler onFrame,
                                         ErrorHandler onError)
    : m_options(std::move(options)), m_onFrame(std::move(onFrame)), m_onError(std::move(onError)) {}

PipeWireVideoStream::~PipeWireVideoStream() {
    stop(false);
    if (m_options.remoteFd >= 0)
        close(m_options.remoteFd); // never handed to a context
}

void PipeWireVideoStream::start() {
    ensurePipeWireInitialised();
    m_loop.reset(pw_thread_loop_new("PipeWireCapture", nullptr));
    if (!m_loop)
        throw std::runtime_error("Cannot make a PipeWire thread loop");
    m_context.reset(pw_context_new(pw_thread_loop_get_loop(m_loop.get()), nullptr, 0));
    if (!m_context)
        throw std::runtime_error("Cannot make a PipeWire context");
    if (pw_thread_loop_start(m_loop.get()) < 0)
        throw std::runtime_error("Cannot start the PipeWire thread loop");

    PipeWireLoopLock lock(m_loop.get());
    const int fd = std::exchange(m_options.remoteFd, -1);
    m_core.reset(fd >= 0 ? pw_context_connect_fd(m_context.get(), fd, nullptr, 0)
                         : pw_context_connect(m_context.get(), nullptr, 0));
    if (!m_core)
        throw std::runtime_error("Cannot connect to PipeWire");
    static const pw_core_events coreEvents = [] {
        pw_core_events events{};
        events.version = PW_VERSION_CORE_EVENTS;
        events.error = &PipeWireVideoStream::onCoreError;
        return events;
    }();
    pw_core_add_listener(m_core.get(), &m_coreListener, &coreEvents, this);
    // A producer that leaves only unlinks the stream; its node's removal says it is gone.
    m_registry.reset(pw_core_get_registry(m_core.get(), PW_VERSION_REGISTRY, 0));
    if (m_registry) {
        static const pw_registry_events registryEvents = [] {
            pw_registry_events events{};
            events.version = PW_VERSION_REGISTRY_EVENTS;
            events.global_remove = &PipeWireVideoStream::onGlobalRemoved;
            return events;
        }();
        pw_registry_add_listener(m_registry.get(), &m_registryListener, &registryEvents, this);
    }

    m_stream.reset(
        pw_stream_new(m_core.get(), "tavelquiston screen capture",
                      pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY,
                                        "Capture", PW_KEY_MEDIA_ROLE, "Screen", nullptr)));
    if (!m_stream)
        throw std::runtime_error("Cannot make a PipeWire stream");
    static const pw_stream_events events = [] {
        pw_stream_events e = streamEvents;
        e.state_changed = &PipeWireVideoStream::onStateChanged;
        e.param_changed = &PipeWireVideoStream::onParamChanged;
        e.process = &PipeWireVideoStream::onProcess;
        e.add_buffer = &PipeWireVideoStream::onAddBuffer;
        e.remove_buffer = &PipeWireVideoStream::onRemoveBuffer;
        return e;
    }();
    pw_stream_add_listener(m_stream.get(), &m_streamListener, &events, this);

    uint8_t buffer[2048];
    spa_pod_builder b = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
    const spa_pod* params[2] = {buildFormat(&b, m_options.frameRate, true),
                                buildFormat(&b, m_options.frameRate, false)};
    const int result = pw_stream_connect(
        m_stream.get(), PW_DIRECTION_INPUT, m_options.nodeID,
        pw_stream_flags(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS), params, 2);
    if (result < 0)
        throw std::runtime_error(std::string("Cannot connect the PipeWire stream: ") +
                                 spa_strerror(result));
}

bool PipeWireVideoStream::waitUntil(std::chrono::milliseconds timeout,
                                    const std::function<bool()>& done) {
    if (!m_loop)
        return false;
    PipeWireLoopLock lock(m_loop.get());
    timespec deadline{};
    pw_thread_loop_get_time(m_loop.get(), &deadline, int64_t(timeout.count()) * SPA_NSEC_PER_MSEC);
    while (!done() && !m_failed.load()) {
        if (pw_thread_loop_timed_wait_full(m_loop.get(), &deadline) != 0)
            break;
    }
    return done();
}

std::optional<QSize> PipeWireVideoStream::waitForFormat(std::chrono::milliseconds timeout) {
    if (!waitUntil(timeout, [this] { return m_format.has_value(); }))
        return std::nullopt;
    PipeWireLoopLock lock(m_loop.get());
    return QSize(int(m_format->size.width), int(m_format->size.height));
}

bool PipeWireVideoStream::waitForPicture(std::chrono::milliseconds timeout) {
    return waitUntil(timeout, [this] { return !m_lastPicture.isNull(); });
}

void PipeWireVideoStream::stop(bool closingFrame) {
    if (!m_loop)
        return;
    {
        // With the loop's lock held no callback runs, so the closing frame is handed on from
        // here, in order after every frame before it.
        PipeWireLoopLock lock(m_loop.get());
        m_stopping = true;
        if (closingFrame && m_delivering && m_idleSinceLastFrame && !m_failed.load())
            deliver(m_lastPicture, MediaTime::hostTimeNow());
    }
    // Once the loop has stopped no callback runs, so the objects go without its lock. They no
    // longer call us either: they may outlive this object.
    pw_thread_loop_stop(m_loop.get());
    if (m_stream)
        spa_hook_remove(&m_streamListener);
    if (m_registry)
        spa_hook_remove(&m_registryListener);
    if (m_core)
        spa_hook_remove(&m_coreListener);
    m_lastPicture = VideoFrame();
    m_lastPictureLent = false;
    auto remains = std::make_unique<PipeWireBufferLender::Remains>();
    remains->loop = std::move(m_loop);
    remains->context = std::move(m_context);
    remains->core = std::move(m_core);
    remains->registry = std::move(m_registry);
    remains->stream = std::move(m_stream);
    // Frames still out keep the stream's memory; their buffers have nowhere to go back to.
    m_lender.keepUntilReturned(std::move(remains));
    m_pool.reset();
}

void PipeWireVideoStream::beginDelivery() {
    if (!m_loop)
        return;
    PipeWireLoopLock lock(m_loop.get());
    if (m_delivering)
        return;
    m_delivering = true;
    if (!m_failed.load())
        deliver(m_lastPicture, MediaTime::hostTimeNow());
}

std::optional<QPoint> PipeWireVideoStream::cursorPosition() const {
    if (!m_hasCursorPosition.load())
        return std::nullopt;
    return QPoint(m_cursorX.load(), m_cursorY.load());
}

void PipeWireVideoStream::fail(const QString& description) {
    // Reported once; the stream stays quiet afterwards.
    if (m_failed.exchange(true))
        return;
    if (m_loop)
        pw_thread_loop_signal(m_loop.get(), false);
    if (m_onError)
        m_onError(description);
}

void PipeWireVideoStream::onGlobalRemoved(void* data, uint32_t id) {
    auto* self = static_cast<PipeWireVideoStream*>(data);
    if (id == self->m_options.nodeID && !self->m_stopping)
        self->fail(QStringLiteral("The screen cast stream ended"));
}

void PipeWireVideoStream::onCoreError(void* data, uint32_t id, int, int res, const char* message) {
    auto* self = static_cast<PipeWireVideoStream*>(data);
    if (id != PW_ID_CORE)
        return;
    self->fail(res == -EPIPE
                   ? QStringLiteral("The connection to PipeWire was lost")
                   : QStringLiteral("PipeWire error: %1").arg(QString::fromUtf8(message)));
}

void PipeWireVideoStream::onStateChanged(void* data, pw_stream_state, pw_stream_state state,
                                         const char* error) {
    auto* self = static_cast<PipeWireVideoStream*>(data);
    if (state == PW_STREAM_STATE_ERROR) {
        self->fail(QStringLiteral("The PipeWire stream failed: %1")
                       .arg(QString::fromUtf8(error ? error : "unknown error")));
    } else if (state == PW_STREAM_STATE_STREAMING) {
        self->m_streaming = true;
    } else if (state == PW_STREAM_STATE_UNCONNECTED && self->m_streaming && !self->m_stopping) {
        self->fail(QStringLiteral("The screen cast stream ended"));
    }
}

void PipeWireVideoStream::onParamChanged(void* data, uint32_t id, const spa_pod* param) {
    if (param && id == SPA_PARAM_Format)
        static_cast<PipeWireVideoStream*>(data)->handleFormat(param);
}

void PipeWireVideoStream::handleFormat(const spa_pod* param) {
    uint32_t mediaType = 0, mediaSubtype = 0;
    if (spa_format_parse(param, &mediaType, &mediaSubtype) < 0 ||
        mediaType != SPA_MEDIA_TYPE_video || mediaSubtype != SPA_MEDIA_SUBTYPE_raw)
        return;
    spa_video_info_raw info{};
    if (spa_format_video_raw_parse(param, &info) < 0 || info.size.width == 0 ||
        info.size.height == 0) {
        fail(QStringLiteral("The screen cast offered no usable picture format"));
        return;
    }
    m_dmabuf = spa_pod_find_prop(param, nullptr, SPA_FORMAT_VIDEO_modifier) != nullptr;
    m_format = info;
    const QRect source(0, 0, int(info.size.width), int(info.size.height));
    const QRect crop = m_options.crop ? m_options.crop->intersected(source) : source;
    const QSize output = m_options.outputSize.value_or(crop.size());
    m_pool = std::make_unique<VideoFramePool>(output.width(), output.height());
    m_lastPicture = VideoFrame();
    m_lastPictureLent = false;
    logLine("📺 PipeWire stream: {}x{} {} in {}", info.size.width, info.size.height,
            info.format == SPA_VIDEO_FORMAT_BGRA ? "BGRA" : "BGRx",
            m_dmabuf ? "DMA-BUF" : "shared memory");

    uint8_t buffer[1024];
    spa_pod_builder b = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
    const int dataTypes =
        m_dmabuf ? (1 << SPA_DATA_DmaBuf) : ((1 << SPA_DATA_MemPtr) | (1 << SPA_DATA_MemFd));
    const spa_pod* params[4];
    // Enough buffers that a few can be lent out as frames while the producer fills the others.
    params[0] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &b, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
        SPA_POD_CHOICE_RANGE_Int(8, 2, 16), SPA_PARAM_BUFFERS_dataType,
        SPA_POD_CHOICE_FLAGS_Int(dataTypes)));
    params[1] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &b, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
        SPA_POD_Id(SPA_META_Header), SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_header))));
    params[2] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &b, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
        SPA_POD_Id(SPA_META_VideoDamage), SPA_PARAM_META_size,
        SPA_POD_CHOICE_RANGE_Int(int(sizeof(spa_meta_region) * maxDamageRegions),
                                 int(sizeof(spa_meta_region)),
                                 int(sizeof(spa_meta_region) * maxDamageRegions))));
    params[3] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &b, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
        SPA_POD_Id(SPA_META_Cursor), SPA_PARAM_META_size,
        SPA_POD_CHOICE_RANGE_Int(int(cursorMetaSize(64)), int(cursorMetaSize(1)),
                                 int(cursorMetaSize(maxCursorSide)))));
    pw_stream_update_params(m_stream.get(), params, 4);
    pw_thread_loop_signal(m_loop.get(), false);
}

void PipeWireVideoStream::onProcess(void* data) {
    auto* self = static_cast<PipeWireVideoStream*>(data);
    self->requeueReturned();
    // Only the newest picture matters; older ones waiting go straight back.
    pw_buffer* newest = nullptr;
    while (pw_buffer* next = pw_stream_dequeue_buffer(self->m_stream.get())) {
        if (newest)
            pw_stream_queue_buffer(self->m_stream.get(), newest);
        newest = next;
    }
    if (!newest)
        return;
    const bool lent = !self->m_failed.load() && !self->m_stopping && self->handleBuffer(newest);
    if (!lent)
        pw_stream_queue_buffer(self->m_stream.get(), newest);
    // The picture this one replaced may have been lent.
    self->requeueReturned();
}

void PipeWireVideoStream::onAddBuffer(void* data, pw_buffer* buffer) {
    static_cast<PipeWireVideoStream*>(data)->m_lender.addBuffer(buffer);
}

void PipeWireVideoStream::onRemoveBuffer(void* data, pw_buffer* buffer) {
    auto* self = static_cast<PipeWireVideoStream*>(data);
    // A buffer's memory goes with it (the format changed): our own picture of it is let go.
    if (self->m_lastPictureLent && self->m_lender.isLent(buffer)) {
        self->m_lastPicture = VideoFrame();
        self->m_lastPictureLent = false;
    }
    self->m_lender.removeBuffer(buffer);
}

void PipeWireVideoStream::requeueReturned() {
    for (pw_buffer* buffer : m_lender.takeReturned())
        if (m_stream)
            pw_stream_queue_buffer(m_stream.get(), buffer);
}

VideoFrame PipeWireVideoStream::lendPicture(pw_buffer* buffer, int stride) {
    const int width = int(m_format->size.width);
    const int height = int(m_format->size.height);
    // Only the whole picture at its own size is handed on as it is.
    const bool whole = !m_options.crop || *m_options.crop == QRect(0, 0, width, height);
    if (!whole || !m_pool || m_pool->width() != width || m_pool->height() != height)
        return {};
    return m_lender.lend(buffer, width, height, stride, m_format->format == SPA_VIDEO_FORMAT_BGRA);
}

bool PipeWireVideoStream::readCursor(spa_buffer* buffer) {
    auto* cursor = static_cast<spa_meta_cursor*>(
        spa_buffer_find_meta_data(buffer, SPA_META_Cursor, sizeof(spa_meta_cursor)));
    if (!cursor)
        return false;
    const bool visible = spa_meta_cursor_is_valid(cursor);
    const QPoint position(cursor->position.x, cursor->position.y);
    if (visible) {
        m_cursorX = position.x();
        m_cursorY = position.y();
        m_hasCursorPosition = true;
    }
    bool changed = visible != m_cursorVisible || (visible && position != m_drawnCursorPosition);
    m_cursorVisible = visible;
    m_drawnCursorPosition = position;
    if (!visible || cursor->bitmap_offset < sizeof(spa_meta_cursor))
        return changed; // the same picture as before, somewhere else
    const auto* bitmap = SPA_PTROFF(cursor, cursor->bitmap_offset, const spa_meta_bitmap);
    const bool bgra = bitmap->format == SPA_VIDEO_FORMAT_BGRA;
    const bool rgba = bitmap->format == SPA_VIDEO_FORMAT_RGBA;
    if (!(bgra || rgba) || bitmap->size.width == 0 || bitmap->size.height == 0 ||
        bitmap->size.width > maxCursorSide || bitmap->size.height > maxCursorSide)
        return changed;
    CursorPicture picture;
    picture.hotspot = QPoint(cursor->hotspot.x, cursor->hotspot.y);
    picture.size = QSize(int(bitmap->size.width), int(bitmap->size.height));
    picture.bgra.resize(size_t(picture.size.width()) * size_t(picture.size.height()) * 4);
    const auto* source = SPA_PTROFF(bitmap, bitmap->offset, const uint8_t);
    for (int y = 0; y < picture.size.height(); ++y) {
        const uint8_t* row = source + size_t(y) * size_t(bitmap->stride);
        uint8_t* out = picture.bgra.data() + size_t(y) * size_t(picture.size.width()) * 4;
        for (int x = 0; x < picture.size.width(); ++x) {
            out[x * 4 + 0] = row[x * 4 + (bgra ? 0 : 2)];
            out[x * 4 + 1] = row[x * 4 + 1];
            out[x * 4 + 2] = row[x * 4 + (bgra ? 2 : 0)];
            out[x * 4 + 3] = row[x * 4 + 3];
        }
    }
    m_cursorPicture = std::move(picture);
    return true;
}

VideoFrame PipeWireVideoStream::copyPicture(const uint8_t* pixels, int stride) {
    const QRect source(0, 0, int(m_format->size.width), int(m_format->size.height));
    const QRect crop = m_options.crop ? m_options.crop->intersected(source) : source;
    if (crop.isEmpty() || !m_pool)
        return {};
    VideoFrame frame = m_pool->makeFrame(MediaTime::invalid(), MediaTime::invalid());
    if (frame.isNull())
        return {};
    const uint8_t* origin = pixels + size_t(crop.y()) * size_t(stride) + size_t(crop.x()) * 4;
    uint8_t* out = frame.mutableBytes();
    const int outStride = frame.bytesPerRow();
    const bool opaque = m_format->format != SPA_VIDEO_FORMAT_BGRA;
    const bool sameSize = frame.width() == crop.width() && frame.height() == crop.height();
    if (sameSize && opaque) {
        // BGRx leaves the fourth byte to the producer: one pass copies and makes it opaque.
        X11FramePixels::copyOpaque(origin, stride, crop.width(), crop.height(), out, outStride,
                                   frame.width(), frame.height());
        return frame;
    }
    if (sameSize) {
        for (int y = 0; y < crop.height(); ++y)
            std::memcpy(out + size_t(y) * size_t(outStride), origin + size_t(y) * size_t(stride),
                        size_t(crop.width()) * 4);
        return frame;
    }
    libyuv::ARGBScale(origin, stride, crop.width(), crop.height(), out, outStride, frame.width(),
                      frame.height(), libyuv::kFilterBilinear);
    if (opaque) {
        for (int y = 0; y < frame.height(); ++y) {
            uint8_t* row = out + size_t(y) * size_t(outStride);
            for (int x = 0; x < frame.width(); ++x)
                row[x * 4 + 3] = 0xff;
        }
    }
    return frame;
}

bool PipeWireVideoStream::handleBuffer(pw_buffer* pwBuffer) {
    spa_buffer* buffer = pwBuffer->buffer;
    if (!m_format || buffer->n_datas < 1)
        return false;
    const auto* header = static_cast<const spa_meta_header*>(
        spa_buffer_find_meta_data(buffer, SPA_META_Header, sizeof(spa_meta_header)));
    const bool cursorChanged = readCursor(buffer) && m_options.showsCursor;
    const spa_data& data = buffer->datas[0];
    bool hasPicture = data.chunk && data.chunk->size > 0 &&
                      !(data.chunk->flags & SPA_CHUNK_FLAG_CORRUPTED) &&
                      !(header && (header->flags & SPA_META_HEADER_FLAG_CORRUPTED));
    // Damage metadata without a single region: the producer says nothing changed.
    if (const spa_meta* damage = spa_buffer_find_meta(buffer, SPA_META_VideoDamage)) {
        bool damaged = false;
        spa_meta_region* region;
        spa_meta_for_each(region, damage) {
            if (!spa_meta_region_is_valid(region))
                break;
            damaged = true;
        }
        hasPicture = hasPicture && damaged;
    }
    if (!hasPicture && m_lastPictureLent) {
        // Nothing new for now: the kept picture gives its buffer back, since some producers
        // fill their buffers strictly in turn and would wait for this one.
        m_lastPicture = copyPicture(m_lastPicture.bytes(), m_lastPicture.bytesPerRow());
        m_lastPictureLent = false;
    }
    if (!hasPicture && !(cursorChanged && !m_lastPicture.isNull())) {
        ++m_idle;
        m_idleSinceLastFrame = true;
        return false;
    }
    bool lent = false;
    if (hasPicture) {
        const int stride =
            data.chunk->stride > 0 ? data.chunk->stride : int(m_format->size.width) * 4;
        const size_t needed =
            size_t(data.chunk->offset) + size_t(stride) * size_t(m_format->size.height);
        std::optional<DmaBufReadMapping> mapping;
        const uint8_t* pixels = static_cast<const uint8_t*>(data.data);
        if (!pixels && data.type == SPA_DATA_DmaBuf) {
            mapping.emplace(int(data.fd), size_t(data.mapoffset) + size_t(data.maxsize));
            pixels = mapping->data() ? mapping->data() + data.mapoffset : nullptr;
        }
        if (!pixels || needed > data.maxsize) {
            ++m_idle; // a buffer we cannot read is no picture
            m_idleSinceLastFrame = true;
            return false;
        }
        VideoFrame picture = mapping ? VideoFrame() : lendPicture(pwBuffer, stride);
        lent = !picture.isNull();
        if (!lent)
            picture = copyPicture(pixels + data.chunk->offset, stride);
        if (picture.isNull())
            return false;
        if (m_lastPicture.isNull())
            pw_thread_loop_signal(m_loop.get(), false); // someone may wait for the first
        m_lastPicture = std::move(picture);
        m_lastPictureLent = lent;
    }
    if (!m_delivering)
        return lent;
    const MediaTime now = MediaTime::hostTimeNow();
    // Faster producers are thinned to the asked rate; the newest picture waits for the stop.
    const MediaTime interval = MediaTime::make(1, std::max(1, m_options.frameRate));
    if (m_lastDelivery && (now - *m_lastDelivery).seconds() < interval.seconds() * 0.75) {
        m_idleSinceLastFrame = true;
        return lent;
    }
    deliver(m_lastPicture, now);
    return lent;
}

void PipeWireVideoStream::deliver(const VideoFrame& picture, MediaTime now) {
    if (picture.isNull())
        return;
    const MediaTime duration = MediaTime::make(1, std::max(1, m_options.frameRate));
    VideoFrame frame = picture.withTiming(now, duration, MediaTime::invalid());
    if (m_options.showsCursor && m_cursorVisible && m_cursorPicture) {
        // The cursor goes into a copy: the kept picture stays clean for the next position.
        VideoFrame drawn = VideoFrame::allocate(picture.width(), picture.height(), now, duration,
                                                picture.hasAlpha() ? VideoFrame::Alpha::meaningful
                                                                   : VideoFrame::Alpha::undefined);
        for (int y = 0; y < picture.height(); ++y)
            std::memcpy(drawn.mutableBytes() + size_t(y) * size_t(drawn.bytesPerRow()),
                        picture.bytes() + size_t(y) * size_t(picture.bytesPerRow()),
                        size_t(picture.width()) * 4);
        const QPoint crop = m_options.crop ? m_options.crop->topLeft() : QPoint();
        const QPoint topLeft = m_drawnCursorPosition - m_cursorPicture->hotspot - crop;
        const QSize size = m_cursorPicture->size;
        for (int y = std::max(0, -topLeft.y());
             y < size.height() && topLeft.y() + y < drawn.height(); ++y) {
            uint8_t* row =
                drawn.mutableBytes() + size_t(topLeft.y() + y) * size_t(drawn.bytesPerRow());
            const uint8_t* cursorRow =
                m_cursorPicture->bgra.data() + size_t(y) * size_t(size.width()) * 4;
            for (int x = std::max(0, -topLeft.x());
                 x < size.width() && topLeft.x() + x < drawn.width(); ++x) {
                const uint8_t* c = cursorRow + x * 4;
                uint8_t* p = row + size_t(topLeft.x() + x) * 4;
                const int alpha = c[3];
                for (int channel = 0; channel < 3; ++channel)
                    p[channel] = uint8_t((c[channel] * alpha + p[channel] * (255 - alpha)) / 255);
            }
        }
        frame = std::move(drawn);
    }
    frame.status = FrameStatus::complete;
    m_lastDelivery = now;
    m_idleSinceLastFrame = false;
    ++m_delivered;
    if (m_onFrame)
        m_onFrame(std::move(frame));
}
