#include "media/MediaWriter.h"

#include "MovieProbe.h"
#include "SyntheticMedia.h"
#include "media/AlphaRecordingError.h"
#include "support/ChildProcess.h"
#include "support/EventLoop.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace {
constexpr int fps = 30;
const MediaTime frameDuration = MediaTime::make(1, fps);

MediaTime frameTime(int index, MediaTime base = MediaTime::zero()) {
    return base + MediaTime::make(index, fps);
}

WriterConfiguration smallMovie(const std::filesystem::path& path,
                               OutputFormat format = OutputFormat::mov) {
    WriterConfiguration configuration;
    configuration.outputURL = path;
    configuration.outputFormat = format;
    WriterConfiguration::VideoSettings video;
    video.width = 160;
    video.height = 120;
    video.frameRate = fps;
    video.colorSpace = WriterConfiguration::VideoSettings::ColorSpaceSettings::rec709();
    configuration.videoSettings = video;
    return configuration;
}

// Generous: the encoder shares the machine with other tests.
constexpr auto busyWorkerBound = std::chrono::seconds(30);

// Appends one frame, waiting while the worker is busy, as a test may (capture never does).
bool appendWaiting(MediaWriter& writer, const VideoFrame& frame) {
    const auto deadline = std::chrono::steady_clock::now() + busyWorkerBound;
    while (std::chrono::steady_clock::now() < deadline) {
        int refusals = writer.videoAppendFailureCount();
        if (writer.appendVideoBuffer(frame))
            return true;
        if (writer.hasFailed() || writer.videoAppendFailureCount() == refusals)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
}

bool appendAudioWaiting(MediaWriter& writer, const AudioBuffer& buffer, int track,
                        bool microphone = false) {
    const auto deadline = std::chrono::steady_clock::now() + busyWorkerBound;
    while (std::chrono::steady_clock::now() < deadline) {
        if (writer.appendAudioBuffer(buffer, track, microphone))
            return true;
        if (writer.hasFailed())
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
}

// Frames [first, last) of a moving picture, each with 1/30 s of tone, after `base`.
void appendPictureAndTone(MediaWriter& writer, int first, int last,
                          MediaTime base = MediaTime::zero()) {
    for (int i = first; i < last; ++i) {
        ASSERT_TRUE(
            appendWaiting(writer, movingPicture(160, 120, i, frameTime(i, base), frameDuration)));
        ASSERT_TRUE(appendAudioWaiting(writer, tone(1600, i * 1600, frameTime(i, base)), 0));
    }
}

void startAt(MediaWriter& writer, const WriterConfiguration& configuration, MediaTime start) {
    writer.configure(configuration);
    writer.startWriting();
    writer.startSession(start);
}

// AAC starts with 1024 priming samples at a negative time; the muxer shifts every track by
// 1024/48000 s to keep times positive and stretches each track's first sample to cover the
// shift. Steps are therefore checked from the second sample on.
constexpr double aacPriming = 1024.0 / 48000;

double largestStep(const std::vector<double>& times) {
    double largest = 0;
    for (size_t i = 2; i < times.size(); ++i)
        largest = std::max(largest, times[i] - times[i - 1]);
    return largest;
}
} // namespace

// --- The bitrate; expected values worked by hand. ---

TEST(MediaWriterBitrate, FollowsTheFormulaAcrossQualitiesAndSizes) {
    // 1920×1080, 30 fps, h264, high: 2,073,600 × 3.75 × 0.9 × 1.0.
    EXPECT_EQ(MediaWriter::calculateBitrate(1920, 1080, 30, VideoQuality::high, VideoEncoder::h264),
              6998400);
    // Medium: S = 1 − log10(1440 × 3.75)/5 = 0.2535, 3S = 0.76 is capped at 0.6 → × 0.6.
    EXPECT_EQ(
        MediaWriter::calculateBitrate(1920, 1080, 30, VideoQuality::medium, VideoEncoder::h264),
        4199040);
    // 1×1 counts as 600×600: 360,000 × 3.75 × 0.9.
    EXPECT_EQ(MediaWriter::calculateBitrate(1, 1, 30, VideoQuality::high, VideoEncoder::h264),
              1215000);
    // 8192² at 240 fps, low: S = 1 − log10(8192 × 30)/5 < 0, so the factor stops at 0.1;
    // 67,108,864 × 30 × 0.5 × 0.1 for h265.
    EXPECT_EQ(MediaWriter::calculateBitrate(8192, 8192, 240, VideoQuality::low, VideoEncoder::h265),
              100663296);
    // 1×1 at 1 fps, low, h265: 360,000 × 0.125 × 0.5 × 0.625 = 14,062, raised to the floor.
    EXPECT_EQ(MediaWriter::calculateBitrate(1, 1, 1, VideoQuality::low, VideoEncoder::h265),
              200000);
}

TEST(MediaWriterBitrate, MediumStaysBetweenFourAndSixTenthsOfHigh) {
    for (int side : {100, 640, 1920, 4096, 8192}) {
        for (int rate : {1, 30, 60, 240}) {
            double high = MediaWriter::calculateBitrate(side, side, rate, VideoQuality::high,
                                                        VideoEncoder::h264);
            double medium = MediaWriter::calculateBitrate(side, side, rate, VideoQuality::medium,
                                                          VideoEncoder::h264);
            if (medium > 200000) {
                EXPECT_GE(medium / high, 0.4 - 1e-6) << side << " " << rate;
                EXPECT_LE(medium / high, 0.6 + 1e-6) << side << " " << rate;
            }
        }
    }
}

// --- Calling order and the error texts. ---

TEST(MediaWriterState, OperationsOutOfOrderThrow) {
    ScratchFolder folder;
    MediaWriter writer;
    EXPECT_THROW(writer.startWriting(), MediaWriterError) << "without configure";
    writer.configure(smallMovie(folder.file("order.mov")));
    EXPECT_THROW(writer.startSession(MediaTime::zero()), MediaWriterError) << "before start";
    writer.startWriting();
    EXPECT_THROW(writer.startWriting(), MediaWriterError) << "second start";
    try {
        writer.finishWriting();
        FAIL() << "finishWriting before startSession";
    } catch (const MediaWriterError& error) {
        EXPECT_EQ(error.kind(), MediaWriterError::Kind::notWriting);
    }
    writer.cancel();
}

TEST(MediaWriterState, AMissingFolderFailsConfigureNamingTheFile) {
    MediaWriter writer;
    WriterConfiguration configuration = smallMovie("/nonexistent-folder-for-test/a.mov");
    try {
        writer.configure(configuration);
        FAIL() << "configure into a missing folder";
    } catch (const MediaWriterError& error) {
        EXPECT_EQ(error.errorDescription(),
                  "Failed to initialize media writer: /nonexistent-folder-for-test/a.mov: No such "
                  "file or directory");
    }
    writer.cancel(); // no asset writer: only the removal is attempted, and nothing throws
    EXPECT_FALSE(writer.isWriting());
}

TEST(MediaWriterState, AlphaRulesRunBeforeAnyEncoderIsMade) {
    ScratchFolder folder;
    WriterConfiguration configuration = smallMovie(folder.file("alpha.mov"));
    configuration.videoSettings->hasAlphaChannel = true;
    configuration.videoSettings->alphaCodec = AlphaVideoCodec::proRes4444;
    configuration.videoSettings->width = 9000;
    MediaWriter writer;
    try {
        writer.configure(configuration);
        FAIL() << "an alpha size above the maximum";
    } catch (const AlphaRecordingError& error) {
        EXPECT_EQ(error.kind(), AlphaRecordingError::Kind::resolutionTooLarge);
    }
}

TEST(MediaWriterState, SecondStartSessionKeepsTheFirstTimes) {
    ScratchFolder folder;
    MediaWriter writer;
    startAt(writer, smallMovie(folder.file("twice.mov")), MediaTime::make(5, 1));
    auto host = writer.sessionStartHostTimeValue();
    writer.startSession(MediaTime::make(9, 1));
    EXPECT_EQ(*writer.sessionStartTimeValue(), MediaTime::make(5, 1));
    EXPECT_EQ(*writer.sessionStartHostTimeValue(), *host);
    writer.cancel();
}

// --- Appends: refusals, lastPTS and offsets. ---

TEST(MediaWriterAppend, RefusalsBeforeTheSessionAreCountedAndMicAudioIsRefused) {
    ScratchFolder folder;
    MediaWriter writer;
    writer.configure(smallMovie(folder.file("early.mov")));
    writer.startWriting();
    VideoFrame frame = movingPicture(160, 120, 0, MediaTime::zero(), frameDuration);
    for (int i = 0; i < 5; ++i)
        EXPECT_FALSE(writer.appendVideoBuffer(frame));
    EXPECT_EQ(writer.videoAppendFailureCount(), 5);
    // A microphone block before the session has no times to be moved by and is not written.
    EXPECT_FALSE(writer.appendAudioBuffer(tone(480, 0, MediaTime::hostTimeNow()), 0, true));
    EXPECT_EQ(writer.micAudioDebugCount(), 0);
    writer.cancel();
}

TEST(MediaWriterAppend, LastPTSIsTheEndOfTheSampleMinusTheOffset) {
    ScratchFolder folder;
    MediaWriter writer;
    startAt(writer, smallMovie(folder.file("pts.mov")), MediaTime::zero());
    ASSERT_TRUE(
        appendWaiting(writer, movingPicture(160, 120, 0, MediaTime::make(1, 1), frameDuration)));
    EXPECT_EQ(*writer.lastPresentationTime(), MediaTime::make(31, 30)); // 1 s + 1/30 s
    // A zero-duration frame leaves lastPTS at its own time.
    ASSERT_TRUE(appendWaiting(
        writer, movingPicture(160, 120, 1, MediaTime::make(2, 1), MediaTime::make(0, 30))));
    EXPECT_EQ(*writer.lastPresentationTime(), MediaTime::make(2, 1));
    writer.addTimeOffset(MediaTime::make(300, 600));
    writer.addTimeOffset(MediaTime::make(1, 10));
    EXPECT_EQ(writer.currentTimeOffset(), MediaTime::make(6, 10));
    ASSERT_TRUE(
        appendWaiting(writer, movingPicture(160, 120, 2, MediaTime::make(3, 1), frameDuration)));
    EXPECT_EQ(*writer.lastPresentationTime(),
              MediaTime::make(3, 1) - MediaTime::make(6, 10) + frameDuration);
    // The pixel-buffer route records the adjusted time without the duration.
    ASSERT_TRUE(writer.appendVideoPixelBuffer(
        movingPicture(160, 120, 3, MediaTime::invalid(), frameDuration), MediaTime::make(4, 1)));
    EXPECT_EQ(*writer.lastPresentationTime(), MediaTime::make(34, 10));
    writer.finishWriting();
}

TEST(MediaWriterAppend, AFullQueueRefusesAtOnceAndOnlyAcceptedFramesAreWritten) {
    ScratchFolder folder;
    EncoderTuning tuning;
    tuning.videoQueueDepth = 2;
    MediaWriter writer(tuning);
    WriterConfiguration configuration = smallMovie(folder.file("full.mov"));
    configuration.videoSettings->width = 1280;
    configuration.videoSettings->height = 720;
    startAt(writer, configuration, MediaTime::zero());
    VideoFrame picture = movingPicture(1280, 720, 0, MediaTime::zero(), frameDuration);
    int accepted = 0;
    for (int i = 0; i < 40; ++i)
        accepted += writer.appendVideoBuffer(
            picture.withTiming(frameTime(i), frameDuration, MediaTime::invalid()));
    // An append that waited for room would have been accepted.
    EXPECT_LT(accepted, 40);
    EXPECT_EQ(writer.videoAppendFailureCount(), 40 - accepted);
    EXPECT_EQ(writer.droppedVideoFrameCount(), 40 - accepted);
    writer.finishWriting();
    auto file = probeMovie(folder.file("full.mov"));
    ASSERT_TRUE(file);
    EXPECT_EQ(int(file->first(AVMEDIA_TYPE_VIDEO)->packetTimes.size()), accepted);
}

// --- Files read back. ---

TEST(MediaWriterFile, VideoAndToneReadBackWithCountsAndContinuousTimes) {
    for (OutputFormat format : {OutputFormat::mov, OutputFormat::mp4}) {
        ScratchFolder folder;
        std::filesystem::path path = folder.file(format == OutputFormat::mov ? "a.mov" : "a.mp4");
        MediaWriter writer;
        MediaTime start = MediaTime::make(1000, 1); // capture clocks never start at zero
        startAt(writer, smallMovie(path, format), start);
        appendPictureAndTone(writer, 0, 60, start);
        EXPECT_EQ(writer.finishWriting(), path);
        auto file = probeMovie(path);
        ASSERT_TRUE(file);
        const ProbedStream* video = file->first(AVMEDIA_TYPE_VIDEO);
        const ProbedStream* audio = file->first(AVMEDIA_TYPE_AUDIO);
        ASSERT_TRUE(video && audio);
        EXPECT_EQ(video->codec, "h264");
        EXPECT_EQ(video->width, 160);
        // Rec. 709 primaries and transfer as configured; the matrix is the one the conversion used.
        EXPECT_EQ(video->colorPrimaries, "bt709");
        EXPECT_EQ(video->colorTransfer, "bt709");
        EXPECT_EQ(video->colorMatrix, "smpte170m");
        ASSERT_EQ(video->packetTimes.size(), 60u);
        EXPECT_NEAR(video->packetTimes.front(), 0.0, 1e-4);
        EXPECT_NEAR(video->packetTimes[1], 1.0 / 30 + aacPriming, 1e-4);
        EXPECT_NEAR(video->packetTimes.back(), 59.0 / 30 + aacPriming, 1e-4);
        EXPECT_LT(largestStep(video->packetTimes), 1.0 / 30 + 1e-4);
        EXPECT_EQ(audio->codec, "aac");
        EXPECT_EQ(audio->sampleRate, 48000);
        EXPECT_EQ(audio->channels, 2);
        EXPECT_NEAR(audio->endSeconds, 2.0 + aacPriming, 0.03);
        // The finished file knows its length without being read through.
        EXPECT_NEAR(file->durationSeconds, 2.0, 0.1);
    }
}

TEST(MediaWriterFile, APauseLeavesNoGapInVideoOrAudio) {
    ScratchFolder folder;
    MediaWriter writer;
    std::filesystem::path path = folder.file("pause.mov");
    startAt(writer, smallMovie(path), MediaTime::zero());
    // One second, a pause of 1.5 s (no frames), then one more second.
    appendPictureAndTone(writer, 0, 30);
    writer.addTimeOffset(MediaTime::make(900, 600));
    appendPictureAndTone(writer, 75, 105);
    writer.finishWriting();
    auto file = probeMovie(path);
    ASSERT_TRUE(file);
    const ProbedStream* video = file->first(AVMEDIA_TYPE_VIDEO);
    ASSERT_EQ(video->packetTimes.size(), 60u);
    EXPECT_LT(largestStep(video->packetTimes), 1.0 / 30 + 1e-4);
    EXPECT_NEAR(video->packetTimes.back(), 59.0 / 30 + aacPriming, 1e-4);
    const ProbedStream* audio = file->first(AVMEDIA_TYPE_AUDIO);
    EXPECT_LT(largestStep(audio->packetTimes), 1024.0 / 48000 + 1e-4);
    EXPECT_NEAR(audio->endSeconds, 2.0 + aacPriming, 0.03);
}

TEST(MediaWriterFile, MicrophoneAudioMovesFromHostTimeToSessionTimeThenMinusTheOffset) {
    ScratchFolder folder;
    MediaWriter writer;
    std::filesystem::path path = folder.file("mic.mp4");
    WriterConfiguration configuration = smallMovie(path, OutputFormat::mp4);
    configuration.audioSettings.format = WriterConfiguration::AudioFormat::flac; // no encoder delay
    MediaTime sessionStart = MediaTime::make(777, 1);
    startAt(writer, configuration, sessionStart);
    MediaTime hostStart = *writer.sessionStartHostTimeValue();
    writer.addTimeOffset(MediaTime::make(120, 600));
    // Host time 0.5 s after the session began: session time 777.5 s, file time 0.5 − 0.2 = 0.3 s.
    ASSERT_TRUE(
        appendAudioWaiting(writer, tone(4800, 0, hostStart + MediaTime::make(1, 2)), 0, true));
    EXPECT_EQ(writer.micAudioDebugCount(), 1);
    writer.finishWriting();
    // FLAC is lossless and has no priming: the tone's first sample, sin(0) = 0, sits exactly at
    // 0.3 s × 48000 = 14400, so the first audible one is 14401; silence fills the track before it.
    std::vector<float> samples = decodeFirstAudioChannel(path);
    EXPECT_EQ(firstSound(samples, 1e-4f), 14401);
    EXPECT_EQ(samples.size(), size_t(14400 + 4800));
}

TEST(MediaWriterFile, SeparateTracksMakeTwoAudioTracksAndTrackZeroTakesBothRoutes) {
    ScratchFolder folder;
    MediaWriter writer;
    std::filesystem::path path = folder.file("two.mov");
    WriterConfiguration configuration = smallMovie(path);
    configuration.separateAudioTracks = true;
    startAt(writer, configuration, MediaTime::zero());
    MediaTime hostStart = *writer.sessionStartHostTimeValue();
    appendPictureAndTone(writer, 0, 30);
    // The microphone route also names track 0; only an explicit 1 reaches the second track.
    ASSERT_TRUE(
        appendAudioWaiting(writer, tone(4800, 0, hostStart + MediaTime::make(1, 1)), 0, true));
    ASSERT_TRUE(appendAudioWaiting(writer, tone(9600, 0, MediaTime::make(1, 2)), 1));
    writer.finishWriting();
    auto file = probeMovie(path);
    ASSERT_TRUE(file);
    std::vector<const ProbedStream*> audio;
    for (const ProbedStream& stream : file->streams) {
        if (stream.type == AVMEDIA_TYPE_AUDIO)
            audio.push_back(&stream);
    }
    ASSERT_EQ(audio.size(), 2u);
    // The system tone runs to 1.0 s, the microphone block to 1.1 s, both on the first track.
    EXPECT_NEAR(audio[0]->endSeconds, 1.1 + aacPriming, 0.03);
    // The second track holds only the explicit block: silence, then 0.5 s to 0.7 s of tone.
    EXPECT_NEAR(audio[1]->endSeconds, 0.7 + aacPriming, 0.03);
    std::vector<float> second = decodeFirstAudioChannel(path, 1);
    EXPECT_NEAR(double(firstSound(second)) / 48000, 0.5 + aacPriming, 0.005);
}

TEST(MediaWriterFile, AFrameNotAfterThePreviousOneIsDroppedWithoutFailingTheFile) {
    ScratchFolder folder;
    std::filesystem::path path = folder.file("repeat.mov");
    MediaWriter writer;
    startAt(writer, smallMovie(path), MediaTime::zero());
    for (int i : {0, 1, 1, 3, 2, 4})
        ASSERT_TRUE(appendWaiting(writer, movingPicture(160, 120, i, frameTime(i), frameDuration)));
    writer.finishWriting();
    EXPECT_FALSE(writer.hasFailed());
    auto file = probeMovie(path);
    ASSERT_TRUE(file);
    // The repeated 1 and the late 2 are dropped: 0, 1, 3, 4 remain.
    EXPECT_EQ(file->first(AVMEDIA_TYPE_VIDEO)->packetTimes.size(), 4u);
}

TEST(MediaWriterFile, AudioHolesAreFilledOverlapsCutAndJitterIgnored) {
    ScratchFolder folder;
    std::filesystem::path path = folder.file("holes.mp4");
    WriterConfiguration configuration;
    configuration.outputURL = path;
    configuration.outputFormat = OutputFormat::mp4;
    configuration.audioSettings.format = WriterConfiguration::AudioFormat::flac; // exact samples
    MediaWriter writer;
    startAt(writer, configuration, MediaTime::zero());
    auto block = [&](int64_t firstSample, MediaTime at) {
        return appendAudioWaiting(writer, tone(4800, firstSample, at), 0);
    };
    // 0.1 s blocks at 0.0, 0.1, 0.2; the one at 0.3 is lost; then 0.4.
    for (int i : {0, 1, 2, 4})
        ASSERT_TRUE(block(i * 4800, MediaTime::make(i, 10)));
    // A block stamped 0.45 s overlaps the previous one (which ends at 0.5 s) by 2400 samples.
    ASSERT_TRUE(block(21600, MediaTime::make(45, 100)));
    // 5 ms late: timestamp jitter, appended right after the previous block.
    ASSERT_TRUE(block(26400, MediaTime::make(555, 1000)));
    writer.finishWriting();
    std::vector<float> samples = decodeFirstAudioChannel(path);
    // 0.5 s with the hole filled, + 2400 after the cut overlap, + 4800 for the late block.
    ASSERT_EQ(samples.size(), size_t(24000 + 2400 + 4800));
    float loudestInHole = 0;
    for (size_t i = 14400; i < 19200; ++i)
        loudestInHole = std::max(loudestInHole, std::abs(samples[i]));
    EXPECT_LT(loudestInHole, 1e-4f);
    EXPECT_GT(std::abs(samples[14399]) + std::abs(samples[14398]), 1e-3f);
    EXPECT_GT(std::abs(samples[19201]) + std::abs(samples[19202]), 1e-3f);
    auto file = probeMovie(path);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->first(AVMEDIA_TYPE_VIDEO), nullptr);
}

