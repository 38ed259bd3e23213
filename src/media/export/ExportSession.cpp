#include "media/export/ExportSession.h"

#include "media/export/AudioPacketSource.h"
#include "media/export/AudioTrackReader.h"
#include "media/export/PassthroughCopy.h"
#include "media/export/VideoCompositing.h"
#include "media/export/VideoTrackReader.h"

#include <pthread.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace {
// Frames between the reader and the encoder: enough to keep both cores busy, few enough that an
// export of any size holds a handful of pictures and a cancel stops within about a frame.
constexpr int maximumFramesInFlight = 3;
// Audio is decoded this far ahead of the video it belongs to, so the muxer always has both.
constexpr double audioLeadSeconds = 0.5;

constexpr int64_t outputTimeBase = 90000;

// The output frames whose times fall in [start, end) on a grid of `frameSeconds`.
int64_t firstFrameAtOrAfter(double seconds, double frameSeconds) {
    return int64_t(std::ceil(seconds / frameSeconds - 1e-6));
}

// The screen picture centred on a black canvas: what a plain layer instruction shows.
VideoFrame centredOnBlack(const VideoFrame& source, VideoFramePool& pool, MediaTime time) {
    VideoFrame canvas = pool.makeFrame(time, MediaTime::invalid());
    if (canvas.isNull())
        return canvas;
    uint8_t* out = canvas.mutableBytes();
    const int width = pool.width(), height = pool.height();
    for (int y = 0; y < height; ++y) {
        uint32_t* row = reinterpret_cast<uint32_t*>(out + size_t(y) * size_t(canvas.bytesPerRow()));
        std::fill_n(row, width, 0xff000000u);
    }
    if (source.isNull())
        return canvas;
    const int left = (width - source.width()) / 2, top = (height - source.height()) / 2;
    const int x0 = std::max(0, left), y0 = std::max(0, top);
    const int x1 = std::min(width, left + source.width());
    const int y1 = std::min(height, top + source.height());
    for (int y = y0; y < y1; ++y) {
        std::memcpy(out + size_t(y) * size_t(canvas.bytesPerRow()) + size_t(x0) * 4,
                    source.bytes() + size_t(y - top) * size_t(source.bytesPerRow()) +
                        size_t(x0 - left) * 4,
                    size_t(x1 - x0) * 4);
    }
    return canvas;
}

// Carries the audio of one source range into the output: blocks are cut to the range at the
// sample and moved to the range's place on the output time line.
class AudioRangeFeeder {
public:
    AudioRangeFeeder(AudioTrackReader& reader, ExportWriter& writer)
        : m_reader(reader), m_writer(writer) {}

    void begin(const MediaTimeRange& range, MediaTime compositionStart) {
        m_rangeStart = range.start.seconds();
        m_rangeEnd = range.end().seconds();
        m_compositionStart = compositionStart.seconds();
        m_reader.seek(range.start);
        m_pending = {};
        m_done = false;
    }

    // Passes on every block that starts before `sourceSeconds`; false if the writer refused.
    bool feedUntil(double sourceSeconds) {
        while (!m_done) {
            if (m_pending.isNull())
                m_pending = m_reader.nextBuffer();
            if (m_pending.isNull()) {
                m_done = true;
                break;
            }
            const double start = m_pending.presentationTime.seconds();
            if (start >= sourceSeconds)
                break;
            if (start >= m_rangeEnd) {
                m_done = true;
                break;
            }
            AudioBuffer block = std::move(m_pending);
            m_pending = {};
            if (!append(block, start))
                return false;
        }
        return true;
    }

private:
    bool append(const AudioBuffer& block, double start) {
        const int rate = block.sampleRate();
        const int count = block.sampleCount();
        const int first = std::clamp(int(std::lround((m_rangeStart - start) * rate)), 0, count);
        const int last = std::clamp(int(std::lround((m_rangeEnd - start) * rate)), 0, count);
        if (last <= first)
            return true;
        const double outputStart = m_compositionStart + start + double(first) / rate - m_rangeStart;
        if (first == 0 && last == count)
            return m_writer.appendAudio(block, outputStart);
        AudioBuffer piece =
            AudioBuffer::allocate(block.channelCount(), rate, last - first, block.presentationTime);
        if (piece.isNull())
            return false;
        for (int channel = 0; channel < block.channelCount(); ++channel)
            std::memcpy(piece.mutableChannelData(channel), block.channelData(channel) + first,
                        size_t(last - first) * sizeof(float));
        return m_writer.appendAudio(piece, outputStart);
    }

