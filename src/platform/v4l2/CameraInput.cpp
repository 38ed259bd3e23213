#include "platform/v4l2/CameraInput.h"

#include "core/model/RecordingError.h"
#include "media/FFmpegHandles.h"

extern "C" {
#include <libavdevice/avdevice.h>
}

#include <libyuv.h>

#include <fmt/format.h>

#include <mutex>
#include <set>

namespace {

// The devices open in this process, so a second opener gets a clear "busy".
std::mutex& openDevicesMutex() {
    static std::mutex mutex;
    return mutex;
}
std::set<QString>& openDevices() {
    static std::set<QString> devices;
    return devices;
}

void registerDevicesOnce() {
    static std::once_flag once;
    std::call_once(once, [] { avdevice_register_all(); });
}

RecordingError cameraError(const CameraDeviceInfo& device, const std::string& problem) {
    const QString shown =
        device.isTestCamera ? device.name : QStringLiteral("%1 (%2)").arg(device.name, device.path);
    return RecordingError::invalidConfiguration(
        QStringLiteral("Camera %1 %2").arg(shown, QString::fromStdString(problem)));
}

std::string describeOpenFailure(int code) {
    if (code == AVERROR(EBUSY))
        return "is busy: another program is using it";
    if (code == AVERROR(ENOENT) || code == AVERROR(ENODEV) || code == AVERROR(ENXIO))
        return "is not connected";
    if (code == AVERROR(EACCES) || code == AVERROR(EPERM))
        return "may not be opened by this user (is it in the video group?)";
    return "could not be opened: " + ffmpegErrorText(code);
}

} // namespace

struct CameraInput::Private {
    AVInputFormatContextPtr format;
    AVCodecContextPtr decoder;
    AVPacketPtr packet{av_packet_alloc()};
    AVFramePtr decoded{av_frame_alloc()};
    SwsContextPtr scaler; // only for pixel formats libyuv has no direct path for
    std::unique_ptr<VideoFramePool> pool;
    int streamIndex = 0;
    AVRational timeBase{1, 1000000};
    MediaTime frameDuration = MediaTime::make(1, 30);
    std::optional<MediaTime> lastTime;

    bool convert(const AVFrame& source, VideoFrame& target);
};

CameraInput::CameraInput(CameraDeviceInfo device)
    : m_device(std::move(device)), d(std::make_unique<Private>()) {}

CameraInput::~CameraInput() {
    // Closed before the name is released, so a new opener never meets a node still streaming.
    d.reset();
    std::lock_guard lock(openDevicesMutex());
    openDevices().erase(m_device.path);
}