TEST(MediaWriterFile, EveryAudioFormatAndH265ReadBack) {
    struct Case {
        WriterConfiguration::AudioFormat format;
        std::string codec;
    };
    for (const Case& item : {Case{WriterConfiguration::AudioFormat::alac, "alac"},
                             Case{WriterConfiguration::AudioFormat::flac, "flac"},
                             Case{WriterConfiguration::AudioFormat::opus, "opus"}}) {
        ScratchFolder folder;
        std::filesystem::path path = folder.file("sound.mov");
        WriterConfiguration configuration = smallMovie(path);
        configuration.videoSettings->codec = VideoEncoder::h265;
        configuration.audioSettings.format = item.format;
        MediaWriter writer;
        startAt(writer, configuration, MediaTime::zero());
        appendPictureAndTone(writer, 0, 15);
        writer.finishWriting();
        auto file = probeMovie(path);
        ASSERT_TRUE(file) << item.codec;
        EXPECT_EQ(file->first(AVMEDIA_TYPE_VIDEO)->codec, "hevc");
        EXPECT_EQ(file->first(AVMEDIA_TYPE_VIDEO)->packetTimes.size(), 15u);
        EXPECT_EQ(file->first(AVMEDIA_TYPE_AUDIO)->codec, item.codec);
        // Up to one codec frame of padding at the end (ALAC's are 4096 samples, 85 ms).
        EXPECT_NEAR(file->first(AVMEDIA_TYPE_AUDIO)->endSeconds, 0.5, 0.09) << item.codec;
    }
}

