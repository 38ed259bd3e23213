// A PipeWire video source of one flat colour that behaves like a desktop's screen cast: every
// fourth buffer carries a damaged picture, the others say that nothing changed (damage
// metadata without a region), and every buffer carries cursor metadata with a 16x16 white
// pointer that moves 4 pixels right each time. Run by tests only:
//   pipewire_cursor_source --name NODE --width W --height H --color RRGGBB

#include <pipewire/pipewire.h>
#include <spa/buffer/meta.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/builder.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr int cursorSide = 16;
constexpr int damageRegions = 4;

struct Source {
    pw_main_loop* loop = nullptr;
    pw_stream* stream = nullptr;
    spa_source* timer = nullptr;
    spa_hook listener{};
    int width = 0;
    int height = 0;
    uint32_t color = 0; // 0xRRGGBB
    uint64_t sequence = 0;
};

size_t cursorMetaSize() {
    return sizeof(spa_meta_cursor) + sizeof(spa_meta_bitmap) + cursorSide * cursorSide * 4;
}

void onProcess(void* data) {
    auto* source = static_cast<Source*>(data);
    pw_buffer* buffer = pw_stream_dequeue_buffer(source->stream);
    if (!buffer)
        return;
    spa_buffer* spa = buffer->buffer;
    auto* pixels = static_cast<uint8_t*>(spa->datas[0].data);
    const int stride = source->width * 4;
    const uint64_t n = source->sequence++;
    const bool damaged = n % 4 == 0;
    if (pixels) {
        for (int y = 0; y < source->height; ++y) {
            uint8_t* row = pixels + size_t(y) * size_t(stride);
            for (int x = 0; x < source->width; ++x) {
                row[x * 4 + 0] = source->color & 0xff;
                row[x * 4 + 1] = (source->color >> 8) & 0xff;
                row[x * 4 + 2] = (source->color >> 16) & 0xff;
                row[x * 4 + 3] = 0;
            }
        }
    }
    if (auto* header = static_cast<spa_meta_header*>(
            spa_buffer_find_meta_data(spa, SPA_META_Header, sizeof(spa_meta_header)))) {
        header->flags = 0;
        header->seq = n;
        header->pts = int64_t(n) * 33333333;
    }
    if (spa_meta* damage = spa_buffer_find_meta(spa, SPA_META_VideoDamage)) {
        auto* region = static_cast<spa_meta_region*>(spa_meta_first(damage));
        if (damaged && spa_meta_check(region, damage)) {
            region->region = SPA_REGION(0, 0, uint32_t(source->width), uint32_t(source->height));
            ++region;
        }
        if (spa_meta_check(region, damage))
            region->region = SPA_REGION(0, 0, 0, 0);
    }
    if (auto* cursor = static_cast<spa_meta_cursor*>(
            spa_buffer_find_meta_data(spa, SPA_META_Cursor, sizeof(spa_meta_cursor)))) {
        cursor->id = 1;
        cursor->flags = 0;
        cursor->position.x = int32_t(8 + (n * 4) % uint64_t(source->width - cursorSide - 16));
        cursor->position.y = source->height / 2;
        cursor->hotspot.x = 0;
        cursor->hotspot.y = 0;
        cursor->bitmap_offset = sizeof(spa_meta_cursor);
        auto* bitmap = SPA_PTROFF(cursor, cursor->bitmap_offset, spa_meta_bitmap);
        bitmap->format = SPA_VIDEO_FORMAT_BGRA;
        bitmap->size.width = cursorSide;
        bitmap->size.height = cursorSide;
        bitmap->stride = cursorSide * 4;
        bitmap->offset = sizeof(spa_meta_bitmap);
        std::memset(SPA_PTROFF(bitmap, bitmap->offset, uint8_t), 0xff, cursorSide * cursorSide * 4);
    }
    spa->datas[0].chunk->offset = 0;
    spa->datas[0].chunk->stride = stride;
    spa->datas[0].chunk->size = uint32_t(stride * source->height);
    pw_stream_queue_buffer(source->stream, buffer);
}

void onTimeout(void* data, uint64_t) {
    pw_stream_trigger_process(static_cast<Source*>(data)->stream);
}