    AudioTrackReader& m_reader;
    ExportWriter& m_writer;
    AudioBuffer m_pending;
    double m_rangeStart = 0, m_rangeEnd = 0, m_compositionStart = 0;
    bool m_done = false;
};
// Carries the sound of the whole movie over unchanged, in step with the pictures.
class AudioPacketFeeder {
public:
    AudioPacketFeeder(AudioPacketSource& source, ExportWriter& writer)
        : m_source(source), m_writer(writer) {}

    // Passes on every packet before `sourceSeconds`; false if the writer refused.
    bool feedUntil(double sourceSeconds) {
        while (!m_ended) {
            if (!m_pending && !(m_pending = m_source.next(m_pendingSeconds))) {
                m_ended = true;
                break;
            }
            if (m_pendingSeconds >= sourceSeconds)
                break;
            if (!m_writer.appendAudioPacket(std::move(m_pending)))
                return false;
            m_pending = nullptr;
        }
        return true;
    }

private:
    AudioPacketSource& m_source;
    ExportWriter& m_writer;
    std::shared_ptr<AVPacket> m_pending; // read past the last limit, waits for the next
    double m_pendingSeconds = 0;
    bool m_ended = false;
};
} // namespace

ExportSession::ExportSession(ExportComposition composition, Preset preset)
    : m_composition(std::move(composition)), m_preset(preset) {}

ExportSession::~ExportSession() {
    cancelExport();
    if (m_thread.joinable())
        m_thread.join();
}

void ExportSession::exportAsynchronously(std::function<void()> completion) {
    m_completion = std::move(completion);
    m_status = Status::exporting;
    m_thread = std::thread([this] { run(); });
}

void ExportSession::cancelExport() {
    m_cancelled = true;
    m_changed.notify_all();
}

void ExportSession::waitUntilFinished() {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_finished; });
}

bool ExportSession::waitForFinish(std::chrono::milliseconds timeout) {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, timeout, [this] { return m_finished; });
}

std::optional<std::string> ExportSession::error() const {
    std::lock_guard lock(m_mutex);
    return m_error;
}

void ExportSession::setError(std::string text) {
    std::lock_guard lock(m_mutex);
    if (!m_error)
        m_error = std::move(text);
}

void ExportSession::run() {
    pthread_setname_np(pthread_self(), "ExportReader");
    const bool completed = m_preset == Preset::passthrough ? runPassthrough() : runComposed();
    if (completed) {
        m_progress = 1.0;
        m_status = Status::completed;
    } else {
        m_status = m_cancelled && !error() ? Status::cancelled : Status::failed;
    }
    if (m_completion)
        m_completion();
    {
        std::lock_guard lock(m_mutex);
        m_finished = true;
    }
    m_changed.notify_all();
}

bool ExportSession::runPassthrough() {
    std::string error;
    const bool copied = copyPacketRanges(
        m_composition.screenURL, m_composition.screenTimeRanges, outputURL,
        encoding.fileType == ExportEncoding::FileType::mp4, encoding.shouldOptimizeForNetworkUse,
        m_cancelled, [this](double fraction) { m_progress = std::min(fraction, 0.999); }, error);
    if (!copied && !m_cancelled)
        setError(error);
    return copied && !m_cancelled;
}