// One 64x48 picture written with an alpha codec; the file's path.
std::filesystem::path writeAlphaPicture(const ScratchFolder& folder, AlphaVideoCodec codec,
                                        const VideoFrame& picture) {
    std::filesystem::path path = folder.file("alpha.mov");
    WriterConfiguration configuration = smallMovie(path);
    configuration.videoSettings->width = 64;
    configuration.videoSettings->height = 48;
    configuration.videoSettings->hasAlphaChannel = true;
    configuration.videoSettings->alphaCodec = codec;
    MediaWriter writer;
    startAt(writer, configuration, MediaTime::zero());
    EXPECT_TRUE(appendWaiting(writer, picture));
    writer.finishWriting();
    return path;
}

// Alpha is coded with 10 bits (255 → 1023) and decoded to 12 (1023 << 2 = 4092).
int decodedAlphaAt(const AVFrame& decoded, int x, int y) {
    return reinterpret_cast<const uint16_t*>(decoded.data[3] + y * decoded.linesize[3])[x];
}

TEST(MediaWriterFile, ProRes4444KeepsTheAlphaPlane) {
    for (AlphaVideoCodec codec : {AlphaVideoCodec::proRes4444, AlphaVideoCodec::proRes4444XQ}) {
        ScratchFolder folder;
        // Left half fully transparent, right half opaque.
        VideoFrame picture = movingPicture(64, 48, 0, MediaTime::zero(), frameDuration);
        for (int y = 0; y < 48; ++y) {
            for (int x = 0; x < 32; ++x)
                picture.mutableBytes()[y * picture.bytesPerRow() + x * 4 + 3] = 0;
        }
        const std::filesystem::path path = writeAlphaPicture(folder, codec, picture);
        auto file = probeMovie(path);
        ASSERT_TRUE(file);
        EXPECT_EQ(file->first(AVMEDIA_TYPE_VIDEO)->codec, "prores");
        EXPECT_EQ(file->first(AVMEDIA_TYPE_VIDEO)->codecTag,
                  codec == AlphaVideoCodec::proRes4444 ? "ap4h" : "ap4x");
        AVFramePtr decoded = decodeFirstPicture(path);
        ASSERT_TRUE(decoded);
        const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(AVPixelFormat(decoded->format));
        ASSERT_TRUE(descriptor->flags & AV_PIX_FMT_FLAG_ALPHA);
        ASSERT_EQ(descriptor->comp[3].depth, 12);
        EXPECT_EQ(decodedAlphaAt(*decoded, 5, 20), 0);
        EXPECT_EQ(decodedAlphaAt(*decoded, 60, 20), 4092);
    }
}

