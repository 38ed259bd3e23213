#include "media/encoding/MovieFileEncoder.h"

#include "media/FFmpegHandles.h"
#include "media/UnfinishedRecordingMarker.h"
#include "media/encoding/AudioTrackEncoder.h"
#include "media/encoding/FileOutput.h"
#include "media/encoding/VideoTrackEncoder.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>

struct MovieFileEncoder::Track {
    std::unique_ptr<VideoTrackEncoder> video;
    std::unique_ptr<AudioTrackEncoder> audio;
    AVStream* stream = nullptr; // owned by the muxer
    AVRational encoderTimeBase{1, 1};
    size_t depth = 0;
    std::atomic<size_t> queued{0};
    int64_t lastVideoPts = INT64_MIN;
    int64_t nominalFrameDuration = 0; // in the encoder's time base
};

namespace {
// A fragment starts at each video key frame, which the encoder places at least once a second of
// media time; the fragment reaches the disk as the next one starts. That is what a crash can
// cost, and the index entries stay small enough that a one-hour file's index is a few hundred
// kilobytes written at the finish. A fragment is never flushed early: the muxer would have to
// guess the duration of its last sample, and a wrong guess shifts every later sample's time.
constexpr const char* fragmentedLayout = "frag_keyframe+empty_moov+default_base_moof";
constexpr const char* minimumFragmentMicroseconds = "900000";
constexpr const char* audioFragmentMicroseconds = "1000000";
// The muxer may hold packets back to interleave tracks; a silent track must not hold the other
// back for long, or a crash would cost more than a fragment.
constexpr int64_t maximumInterleaveMicroseconds = 500000;
} // namespace

std::string description(MovieFileEncoder::Status status) {
    switch (status) {
    case MovieFileEncoder::Status::unknown:
        return "unknown";
    case MovieFileEncoder::Status::writing:
        return "writing";
    case MovieFileEncoder::Status::completed:
        return "completed";
    case MovieFileEncoder::Status::failed:
        return "failed";
    case MovieFileEncoder::Status::cancelled:
        return "cancelled";
    }
    return "unknown";
}

MovieFileEncoder::MovieFileEncoder(std::filesystem::path path, OutputFormat format,
                                   EncoderTuning tuning)
    : m_path(std::move(path)), m_format(format), m_tuning(std::move(tuning)),
      m_queue(m_tuning.videoQueueDepth + 2 * m_tuning.audioQueueDepth) {
    // FFmpeg's encoders report their settings and statistics at the info level for every file;
    // the program's log has one line per event, so only FFmpeg's errors reach it.
    static std::once_flag quiet;
    std::call_once(quiet, [] { av_log_set_level(AV_LOG_ERROR); });
}

MovieFileEncoder::~MovieFileEncoder() {
    m_discard = true;
    stopWorker();
    m_output.reset();
    if (m_muxer)
        AVOutputFormatContextPtr release(m_muxer);
}

int MovieFileEncoder::addVideoTrack(const VideoCodecSettings& settings, std::string& error) {
    if (m_status != Status::unknown)
        return -1;
    auto track = std::make_unique<Track>();
    track->video = VideoTrackEncoder::create(settings, m_tuning, true, error);
    if (!track->video)
        return -1;
    track->encoderTimeBase = track->video->context()->time_base;
    AVRational frameRate = track->video->context()->framerate;
    track->nominalFrameDuration = av_rescale_q(1, av_inv_q(frameRate), track->encoderTimeBase);
    track->depth = m_tuning.videoQueueDepth;
    m_tracks.push_back(std::move(track));
    return int(m_tracks.size()) - 1;
}

int MovieFileEncoder::addAudioTrack(const WriterConfiguration::AudioSettings& settings,
                                    std::string& error) {
    if (m_status != Status::unknown)
        return -1;
    auto track = std::make_unique<Track>();
    track->audio = AudioTrackEncoder::create(settings, true, error);
    if (!track->audio)
        return -1;
    track->encoderTimeBase = track->audio->context()->time_base;
    track->depth = m_tuning.audioQueueDepth;
    m_tracks.push_back(std::move(track));
    return int(m_tracks.size()) - 1;
}

std::string MovieFileEncoder::videoEncoderName() const {
    for (const auto& track : m_tracks) {
        if (track->video)
            return track->video->encoderName();
    }
    return {};
}