void onStateChanged(void* data, pw_stream_state, pw_stream_state state, const char*) {
    auto* source = static_cast<Source*>(data);
    timespec first{0, 1}, interval{0, 33333333};
    const bool streaming = state == PW_STREAM_STATE_STREAMING;
    pw_loop_update_timer(pw_main_loop_get_loop(source->loop), source->timer,
                         streaming ? &first : nullptr, streaming ? &interval : nullptr, false);
}

void onParamChanged(void* data, uint32_t id, const spa_pod* param) {
    auto* source = static_cast<Source*>(data);
    if (!param || id != SPA_PARAM_Format)
        return;
    uint8_t buffer[1024];
    spa_pod_builder b = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
    const int stride = source->width * 4;
    const spa_pod* params[4];
    params[0] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &b, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
        SPA_POD_CHOICE_RANGE_Int(4, 2, 16), SPA_PARAM_BUFFERS_blocks, SPA_POD_Int(1),
        SPA_PARAM_BUFFERS_size, SPA_POD_Int(stride * source->height), SPA_PARAM_BUFFERS_stride,
        SPA_POD_Int(stride)));
    params[1] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &b, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
        SPA_POD_Id(SPA_META_Header), SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_header))));
    params[2] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &b, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
        SPA_POD_Id(SPA_META_VideoDamage), SPA_PARAM_META_size,
        SPA_POD_Int(int(sizeof(spa_meta_region) * damageRegions))));
    params[3] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &b, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
        SPA_POD_Id(SPA_META_Cursor), SPA_PARAM_META_size, SPA_POD_Int(int(cursorMetaSize()))));
    pw_stream_update_params(source->stream, params, 4);
}

Source* running = nullptr;
void onSignal(int) {
    if (running)
        pw_main_loop_quit(running->loop);
}

} // namespace

int main(int argc, char** argv) {
    std::string name = "tq_cursor_source";
    Source source;
    source.width = 320;
    source.height = 240;
    source.color = 0x00ff00;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--name")
            name = argv[i + 1];
        else if (option == "--width")
            source.width = std::atoi(argv[i + 1]);
        else if (option == "--height")
            source.height = std::atoi(argv[i + 1]);
        else if (option == "--color")
            source.color = uint32_t(std::strtoul(argv[i + 1], nullptr, 16));
    }
    pw_init(&argc, &argv);
    source.loop = pw_main_loop_new(nullptr);
    running = &source;
    std::signal(SIGTERM, onSignal);
    std::signal(SIGINT, onSignal);
    source.timer = pw_loop_add_timer(pw_main_loop_get_loop(source.loop), onTimeout, &source);
    source.stream = pw_stream_new_simple(
        pw_main_loop_get_loop(source.loop), name.c_str(),
        pw_properties_new(PW_KEY_MEDIA_CLASS, "Video/Source", PW_KEY_NODE_NAME, name.c_str(),
                          nullptr),
        [] {
            static pw_stream_events events{};
            events.version = PW_VERSION_STREAM_EVENTS;
            events.process = onProcess;
            events.state_changed = onStateChanged;
            events.param_changed = onParamChanged;
            return &events;
        }(),
        &source);

    uint8_t buffer[1024];
    spa_pod_builder b = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
    const spa_rectangle size{uint32_t(source.width), uint32_t(source.height)};
    const spa_fraction rate{30, 1};
    const spa_pod* format = static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &b, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat, SPA_FORMAT_mediaType,
        SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype,
        SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), SPA_FORMAT_VIDEO_format,
        SPA_POD_Id(SPA_VIDEO_FORMAT_BGRx), SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&size),
        SPA_FORMAT_VIDEO_framerate, SPA_POD_Fraction(&rate)));
    if (pw_stream_connect(source.stream, PW_DIRECTION_OUTPUT, PW_ID_ANY,
                          pw_stream_flags(PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_MAP_BUFFERS),
                          &format, 1) < 0) {
        std::fprintf(stderr, "cannot connect the source stream\n");
        return 1;
    }
    pw_main_loop_run(source.loop);
    pw_stream_destroy(source.stream);
    pw_main_loop_destroy(source.loop);
    pw_deinit();
    return 0;
}