// A screen grab's fourth byte is the server's padding, usually 0: with an alpha codec it must
// come out opaque, not as a transparent recording.
TEST(MediaWriterFile, PictureWithoutAlphaIsOpaqueInAnAlphaFile) {
    ScratchFolder folder;
    VideoFrame grab = VideoFrame::allocate(64, 48, MediaTime::zero(), frameDuration,
                                           VideoFrame::Alpha::undefined);
    ASSERT_FALSE(grab.hasAlpha());
    for (int y = 0; y < 48; ++y) {
        auto* row = reinterpret_cast<uint32_t*>(grab.mutableBytes() + y * grab.bytesPerRow());
        std::fill(row, row + 64, 0x00404040u); // grey, padding byte 0
    }
    AVFramePtr decoded =
        decodeFirstPicture(writeAlphaPicture(folder, AlphaVideoCodec::proRes4444, grab));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decodedAlphaAt(*decoded, 5, 20), 4092);
    EXPECT_EQ(decodedAlphaAt(*decoded, 60, 20), 4092);
}

TEST(MediaWriterFile, CancelRemovesTheFile) {
    ScratchFolder folder;
    std::filesystem::path path = folder.file("gone.mov");
    MediaWriter writer;
    startAt(writer, smallMovie(path), MediaTime::zero());
    ASSERT_TRUE(
        appendWaiting(writer, movingPicture(160, 120, 0, MediaTime::zero(), frameDuration)));
    ASSERT_TRUE(std::filesystem::exists(path));
    writer.cancel();
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_FALSE(writer.isWriting());
    EXPECT_FALSE(writer.appendVideoBuffer(movingPicture(160, 120, 1, frameTime(1), frameDuration)));
}