void ExportSession::waitForFramesInFlight(int limit) {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [&] { return m_framesInFlight <= limit; });
}

bool ExportSession::runComposed() {
    std::string error;
    std::unique_ptr<VideoTrackReader> screen =
        VideoTrackReader::open(m_composition.screenURL, error);
    if (!screen) {
        setError(error);
        return false;
    }
    std::unique_ptr<VideoTrackReader> camera;
    if (m_composition.cameraURL) {
        camera = VideoTrackReader::open(*m_composition.cameraURL, error);
        if (!camera) {
            setError(error);
            return false;
        }
    }
    ExportEncoding settings = encoding;
    const ExportVideoComposition composition =
        videoComposition.value_or(ExportVideoComposition{screen->width(), screen->height()});
    settings.video.width = composition.renderWidth;
    settings.video.height = composition.renderHeight;
    const double frameSeconds = composition.frameDuration.seconds();
    settings.video.expectedSourceFrameRate = int(std::lround(1.0 / frameSeconds));
    if (settings.fileType == ExportEncoding::FileType::gif)
        settings.audio.reset();
    // Sound that no cut touches goes over as it is; cuts need it decoded, cut and encoded again.
    std::unique_ptr<AudioPacketSource> copiedAudio;
    const auto& ranges = m_composition.screenTimeRanges;
    const bool wholeMovie = ranges.size() == 1 && ranges[0].start == MediaTime::zero() &&
                            ranges[0].end() >= screen->duration();
    if (settings.audio && wholeMovie) {
        copiedAudio = AudioPacketSource::open(m_composition.screenURL, error);
        if (copiedAudio && settings.fileType == ExportEncoding::FileType::mp4 &&
            !copiedAudio->fitsMpeg4())
            copiedAudio.reset();
        error.clear();
    }
    std::unique_ptr<AudioTrackReader> audio;
    if (settings.audio && !copiedAudio) {
        audio = AudioTrackReader::open(m_composition.screenURL,
                                       {settings.audio->sampleRate, settings.audio->channelCount},
                                       error);
        if (!audio && !error.empty()) {
            setError(error);
            return false;
        }
        if (!audio)
            settings.audio.reset();
    }
    std::unique_ptr<ExportWriter> writer =
        ExportWriter::create(outputURL, settings, error, copiedAudio.get());
    if (!writer) {
        setError(error);
        return false;
    }
    videoComposition = composition;
    const int64_t totalFrames =
        std::max<int64_t>(1, firstFrameAtOrAfter(m_composition.duration().seconds(), frameSeconds));
    std::optional<AudioRangeFeeder> feeder;
    if (audio)
        feeder.emplace(*audio, *writer);
    std::optional<AudioPacketFeeder> copier;
    if (copiedAudio)
        copier.emplace(*copiedAudio, *writer);
    int64_t frameIndex = 0;
    MediaTime compositionStart = MediaTime::zero();
    bool ok = true;
    for (const MediaTimeRange& range : m_composition.screenTimeRanges) {
        if (feeder)
            feeder->begin(range, compositionStart);
        std::function<bool(double)> feedAudio;
        if (feeder)
            feedAudio = [&feeder](double seconds) { return feeder->feedUntil(seconds); };
        if (copier)
            feedAudio = [&copier](double seconds) { return copier->feedUntil(seconds); };
        ok = composeRange(*writer, *screen, camera.get(), range, compositionStart, frameIndex,
                          totalFrames, feedAudio);
        if (ok && feeder && !feeder->feedUntil(range.end().seconds()))
            ok = false;
        if (ok && copier && !copier->feedUntil(std::numeric_limits<double>::infinity()))
            ok = false;
        if (!ok)
            break;
        compositionStart = compositionStart + range.duration;
    }
    // Every request in flight is answered before the writer they write to goes away.
    if (composition.customVideoCompositor && m_cancelled)
        composition.customVideoCompositor->cancelAllPendingVideoCompositionRequests();
    waitForFramesInFlight(0);
    if (screen->error())
        setError(m_composition.screenURL.string() + ": " + *screen->error());
    if (!ok || m_cancelled || this->error()) {
        if (auto writerError = writer->error())
            setError(*writerError);
        writer->cancel();
        return false;
    }
    if (!writer->finish()) {
        setError(writer->error().value_or("the output could not be completed"));
        return false;
    }
    return true;
}