std::unique_ptr<CameraInput> CameraInput::open(const CameraDeviceInfo& device,
                                               const Options& options) {
    registerDevicesOnce();
    {
        std::lock_guard lock(openDevicesMutex());
        if (!openDevices().insert(device.path).second)
            throw cameraError(device, "is busy: it is already open in this program");
    }
    // From here the destructor releases the name on every path.
    std::unique_ptr<CameraInput> input(new CameraInput(device));
    Private& p = *input->d;

    const AVInputFormat* inputFormat =
        av_find_input_format(device.isTestCamera ? "lavfi" : "video4linux2");
    if (!inputFormat)
        throw cameraError(device, "needs FFmpeg's device input, which this build lacks");
    AVDictionary* rawOptions = nullptr;
    std::string url = device.path.toStdString();
    if (device.isTestCamera) {
        const VideoDimensions size = options.size.value_or(VideoDimensions{1280, 720});
        url = V4L2CameraDiscovery::testCameraGraph(size.width, size.height).toStdString();
    } else {
        if (options.size)
            av_dict_set(&rawOptions, "video_size",
                        fmt::format("{}x{}", options.size->width, options.size->height).c_str(), 0);
        av_dict_set(&rawOptions, "framerate", std::to_string(options.frameRate).c_str(), 0);
        // Uncompressed YUYV saturates USB 2 above 640x480; cameras that offer Motion-JPEG reach
        // their full size and rate with it.
        if (device.offersMJPEG)
            av_dict_set(&rawOptions, "input_format", "mjpeg", 0);
    }
    AVFormatContext* context = avformat_alloc_context();
    // Reads return at once when no frame is ready, so stopping never waits on the driver.
    context->flags |= AVFMT_FLAG_NONBLOCK;
    const int opened = avformat_open_input(&context, url.c_str(), inputFormat, &rawOptions);
    av_dict_free(&rawOptions);
    if (opened < 0) // avformat_open_input frees the context on failure
        throw cameraError(device, describeOpenFailure(opened));
    p.format.reset(context);

    const int stream = av_find_best_stream(context, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (stream < 0)
        throw cameraError(device, "delivers no video");
    p.streamIndex = stream;
    const AVStream* video = context->streams[stream];
    p.timeBase = video->time_base;
    const AVRational rate =
        video->avg_frame_rate.num > 0 ? video->avg_frame_rate : AVRational{options.frameRate, 1};
    p.frameDuration = MediaTime::make(rate.den, rate.num);

    const AVCodec* codec = avcodec_find_decoder(video->codecpar->codec_id);
    if (!codec)
        throw cameraError(device, fmt::format("delivers {}, which this build cannot decode",
                                              avcodec_get_name(video->codecpar->codec_id)));
    p.decoder.reset(avcodec_alloc_context3(codec));
    if (!p.decoder || avcodec_parameters_to_context(p.decoder.get(), video->codecpar) < 0 ||
        avcodec_open2(p.decoder.get(), codec, nullptr) < 0)
        throw cameraError(device, "has a format the decoder refuses");
    if (p.decoder->width <= 0 || p.decoder->height <= 0)
        throw cameraError(device, "reports no frame size");
    p.pool = std::make_unique<VideoFramePool>(p.decoder->width, p.decoder->height);
    return input;
}

VideoDimensions CameraInput::dimensions() const {
    return VideoDimensions{d->decoder->width, d->decoder->height};
}

MediaTime CameraInput::frameDuration() const {
    return d->frameDuration;
}

MediaTime CameraInput::hostTime(int64_t pts, int num, int den) const {
    const MediaTime now = MediaTime::hostTimeNow();
    if (pts == AV_NOPTS_VALUE)
        return now;
    // UVC drivers stamp buffers on the monotonic clock at capture, which is earlier and steadier
    // than the moment the frame reaches us; other sources (the test camera's graph, drivers on
    // the wall clock) count from elsewhere and get the delivery time instead.
    const MediaTime stamped = MediaTime::fromTimeBase(pts, num, den);
    const double lag = (now - stamped).seconds();
    return lag >= 0.0 && lag < 1.0 ? stamped : now;
}

CameraInput::ReadResult CameraInput::read() {
    Private& p = *d;
    ReadResult result;
    const int status = av_read_frame(p.format.get(), p.packet.get());
    if (status == AVERROR(EAGAIN))
        return result;
    if (status < 0) {
        result.status = Status::failed;
        result.error = status == AVERROR_EOF ? std::string("the device stopped delivering")
                                             : ffmpegErrorText(status);
        return result;
    }
    struct Unref {
        AVPacket* packet;
        ~Unref() { av_packet_unref(packet); }
    } unref{p.packet.get()};
    if (p.packet->stream_index != p.streamIndex)
        return result;
    const MediaTime time = hostTime(p.packet->pts, p.timeBase.num, p.timeBase.den);

    // One damaged frame (a torn JPEG) is dropped; the next one decodes.
    result.status = Status::dropped;
    if (avcodec_send_packet(p.decoder.get(), p.packet.get()) < 0)
        return result;
    if (avcodec_receive_frame(p.decoder.get(), p.decoded.get()) < 0)
        return result;
    VideoFrame frame = p.pool->makeFrame(time, p.frameDuration);
    const bool converted = !frame.isNull() && p.convert(*p.decoded, frame);
    av_frame_unref(p.decoded.get());
    if (!converted)
        return result;
    // A time that does not move forward would be refused by the writer anyway.
    if (p.lastTime && time <= *p.lastTime)
        return result;
    p.lastTime = time;
    result.status = Status::frame;
    result.frame = std::move(frame);
    return result;
}

bool CameraInput::Private::convert(const AVFrame& source, VideoFrame& target) {
    if (source.width != target.width() || source.height != target.height())
        return false; // a mid-stream size change; the writer was set up for the first size
    uint8_t* out = target.mutableBytes();
    const int outStride = target.bytesPerRow();
    const int w = source.width, h = source.height;
    // libyuv's "ARGB" is B, G, R, A in memory: the BGRA the writers take.
    switch (source.format) {
    case AV_PIX_FMT_YUYV422:
        return libyuv::YUY2ToARGB(source.data[0], source.linesize[0], out, outStride, w, h) == 0;
    case AV_PIX_FMT_YUVJ422P:
        return libyuv::J422ToARGB(source.data[0], source.linesize[0], source.data[1],
                                  source.linesize[1], source.data[2], source.linesize[2], out,
                                  outStride, w, h) == 0;
    case AV_PIX_FMT_YUVJ420P:
        return libyuv::J420ToARGB(source.data[0], source.linesize[0], source.data[1],
                                  source.linesize[1], source.data[2], source.linesize[2], out,
                                  outStride, w, h) == 0;
    case AV_PIX_FMT_YUV420P:
        return libyuv::I420ToARGB(source.data[0], source.linesize[0], source.data[1],
                                  source.linesize[1], source.data[2], source.linesize[2], out,
                                  outStride, w, h) == 0;
    default:
        break;
    }
    scaler.reset(sws_getCachedContext(scaler.release(), w, h, AVPixelFormat(source.format), w, h,
                                      AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr, nullptr));
    if (!scaler)
        return false;
    uint8_t* planes[4] = {out, nullptr, nullptr, nullptr};
    int strides[4] = {outStride, 0, 0, 0};
    return sws_scale(scaler.get(), source.data, source.linesize, 0, h, planes, strides) == h;
}