// Two writers asking for the same name, as two recordings started in the same second do: both
// movies are written whole, the second under a numbered name.
TEST(MediaWriterFile, TwoRecordingsOfOneNameBothSurvive) {
    ScratchFolder folder;
    const std::filesystem::path path = folder.file("Recording at noon.mov");
    MediaWriter first, second;
    for (MediaWriter* writer : {&first, &second}) {
        writer->configure(smallMovie(path));
        writer->startWriting();
        writer->startSession(MediaTime::zero());
    }
    EXPECT_EQ(*second.outputURL(), folder.file("Recording at noon (2).mov"));
    for (int i = 0; i < 3; ++i) {
        for (MediaWriter* writer : {&first, &second})
            ASSERT_TRUE(
                writer->appendVideoBuffer(movingPicture(160, 120, i, frameTime(i), frameDuration)));
    }
    EXPECT_EQ(first.finishWriting(), path);
    EXPECT_EQ(second.finishWriting(), folder.file("Recording at noon (2).mov"));
    for (const auto& written : {path, folder.file("Recording at noon (2).mov")}) {
        auto file = probeMovie(written);
        ASSERT_TRUE(file) << written;
        EXPECT_EQ(file->first(AVMEDIA_TYPE_VIDEO)->packetTimes.size(), 3u) << written;
    }
}

