#include "media/export/ExportWriter.h"

#include "core/support/Log.h"
#include "media/FFmpegHandles.h"
#include "media/encoding/AudioTrackEncoder.h"
#include "media/encoding/VideoTrackEncoder.h"
#include "media/export/AudioPacketSource.h"
#include "media/export/GifEncoder.h"

#include <pthread.h>

#include <algorithm>

namespace {
// One line when the hardware that was asked for is not what encodes, and why.
void reportFallback(const EncoderTuning& tuning, const std::string& used) {
    const std::string& family = tuning.preferredHardware;
    if (family.empty() || used.find(family) != std::string::npos)
        return;
    std::error_code ignored;
    bool device = false;
    if (family == "vaapi") {
        for (const auto& entry : std::filesystem::directory_iterator("/dev/dri", ignored))
            device = device || entry.path().filename().string().rfind("renderD", 0) == 0;
    } else {
        device = std::filesystem::exists("/dev/nvidia0", ignored);
    }
    logLine("⚠️ No working {} encoder ({}); encoding with {}", family,
            device ? "its test frame failed" : "no device for it on this machine", used);
}
} // namespace

ExportWriter::ExportWriter() = default;

std::unique_ptr<ExportWriter> ExportWriter::create(const std::filesystem::path& path,
                                                   const ExportEncoding& encoding,
                                                   std::string& error,
                                                   const AudioPacketSource* copiedAudio) {
    // The encoders report settings and statistics at the info level for every file.
    av_log_set_level(std::min(av_log_get_level(), AV_LOG_ERROR));
    std::unique_ptr<ExportWriter> writer(new ExportWriter());
    writer->m_path = path;
    if (encoding.fileType == ExportEncoding::FileType::gif) {
        writer->m_gif =
            GifEncoder::create(path, encoding.video.width, encoding.video.height, error);
        if (!writer->m_gif)
            return nullptr;
        writer->m_fileCreated = true;
        writer->m_worker = std::thread([w = writer.get()] { w->run(); });
        return writer;
    }
    const bool proRes = encoding.video.codec == VideoCodecSettings::Codec::proRes4444 ||
                        encoding.video.codec == VideoCodecSettings::Codec::proRes4444XQ;
    const char* muxerName =
        encoding.fileType == ExportEncoding::FileType::mp4 && !proRes ? "mp4" : "mov";
    if (int result =
            avformat_alloc_output_context2(&writer->m_muxer, nullptr, muxerName, path.c_str());
        result < 0) {
        error = ffmpegErrorText(result);
        return nullptr;
    }
    std::string encoderError;
    writer->m_video =
        VideoTrackEncoder::create(encoding.video, encoding.tuning, true, encoderError);
    if (!writer->m_video) {
        error = "no video encoder: " + encoderError;
        return nullptr;
    }
    reportFallback(encoding.tuning, writer->m_video->encoderName());
    if (encoding.audio && !copiedAudio) {
        writer->m_audio = AudioTrackEncoder::create(*encoding.audio, true, encoderError);
        if (!writer->m_audio) {
            error = "no audio encoder: " + encoderError;
            return nullptr;
        }
    }
    AVFormatContext* muxer = writer->m_muxer;
    auto addStream = [muxer](const AVCodecContext* context) -> int {
        AVStream* stream = avformat_new_stream(muxer, nullptr);
        if (!stream || avcodec_parameters_from_context(stream->codecpar, context) < 0)
            return -1;
        stream->time_base = context->time_base;
        if (context->codec_type == AVMEDIA_TYPE_VIDEO)
            stream->avg_frame_rate = context->framerate;
        return stream->index;
    };
    writer->m_videoStream = addStream(writer->m_video->context());
    if (writer->m_audio)
        writer->m_audioStream = addStream(writer->m_audio->context());
    if (copiedAudio) {
        AVStream* stream = avformat_new_stream(muxer, nullptr);
        if (stream && avcodec_parameters_copy(stream->codecpar, copiedAudio->parameters()) >= 0) {
            stream->codecpar->codec_tag = 0;
            stream->time_base = AVRational{copiedAudio->timeBaseNum(), copiedAudio->timeBaseDen()};
            writer->m_copiedAudioStream = stream->index;
            writer->m_copiedTimeBaseNum = copiedAudio->timeBaseNum();
            writer->m_copiedTimeBaseDen = copiedAudio->timeBaseDen();
        }
    }
    if (writer->m_videoStream < 0 || (writer->m_audio && writer->m_audioStream < 0) ||
        (copiedAudio && writer->m_copiedAudioStream < 0)) {
        error = "cannot add the tracks";
        return nullptr;
    }
    if (int result = avio_open(&muxer->pb, path.c_str(), AVIO_FLAG_WRITE); result < 0) {
        error = path.string() + ": " + ffmpegErrorText(result);
        return nullptr;
    }
    writer->m_fileCreated = true;
    AVDictionary* options = nullptr;
    if (encoding.shouldOptimizeForNetworkUse)
        av_dict_set(&options, "movflags", "+faststart", 0);
    const int result = avformat_write_header(muxer, &options);
    av_dict_free(&options);
    if (result < 0) {
        error = path.string() + ": " + ffmpegErrorText(result);
        writer->cancel();
        return nullptr;
    }
    writer->m_worker = std::thread([w = writer.get()] { w->run(); });
    return writer;
}