bool MovieFileEncoder::openFile() {
    bool hasVideo = false;
    bool needsIso = m_format == OutputFormat::mp4;
    bool needsQuickTime = false;
    for (const auto& track : m_tracks) {
        hasVideo = hasVideo || track->video;
        needsIso = needsIso || (track->audio && track->audio->needsIsoLayout());
        needsQuickTime = needsQuickTime ||
                         (track->video && track->video->context()->codec_id == AV_CODEC_ID_PRORES);
    }
    // FLAC and Opus exist only in the ISO layout, ProRes only in the QuickTime one; both read
    // as a movie everywhere that matters, so the codecs decide over the file type.
    const char* muxerName = needsQuickTime ? "mov" : needsIso ? "mp4" : "mov";
    if (int result = avformat_alloc_output_context2(&m_muxer, nullptr, muxerName, m_path.c_str());
        result < 0) {
        fail(result);
        return false;
    }
    std::string openError;
    m_output = FileOutput::create(m_path, openError);
    if (!m_output) {
        std::lock_guard lock(m_errorMutex);
        m_error = openError;
        m_status = Status::failed;
        return false;
    }
    UnfinishedRecordingMarker::Details details;
    details.startedAt =
        std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    for (const auto& track : m_tracks) {
        if (track->video) {
            details.width = track->video->context()->width;
            details.height = track->video->context()->height;
            details.frameRate = track->video->context()->framerate.num;
        }
    }
    m_marker = UnfinishedRecordingMarker::create(m_output->path(), details);
    m_muxer->pb = m_output->context();
    m_muxer->flags |= AVFMT_FLAG_CUSTOM_IO | AVFMT_FLAG_FLUSH_PACKETS;
    m_muxer->max_interleave_delta = maximumInterleaveMicroseconds;
    m_muxer->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
    for (auto& track : m_tracks) {
        const AVCodecContext* context =
            track->video ? track->video->context() : track->audio->context();
        track->stream = avformat_new_stream(m_muxer, nullptr);
        if (!track->stream ||
            avcodec_parameters_from_context(track->stream->codecpar, context) < 0) {
            fail(AVERROR(ENOMEM));
            return false;
        }
        track->stream->time_base = track->encoderTimeBase;
        if (track->video)
            track->stream->avg_frame_rate = context->framerate;
    }
    AVDictionary* options = nullptr;
    av_dict_set(&options, "movflags", fragmentedLayout, 0);
    if (hasVideo)
        av_dict_set(&options, "min_frag_duration", minimumFragmentMicroseconds, 0);
    else
        av_dict_set(&options, "frag_duration", audioFragmentMicroseconds, 0);
    int result = avformat_write_header(m_muxer, &options);
    av_dict_free(&options);
    if (result < 0) {
        fail(result);
        return false;
    }
    return true;
}

std::filesystem::path MovieFileEncoder::path() const {
    return m_output ? m_output->path() : m_path;
}

bool MovieFileEncoder::startWriting() {
    if (m_status != Status::unknown)
        return false;
    if (!openFile()) {
        m_status = Status::failed;
        return false;
    }
    m_status = Status::writing;
    m_worker = std::thread([this] { run(); });
    return true;
}

void MovieFileEncoder::startSession(MediaTime sourceTime) {
    if (!m_sessionStart.isValid())
        m_sessionStart = sourceTime;
}

bool MovieFileEncoder::isReadyForMoreMediaData(int track) const {
    if (track < 0 || track >= int(m_tracks.size()) || m_status != Status::writing)
        return false;
    return m_tracks[size_t(track)]->queued.load() < m_tracks[size_t(track)]->depth;
}

bool MovieFileEncoder::push(int track, Job job) {
    if (!isReadyForMoreMediaData(track))
        return false;
    Track& target = *m_tracks[size_t(track)];
    target.queued++;
    job.track = track;
    if (!m_queue.tryPush(std::move(job))) {
        target.queued--;
        return false;
    }
    return true;
}

bool MovieFileEncoder::appendVideo(int track, VideoFrame frame) {
    if (track < 0 || track >= int(m_tracks.size()) || !m_tracks[size_t(track)]->video ||
        frame.isNull())
        return false;
    return push(track, Job{track, std::move(frame), {}, 0});
}

bool MovieFileEncoder::appendAudio(int track, AudioBuffer buffer, int source) {
    if (track < 0 || track >= int(m_tracks.size()) || !m_tracks[size_t(track)]->audio ||
        buffer.isNull())
        return false;
    return push(track, Job{track, {}, std::move(buffer), source});
}

void MovieFileEncoder::run() {
    pthread_setname_np(pthread_self(), "MediaWriter");
    while (std::optional<Job> job = m_queue.pop()) {
        m_tracks[size_t(job->track)]->queued--;
        if (m_discard || m_status != Status::writing)
            continue;
        if (int result = encodeJob(*job); result < 0)
            fail(result);
    }
}