// --- Failure and crashes, in child processes so limits and kills touch only them. ---

namespace {
// Runs body in a forked child; its exit status is returned (or -1 if it died by a signal or had
// to be killed after two minutes).
template <typename Body>
int inChild(Body body) {
    pid_t child = fork();
    if (child == 0) {
        dieWithParent();
        int code = 1;
        try {
            code = body();
        } catch (...) {
            code = 99;
        }
        _exit(code);
    }
    const std::optional<int> status = waitForChild(child, std::chrono::minutes(2));
    return status && *status < 128 ? *status : -1;
}
} // namespace

TEST(MediaWriterFailure, AWriteErrorLatchesOnceWithTheSystemTextAndKeepsWhatWasWritten) {
    ScratchFolder folder;
    std::filesystem::path path = folder.file("limited.mov");
    constexpr rlim_t limit = 1024 * 1024;
    int result = inChild([&] {
        // The file size limit makes write() fail with EFBIG instead of killing the process.
        signal(SIGXFSZ, SIG_IGN);
        rlimit fileSize{limit, limit};
        setrlimit(RLIMIT_FSIZE, &fileSize);
        MediaWriter writer;
        WriterConfiguration configuration = smallMovie(path);
        configuration.videoSettings->width = 320;
        configuration.videoSettings->height = 240;
        startAt(writer, configuration, MediaTime::zero());
        // Noise does not compress, so the limit is reached within a few seconds of media.
        uint32_t seed = 1;
        for (int i = 0; i < 30 * 60 && !writer.hasFailed(); ++i) {
            VideoFrame frame = VideoFrame::allocate(320, 240, frameTime(i), frameDuration);
            for (int b = 0; b < frame.bytesPerRow() * 240; ++b)
                frame.mutableBytes()[b] = uint8_t((seed = seed * 1664525u + 1013904223u) >> 24);
            appendWaiting(writer, frame);
        }
        if (!writer.hasFailed() ||
            writer.lastError() != std::optional<std::string>("File too large"))
            return 2;
        if (writer.appendVideoBuffer(movingPicture(320, 240, 0, frameTime(5000), frameDuration)) ||
            writer.appendAudioBuffer(tone(480, 0, frameTime(5000)), 0))
            return 3;
        try {
            writer.finishWriting();
            return 4;
        } catch (const MediaWriterError& error) {
            return error.errorDescription() == "Writing failed: File too large" ? 0 : 5;
        }
    });
    EXPECT_EQ(result, 0) << "2: no latch or wrong text, 3: append after failure, 4/5: finish";
    EXPECT_LE(std::filesystem::file_size(path), limit);
    auto file = probeMovie(path);
    ASSERT_TRUE(file);
    EXPECT_GE(file->first(AVMEDIA_TYPE_VIDEO)->packetTimes.size(), 30u)
        << "the fragments before the error play";
}