ExportWriter::~ExportWriter() {
    if (!m_stopped)
        cancel();
    if (m_muxer)
        AVOutputFormatContextPtr release(m_muxer);
}

std::string ExportWriter::videoEncoderName() const {
    return m_gif ? "gif" : m_video ? m_video->encoderName() : std::string();
}

bool ExportWriter::appendVideo(VideoFrame frame, int64_t pts) {
    if (m_failed || frame.isNull())
        return false;
    return m_queue.push(Job{std::move(frame), {}, pts, 0, {}});
}

bool ExportWriter::appendAudio(AudioBuffer buffer, double startSeconds) {
    if (m_failed || !m_audio || m_gif || buffer.isNull())
        return !m_failed;
    return m_queue.push(Job{{}, std::move(buffer), 0, startSeconds, {}});
}

bool ExportWriter::appendAudioPacket(std::shared_ptr<AVPacket> packet) {
    if (m_failed || m_copiedAudioStream < 0 || !packet)
        return !m_failed;
    Job job;
    job.packet = std::move(packet);
    return m_queue.push(std::move(job));
}

void ExportWriter::run() {
    pthread_setname_np(pthread_self(), "ExportWriter");
    while (std::optional<Job> job = m_queue.pop()) {
        if (m_failed)
            continue;
        int result = 0;
        if (job->packet) {
            AVStream* stream = m_muxer->streams[m_copiedAudioStream];
            av_packet_rescale_ts(job->packet.get(),
                                 AVRational{m_copiedTimeBaseNum, m_copiedTimeBaseDen},
                                 stream->time_base);
            job->packet->stream_index = m_copiedAudioStream;
            result = av_interleaved_write_frame(m_muxer, job->packet.get());
        } else if (m_gif) {
            if (!job->video.isNull()) {
                result = m_gif->add(job->video, job->pts);
                m_encodedVideoFrames++;
            }
        } else if (!job->video.isNull()) {
            result = m_video->encode(job->video, job->pts,
                                     [this](AVPacket* packet) { return write(packet, true); });
            m_encodedVideoFrames++;
        } else {
            result = m_audio->encode(job->audio, job->audioStart,
                                     [this](AVPacket* packet) { return write(packet, false); });
        }
        if (result < 0)
            fail(ffmpegErrorText(result));
    }
}

int ExportWriter::write(AVPacket* packet, bool video) {
    const AVCodecContext* context = video ? m_video->context() : m_audio->context();
    AVStream* stream = m_muxer->streams[video ? m_videoStream : m_audioStream];
    av_packet_rescale_ts(packet, context->time_base, stream->time_base);
    packet->stream_index = stream->index;
    return av_interleaved_write_frame(m_muxer, packet);
}

void ExportWriter::fail(const std::string& text) {
    {
        std::lock_guard lock(m_errorMutex);
        if (!m_error)
            m_error = text;
    }
    m_failed = true;
}

std::optional<std::string> ExportWriter::error() const {
    std::lock_guard lock(m_errorMutex);
    return m_error;
}

void ExportWriter::stopWorker() {
    m_queue.close();
    if (m_worker.joinable())
        m_worker.join();
}

bool ExportWriter::finish() {
    stopWorker();
    m_stopped = true;
    if (m_gif) {
        if (!m_failed) {
            if (int result = m_gif->finish(); result < 0)
                fail(ffmpegErrorText(result));
        }
        m_gif.reset();
        if (m_failed) {
            std::error_code ignored;
            std::filesystem::remove(m_path, ignored);
        }
        return !m_failed;
    }
    if (!m_failed) {
        int result = m_video->flush([this](AVPacket* packet) { return write(packet, true); });
        if (result >= 0 && m_audio)
            result = m_audio->flush([this](AVPacket* packet) { return write(packet, false); });
        if (result >= 0)
            result = av_write_trailer(m_muxer);
        if (result < 0)
            fail(ffmpegErrorText(result));
    }
    if (m_muxer->pb) {
        if (int result = avio_closep(&m_muxer->pb); result < 0)
            fail(ffmpegErrorText(result));
    }
    if (m_failed) {
        std::error_code ignored;
        std::filesystem::remove(m_path, ignored);
    }
    return !m_failed;
}

void ExportWriter::cancel() {
    m_failed = true;
    stopWorker();
    m_stopped = true;
    m_gif.reset();
    if (m_muxer && m_muxer->pb)
        avio_closep(&m_muxer->pb);
    std::error_code ignored;
    if (m_fileCreated)
        std::filesystem::remove(m_path, ignored);
}