int MovieFileEncoder::encodeJob(const Job& job) {
    Track& track = *m_tracks[size_t(job.track)];
    auto sink = [this, &track](AVPacket* packet) { return writePacket(track, packet); };
    if (track.video) {
        MediaTime sinceStart = job.video.presentationTime - m_sessionStart;
        if (!sinceStart.isNumeric())
            return 0;
        int64_t pts = sinceStart.inTimeBase(1, VideoTrackEncoder::timeBaseDen);
        // Frames before the session's start are not part of the file; a frame at or before the
        // previous one's time cannot be encoded and is dropped rather than failing the file.
        if (pts < 0)
            return 0;
        if (pts <= track.lastVideoPts) {
            m_outOfOrderFrames++;
            return 0;
        }
        track.lastVideoPts = pts;
        return track.video->encode(job.video, pts, sink);
    }
    MediaTime sinceStart = job.audio.presentationTime - m_sessionStart;
    if (!sinceStart.isNumeric())
        return 0;
    return track.audio->encode(job.audio, sinceStart.seconds(), sink, job.source);
}

int MovieFileEncoder::writePacket(Track& track, AVPacket* packet) {
    // The last sample of each fragment needs a duration of its own; encoders with a delay
    // leave it out, and the expected frame interval is the best guess for it.
    if (packet->duration <= 0 && track.video)
        packet->duration = track.nominalFrameDuration;
    av_packet_rescale_ts(packet, track.encoderTimeBase, track.stream->time_base);
    packet->stream_index = track.stream->index;
    const bool keyFrame = track.video && (packet->flags & AV_PKT_FLAG_KEY);
    if (int result = av_interleaved_write_frame(m_muxer, packet); result < 0)
        return result;
    // The interleaver holds the newest packet until every track has a later one, and with a
    // silent audio track or a still screen that is a second or more. A key frame starts a
    // fragment, and the fragment before it reaches the disk when the muxer sees the key frame:
    // so the queue is emptied behind each one. Not behind the first: until the first packets
    // have left the queue in time order, the muxer has not chosen how to shift the tracks'
    // times to begin at zero (audio priming starts before it), and must see the earliest first.
    if (!keyFrame)
        return 0;
    if (!m_sawFirstKeyFrame) {
        m_sawFirstKeyFrame = true;
        return 0;
    }
    return av_interleaved_write_frame(m_muxer, nullptr);
}

void MovieFileEncoder::fail(int code) {
    {
        std::lock_guard lock(m_errorMutex);
        if (!m_error) {
            // The system's own words for a write error ("No space left on device") beat FFmpeg's
            // translation of them.
            m_error = m_output && m_output->systemError() ? *m_output->systemError()
                                                          : ffmpegErrorText(code);
        }
    }
    m_status = Status::failed;
    // Most failures are a full disk: the room held for this moment goes back now, before the
    // metadata is saved and the movie closed.
    if (m_marker)
        m_marker->releaseReserve();
}

std::optional<std::string> MovieFileEncoder::error() const {
    std::lock_guard lock(m_errorMutex);
    return m_error;
}

void MovieFileEncoder::stopWorker() {
    m_queue.close();
    if (m_worker.joinable())
        m_worker.join();
}

bool MovieFileEncoder::finishWriting() {
    stopWorker();
    if (m_status != Status::writing)
        return false;
    // Sound stops with the capture a moment before the last frame has been shown for its time:
    // silence fills the audio to the picture's end, so both tracks last as long.
    double videoEnd = 0;
    for (const auto& track : m_tracks)
        if (track->video && track->lastVideoPts != INT64_MIN)
            videoEnd =
                std::max(videoEnd, double(track->lastVideoPts + track->nominalFrameDuration) /
                                       VideoTrackEncoder::timeBaseDen);
    for (auto& track : m_tracks) {
        auto sink = [this, &track](AVPacket* packet) { return writePacket(*track, packet); };
        if (track->audio && videoEnd > 0)
            if (int result = track->audio->padTo(videoEnd, sink); result < 0) {
                fail(result);
                return false;
            }
        int result = track->video ? track->video->flush(sink) : track->audio->flush(sink);
        if (result < 0) {
            fail(result);
            return false;
        }
    }
    if (int result = av_write_trailer(m_muxer); result < 0) {
        fail(result);
        return false;
    }
    if (!m_output->close()) {
        fail(AVERROR(EIO));
        return false;
    }
    if (m_marker)
        m_marker->remove();
    m_status = Status::completed;
    return true;
}

void MovieFileEncoder::cancelWriting() {
    m_discard = true;
    stopWorker();
    // Nothing of a cancelled recording is to be salvaged.
    if (m_marker)
        m_marker->remove();
    if (m_status == Status::writing || m_status == Status::unknown)
        m_status = Status::cancelled;
}

void MovieFileEncoder::abandonWriting() {
    m_discard = true;
    stopWorker();
    // Closing the descriptor is all: what the muxer still holds is an incomplete fragment.
    m_output.reset();
    // The marker stays, unlocked: the movie is nobody's now, until it is salvaged.
    m_marker.reset();
    if (m_status == Status::writing || m_status == Status::unknown)
        m_status = Status::cancelled;
}