namespace {
// Records in a child process that is killed without warning after three seconds, and checks
// what a player finds in the file.
void recordAndKill(OutputFormat format) {
    ScratchFolder folder;
    std::filesystem::path path =
        folder.file(format == OutputFormat::mp4 ? "killed.mp4" : "killed.mov");
    int progress[2];
    ASSERT_EQ(pipe(progress), 0);
    pid_t child = fork();
    if (child == 0) {
        dieWithParent();
        close(progress[0]);
        MediaWriter writer;
        startAt(writer, smallMovie(path, format), MediaTime::zero());
        auto begin = std::chrono::steady_clock::now();
        for (int i = 0;; ++i) {
            std::this_thread::sleep_until(begin + std::chrono::microseconds(i * 1000000 / fps));
            bool video =
                writer.appendVideoBuffer(movingPicture(160, 120, i, frameTime(i), frameDuration));
            bool audio = writer.appendAudioBuffer(tone(1600, i * 1600, frameTime(i)), 0);
            if (video && audio && write(progress[1], &i, sizeof i) < 0)
                _exit(1);
        }
    }
    close(progress[1]);
    int lastFrame = -1;
    int index = 0;
    // Let it record for three seconds, then kill it without warning. A child that stops
    // reporting progress is given up on after a generous minute.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    pollfd readable{progress[0], POLLIN, 0};
    while (lastFrame < 3 * fps && std::chrono::steady_clock::now() < deadline &&
           poll(&readable, 1, 100) >= 0) {
        if ((readable.revents & (POLLIN | POLLHUP)) == 0)
            continue;
        if (read(progress[0], &index, sizeof index) != sizeof index)
            break;
        lastFrame = index;
    }
    kill(child, SIGKILL);
    waitForChild(child, std::chrono::seconds(10));
    close(progress[0]);
    auto file = probeMovie(path);
    ASSERT_TRUE(file) << "the killed file must open";
    const ProbedStream* video = file->first(AVMEDIA_TYPE_VIDEO);
    const ProbedStream* audio = file->first(AVMEDIA_TYPE_AUDIO);
    ASSERT_TRUE(video && audio);
    double killedAt = double(lastFrame + 1) / fps;
    ASSERT_FALSE(video->packetTimes.empty());
    EXPECT_GE(video->endSeconds, killedAt - 2.0);
    EXPECT_GE(audio->endSeconds, killedAt - 2.0);
    // In step: both tracks end at the same fragment boundary, give or take one.
    EXPECT_NEAR(video->endSeconds, audio->endSeconds, 1.1);
    EXPECT_LT(largestStep(video->packetTimes), 1.0 / 30 + 1e-4);
}
} // namespace