bool ExportSession::composeRange(ExportWriter& writer, VideoTrackReader& screen,
                                 VideoTrackReader* camera, const MediaTimeRange& range,
                                 MediaTime compositionStart, int64_t& frameIndex,
                                 int64_t totalFrames,
                                 const std::function<bool(double)>& feedAudio) {
    const ExportVideoComposition& composition = *videoComposition;
    const double frameSeconds = composition.frameDuration.seconds();
    const double start = compositionStart.seconds();
    const double end = start + range.duration.seconds();
    const int64_t last = std::min(totalFrames, firstFrameAtOrAfter(end, frameSeconds));
    std::optional<VideoFramePool> canvasPool;
    const bool sameSize =
        composition.renderWidth == screen.width() && composition.renderHeight == screen.height();
    if (!composition.customVideoCompositor && !sameSize)
        canvasPool.emplace(composition.renderWidth, composition.renderHeight);
    for (int64_t k = std::max(frameIndex, firstFrameAtOrAfter(start, frameSeconds)); k < last;
         ++k) {
        if (m_cancelled || error())
            return false;
        const MediaTime time = MediaTime::fromTimeBase(k * composition.frameDuration.value, 1,
                                                       composition.frameDuration.timescale);
        const MediaTime sourceTime = range.start + (time - compositionStart);
        VideoFrame screenFrame = screen.frameAt(sourceTime);
        const int64_t pts = k * outputTimeBase * composition.frameDuration.value /
                            composition.frameDuration.timescale;
        m_progress = std::min(0.999, double(writer.encodedVideoFrames()) / double(totalFrames));
        if (!composition.customVideoCompositor) {
            VideoFrame frame =
                sameSize ? screenFrame : centredOnBlack(screenFrame, *canvasPool, time);
            if (frame.isNull() || !writer.appendVideo(std::move(frame), pts))
                return false;
            frameIndex = k + 1;
            if (feedAudio && !feedAudio(sourceTime.seconds() + audioLeadSeconds))
                return false;
            continue;
        }
        VideoCompositionRequest request;
        request.compositionTime = time;
        request.renderWidth = composition.renderWidth;
        request.renderHeight = composition.renderHeight;
        request.sourceFrames.push_back(std::move(screenFrame));
        if (camera) {
            const bool cameraHasFrame = time < m_composition.cameraDuration;
            request.sourceFrames.push_back(cameraHasFrame ? camera->frameAt(time) : VideoFrame());
        }
        request.finish = [this, &writer, pts](VideoFrame composed) {
            if (!m_cancelled) {
                if (composed.isNull())
                    setError("the compositor gave no frame");
                else if (!writer.appendVideo(std::move(composed), pts))
                    setError(writer.error().value_or("the encoder stopped"));
            }
            {
                std::lock_guard lock(m_mutex);
                --m_framesInFlight;
            }
            m_changed.notify_all();
        };
        {
            std::unique_lock lock(m_mutex);
            m_changed.wait(
                lock, [this] { return m_framesInFlight < maximumFramesInFlight || m_cancelled; });
            if (m_cancelled)
                return false;
            ++m_framesInFlight;
        }
        composition.customVideoCompositor->startRequest(std::move(request));
        frameIndex = k + 1;
        if (feedAudio && !feedAudio(sourceTime.seconds() + audioLeadSeconds))
            return false;
    }
    return true;
}