TEST(MediaWriterFailure, AKilledRecordingPlaysToWithinTwoSecondsOfTheKill) {
    recordAndKill(OutputFormat::mp4);
    recordAndKill(OutputFormat::mov);
}

namespace {
// Where the video in a copy of a file still being written ends for a player, when its frames
// come every `interval` seconds (each shows until the next), or -1 when nothing plays.
double videoEndOfCopy(const std::filesystem::path& path, const std::filesystem::path& copy,
                      double interval) {
    std::error_code error;
    std::filesystem::copy_file(path, copy, std::filesystem::copy_options::overwrite_existing,
                               error);
    auto file = probeMovie(copy);
    const ProbedStream* video = file ? file->first(AVMEDIA_TYPE_VIDEO) : nullptr;
    return video && !video->packetTimes.empty() ? video->packetTimes.back() + interval : -1;
}
} // namespace

// A still screen sends a frame twice a second: whatever the codec and format, a copy of the
// file taken while it is written plays to within a second and a half of the newest frame, and
// the finished file keeps every frame at its time.
TEST(MediaWriterFailure, SparseFramesReachTheDiskWithinASecondAndAHalfForEveryCodec) {
    struct Case {
        OutputFormat format;
        VideoEncoder codec;
        std::optional<AlphaVideoCodec> alpha;
    };
    const Case cases[] = {{OutputFormat::mov, VideoEncoder::h264, {}},
                          {OutputFormat::mp4, VideoEncoder::h264, {}},
                          {OutputFormat::mov, VideoEncoder::h265, {}},
                          {OutputFormat::mp4, VideoEncoder::h265, {}},
                          {OutputFormat::mov, VideoEncoder::h264, AlphaVideoCodec::proRes4444}};
    for (const Case& item : cases) {
        SCOPED_TRACE(rawValue(item.codec).toStdString() + "/" +
                     rawValue(item.format).toStdString() + (item.alpha ? " alpha" : ""));
        ScratchFolder folder;
        const std::filesystem::path path =
            folder.file(item.format == OutputFormat::mp4 ? "sparse.mp4" : "sparse.mov");
        WriterConfiguration configuration = smallMovie(path, item.format);
        configuration.videoSettings->codec = item.codec;
        configuration.videoSettings->hasAlphaChannel = item.alpha.has_value();
        configuration.videoSettings->alphaCodec = item.alpha;
        MediaWriter writer;
        startAt(writer, configuration, MediaTime::zero());
        constexpr int frames = 17; // eight seconds
        for (int i = 0; i < frames; ++i)
            ASSERT_TRUE(appendWaiting(
                writer, movingPicture(160, 120, i, MediaTime::make(i, 2), MediaTime::make(1, 2))));
        const double newest = (frames - 1) / 2.0;
        double end = -1;
        waitUntil(
            [&] {
                end = videoEndOfCopy(path, folder.file("copy"), 0.5);
                return end >= newest - 1.5;
            },
            std::chrono::seconds(10));
        EXPECT_GE(end, newest - 1.5);

        writer.finishWriting();
        auto file = probeMovie(path);
        ASSERT_TRUE(file);
        const ProbedStream* video = file->first(AVMEDIA_TYPE_VIDEO);
        ASSERT_EQ(video->packetTimes.size(), size_t(frames));
        EXPECT_NEAR(video->packetTimes.back(), newest, 0.01);
    }
}

// H.264 takes no odd sizes in 4:2:0; a 161x121 picture is written without its last column and
// row rather than refused.
TEST(MediaWriterFile, AnOddSizeLosesItsLastColumnAndRow) {
    ScratchFolder folder;
    std::filesystem::path path = folder.file("odd.mov");
    WriterConfiguration configuration = smallMovie(path);
    configuration.videoSettings->width = 161;
    configuration.videoSettings->height = 121;
    MediaWriter writer;
    startAt(writer, configuration, MediaTime::zero());
    for (int i = 0; i < 5; ++i)
        ASSERT_TRUE(appendWaiting(writer, movingPicture(161, 121, i, frameTime(i), frameDuration)));
    writer.finishWriting();
    EXPECT_FALSE(writer.hasFailed()) << writer.lastError().value_or("");
    auto file = probeMovie(path);
    ASSERT_TRUE(file);
    const ProbedStream* video = file->first(AVMEDIA_TYPE_VIDEO);
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->width, 160);
    EXPECT_EQ(video->height, 120);
    EXPECT_EQ(video->packetTimes.size(), 5u);
}
