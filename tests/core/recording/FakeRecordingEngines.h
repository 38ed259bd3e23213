#pragma once

#include "core/model/RecordingError.h"
#include "core/recording/engines/AudioCaptureEngine.h"
#include "core/recording/engines/AudioOnlyRecorder.h"
#include "core/recording/engines/CameraCaptureEngine.h"
#include "core/recording/engines/CursorOverlayController.h"
#include "core/recording/engines/EncoderProbe.h"
#include "core/recording/engines/LayerRecordingManager.h"
#include "core/recording/engines/MediaWriterEngine.h"
#include "core/recording/engines/MetadataRecorderEngine.h"
#include "core/recording/engines/RecordingEngineFactory.h"
#include "core/recording/engines/ScreenCaptureEngine.h"
#include "core/recording/engines/ZoomRenderer.h"
#include "core/recording/surfaces/CursorHider.h"
#include "core/recording/surfaces/FloatingRecordingPanelController.h"
#include "core/recording/surfaces/RecordingResultOpener.h"
#include "core/recording/surfaces/StatusBarController.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

// Every call of every fake, in the order made, as "part.method(arguments)". Thread-safe,
// since the preparation calls fakes from the thread pool.
class CallLog {
public:
    void add(std::string entry) {
        std::lock_guard lock(m_mutex);
        m_entries.push_back(std::move(entry));
    }
    std::vector<std::string> entries() const {
        std::lock_guard lock(m_mutex);
        return m_entries;
    }
    // The entries of the named parts only, so a test states just the order it cares about.
    std::vector<std::string> of(const std::set<std::string>& parts) const {
        std::vector<std::string> result;
        for (const std::string& entry : entries()) {
            if (parts.contains(entry.substr(0, entry.find('.'))))
                result.push_back(entry);
        }
        return result;
    }
    bool contains(const std::string& entry) const {
        const auto all = entries();
        return std::find(all.begin(), all.end(), entry) != all.end();
    }
    void clear() {
        std::lock_guard lock(m_mutex);
        m_entries.clear();
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_entries;
};

// Logs each call and throws RecordingError unknown("<part>.<method> failed") for the methods a
// test named in `failing`.
class FakePart {
public:
    FakePart(CallLog& log, std::string name, std::set<std::string> failing = {})
        : failing(std::move(failing)), m_log(log), m_name(std::move(name)) {}
    std::set<std::string> failing;

protected:
    void call(const std::string& method, const std::string& args = {}) const {
        m_log.add(m_name + "." + method + (args.empty() ? "" : "(" + args + ")"));
        if (failing.contains(method))
            throw RecordingError::unknown(
                QString::fromStdString(m_name + "." + method + " failed"));
    }
    static std::string text(bool value) { return value ? "true" : "false"; }
    static std::string text(const QString& value) { return value.toStdString(); }
    static std::string text(MediaTime time) {
        return std::to_string(time.value) + "/" + std::to_string(time.timescale);
    }

    CallLog& m_log;
    std::string m_name;
};

class FakeScreenCaptureEngine final : public ScreenCaptureEngine, public FakePart {
public:
    using FakePart::FakePart;
    SCStreamConfiguration streamSize{1920, 1080};
    std::optional<Rect> captureRect = Rect(0, 0, 1920, 1080);
    std::optional<SCStreamConfiguration> configured;

    void setAvailableContent(const SCShareableContent& content) override {
        call("setAvailableContent", std::to_string(content.displays.size()) + " displays");
    }
    void updateAvailableContent() override { call("updateAvailableContent"); }
    std::shared_ptr<SCContentFilter> createFilter(const RecordingMode& mode,
                                                  const RecordingConfiguration&) override {
        call("createFilter", text(mode.displayName()));
        return nullptr;
    }
    void configureStream(std::shared_ptr<SCContentFilter>, const RecordingMode&, ResolutionMode,
                         int frameRate, bool showCursor, BackgroundType,
                         bool recordAudio) override {
        call("configureStream", std::to_string(frameRate) + " cursor=" + text(showCursor) +
                                    " audio=" + text(recordAudio));
        configured = streamSize;
    }
    FrameHandler frameHandler;
    ErrorHandler errorHandler;
    int startFailures = 0; // the next starts that throw

    void setFrameHandler(FrameHandler handler) override {
        call("setFrameHandler");
        frameHandler = std::move(handler);
    }
    void setAudioHandler(AudioHandler) override { call("setAudioHandler"); }
    void setErrorHandler(ErrorHandler handler) override {
        call("setErrorHandler");
        errorHandler = std::move(handler);
    }
    std::optional<SCStreamConfiguration> configuration() const override { return configured; }
    std::optional<Rect> captureRectInScreenSpace() const override { return captureRect; }
    QCoro::Task<void> startCapture() override {
        call("startCapture");
        if (startFailures > 0) {
            --startFailures;
            throw RecordingError::unknown(QStringLiteral("the stream would not start"));
        }
        co_return;
    }
    QCoro::Task<void> stopCapture() override {
        call("stopCapture");
        co_return;
    }
};

class FakeAudioCaptureEngine final : public AudioCaptureEngine, public FakePart {
public:
    using FakePart::FakePart;
    BufferHandler systemHandler;
    BufferHandler microphoneHandler;

    void setupSystemAudioCapture() override { call("setupSystemAudioCapture"); }
    bool setupMicrophoneCapture(const std::optional<AVCaptureDevice>& device,
                                bool enableAEC) override {
        call("setupMicrophoneCapture",
             (device ? text(device->localizedName) : "none") + " aec=" + text(enableAEC));
        return true;
    }
    void setSystemAudioHandler(BufferHandler handler) override {
        systemHandler = std::move(handler);
    }
    void setMicrophoneAudioHandler(BufferHandler handler) override {
        microphoneHandler = std::move(handler);
    }
    void startCapture() override { call("startCapture"); }
    void stopCapture() override { call("stopCapture"); }
};

class FakeCameraCaptureEngine final : public CameraCaptureEngine, public FakePart {
public:
    using FakePart::FakePart;
    bool capturing = false;
    MediaWriterEngine* separateWriter = nullptr;

    void setupCamera(const AVCaptureDevice& device) override {
        call("setupCamera", text(device.localizedName));
    }
    std::optional<VideoDimensions> activeVideoDimensions() const override {
        return VideoDimensions{1280, 720};
    }
    void configureSeparateWriter(MediaWriterEngine* writer) override {
        call("configureSeparateWriter");
        separateWriter = writer;
    }
    void startCapture() override {
        call("startCapture");
        capturing = true;
    }
    void stopCapture() override {
        call("stopCapture");
        capturing = false;
    }
    bool isCapturing() const override { return capturing; }
    void cleanup() override { call("cleanup"); }
    void setRecordingPaused(bool paused) override { call("setRecordingPaused", text(paused)); }
    void addTimeOffset(MediaTime offset) override { call("addTimeOffset", text(offset)); }
    bool isSeparateLayerRecording() const override { return separateWriter != nullptr; }
    std::optional<MediaTime> syncedSessionStartTime() const override { return std::nullopt; }
    void startWriterSessionIfNeeded(MediaTime at) override {
        call("startWriterSessionIfNeeded", text(at));
    }
};

class FakeMediaWriter final : public MediaWriterEngine, public FakePart {
public:
    using FakePart::FakePart;
    std::optional<WriterConfiguration> configured;
    std::optional<MediaTime> sessionStart;
    std::optional<MediaTime> lastPTS;
    MediaTime offset = MediaTime::zero();
    QString finishedURL = QStringLiteral("/out/Recording.mov");

    void configure(const WriterConfiguration& configuration) override {
        call("configure", text(QString::fromStdString(configuration.outputURL.string())));
        configured = configuration;
        finishedURL = QString::fromStdString(configuration.outputURL.string());
    }
    void startWriting() override { call("startWriting"); }
    void startSession(MediaTime at) override {
        call("startSession", text(at));
        sessionStart = at;
    }
    bool failed = false;
    bool isWriting() const override { return sessionStart.has_value(); }
    bool hasFailed() const override { return failed; }
    std::optional<QString> lastError() const override {
        return failed ? std::optional(QStringLiteral("No space left on device")) : std::nullopt;
    }
    bool appendVideoBuffer(const VideoFrame&) override { return !failed; }
    bool appendVideoPixelBuffer(const VideoFrame&, MediaTime) override { return true; }
    bool appendAudioBuffer(const AudioBuffer&, int, bool) override { return true; }
    void addTimeOffset(MediaTime value) override {
        call("addTimeOffset", text(value));
        offset = offset + value;
    }
    std::optional<MediaTime> sessionStartTimeValue() const override { return sessionStart; }
    MediaTime currentTimeOffset() const override { return offset; }
    std::optional<MediaTime> lastPresentationTime() const override { return lastPTS; }
    QCoro::Task<QString> finishWriting() override {
        call("finishWriting");
        co_return QString(finishedURL);
    }
    void cancel() override { call("cancel"); }
};

class FakeLayerRecordingManager final : public LayerRecordingManager, public FakePart {
public:
    FakeLayerRecordingManager(CallLog& log, std::set<std::string> failing)
        : FakePart(log, "layers", std::move(failing)), m_writerLog(log) {}
    std::optional<RecordingPackage> package;
    std::unique_ptr<FakeMediaWriter> screenWriter;
    std::unique_ptr<FakeMediaWriter> cameraWriter;
    bool createsCameraWriter = true;

    RecordingPackage createRecordingPackage(const QString& baseFolder) override {
        call("createRecordingPackage", text(baseFolder));
        RecordingPackage created;
        created.packageURL = baseFolder + "/Recording-2026-03-01-14-05-09";
        created.screenVideoURL = created.packageURL + "/.screen.mov";
        created.cameraVideoURL = created.packageURL + "/.camera.mov";
        created.metadataURL = created.packageURL + "/.metadata.json";
        package = created;
        return created;
    }
    std::optional<QString> fileURL(RecordingLayer layer) const override {
        if (!package)
            return std::nullopt;
        return layer == RecordingLayer::screen ? package->screenVideoURL : *package->cameraVideoURL;
    }
    void startLayerRecording(const WriterConfiguration& screen,
                             const std::optional<WriterConfiguration>& camera,
                             const WriterConfiguration::AudioSettings&) override {
        call("startLayerRecording", camera ? "screen+camera" : "screen");
        screenWriter = std::make_unique<FakeMediaWriter>(m_writerLog, "screenWriter");
        screenWriter->configured = screen;
        screenWriter->finishedURL = QString::fromStdString(screen.outputURL.string());
        if (camera && createsCameraWriter) {
            cameraWriter = std::make_unique<FakeMediaWriter>(m_writerLog, "cameraWriter");
            cameraWriter->configured = camera;
        }
    }
    MediaWriterEngine* getScreenWriter() override { return screenWriter.get(); }
    MediaWriterEngine* getCameraWriter() override { return cameraWriter.get(); }
    QCoro::Task<RecordingPackage> finalizeLayers(PackageConfiguration configuration) override {
        finalized = configuration;
        call("finalizeLayers");
        package->configuration = configuration;
        co_return RecordingPackage(*package);
    }
    std::optional<RecordingPackage> recordingPackage() const override { return package; }
    void cancel() override { call("cancel"); }
    std::optional<PackageConfiguration> finalized;

private:
    CallLog& m_writerLog;
};

class FakeAudioOnlyRecorder final : public AudioOnlyRecorder, public FakePart {
public:
    using FakePart::FakePart;
    void prepareRecording() override { call("prepareRecording"); }
    void startRecording() override { call("startRecording"); }
    void startSession(MediaTime at) override { call("startSession", text(at)); }
    void appendSystemAudioBuffer(const AudioBuffer&) override { call("appendSystemAudioBuffer"); }
    void appendMicrophoneBuffer(const AudioBuffer&) override { call("appendMicrophoneBuffer"); }
    void finishRecording(FinishCompletion completion) override {
        try {
            call("finishRecording");
        } catch (...) {
            completion({}, std::current_exception());
            return;
        }
        completion(QStringLiteral("/out/Audio Recording.vxa"), nullptr);
    }
};

class FakeMetadataRecorder final : public MetadataRecorderEngine, public FakePart {
public:
    using FakePart::FakePart;
    TimeProvider timeProvider;
    MetadataCounts counts{12, 3, 1};
    void startRecording(const QDateTime& at) override {
        call("startRecording", text(at.toString(Qt::ISODate)));
    }
    void setTimeProvider(TimeProvider provider) override { timeProvider = std::move(provider); }
    void recordCursorPosition(Point) override { call("recordCursorPosition"); }
    void recordCursorClick(Point, ClickType) override { call("recordCursorClick"); }
    void recordZoomEvent(Point, double, double) override { call("recordZoomEvent"); }
    MetadataCounts currentCounts() const override { return counts; }
    void stopRecording(double duration) override {
        call("stopRecording", std::to_string(int(std::lround(duration * 1000))) + "ms");
    }
    void saveMetadata(const QString& url) override { call("saveMetadata", text(url)); }
};

class FakeZoomRenderer final : public ZoomRenderer, public FakePart {
public:
    using FakePart::FakePart;
    void setCaptureFrame(Size size, Point origin) override {
        call("setCaptureFrame",
             std::to_string(int(size.width)) + "x" + std::to_string(int(size.height)) + "@" +
                 std::to_string(int(origin.x)) + "," + std::to_string(int(origin.y)));
    }
    void setClickZoom(bool on) override { call("setClickZoom", text(on)); }
    void setFollowCursor(bool on) override { call("setFollowCursor", text(on)); }
    void setHUDEnabled(bool on) override { call("setHUDEnabled", text(on)); }
    void setHUDIncludeInRecording(bool on) override { call("setHUDIncludeInRecording", text(on)); }
    void setDebugEnabled(bool on) override { call("setDebugEnabled", text(on)); }
    void setMaxZoomScale(double scale) override { maxZoomScale = scale; }
    double maxZoomScale = 0.0;
    void updateCursor(Point) override {}
    void triggerClickZoom(Point) override { call("triggerClickZoom"); }
    void endClickZoom() override { call("endClickZoom"); }
    bool isAnimating() const override { return false; }
    void updateAnimation(std::optional<MediaTime>) override {}
    VideoFrameHandle processedPixelBuffer(const VideoFrameHandle& source, bool) override {
        return source;
    }
};

class FakeCursorOverlayController final : public CursorOverlayController, public FakePart {
public:
    using FakePart::FakePart;
    bool highlight = false;
    bool magnifier = true;
    void setClickThreshold(double seconds) override {
        call("setClickThreshold", std::to_string(int(std::lround(seconds * 1000))) + "ms");
    }
    void setClickHandler(ClickHandler) override { call("setClickHandler"); }
    void setCursorMoveHandler(MoveHandler) override { call("setCursorMoveHandler"); }
    void configureCustomCursor(std::optional<CursorStyle> style, double size, bool enabled,
                               bool scale, bool ripple, std::optional<CodableColor>) override {
        call("configureCustomCursor", (style ? text(rawValue(*style)) : "none") + " " +
                                          std::to_string(int(size)) + " " + text(enabled) + " " +
                                          text(scale) + " " + text(ripple));
    }
    void setHighlightEnabled(bool on) override {
        call("setHighlightEnabled", text(on));
        highlight = on;
    }
    bool isHighlightEnabled() const override { return highlight; }
    void setMagnifierEnabled(bool on) override {
        call("setMagnifierEnabled", text(on));
        magnifier = on;
    }
    bool isMagnifierEnabled() const override { return magnifier; }
    std::optional<Point> mouseLocation() const override { return std::nullopt; }
    void startMonitoring() override { call("startMonitoring"); }
    void stopMonitoring() override { call("stopMonitoring"); }
};

class FakeStatusBar final : public StatusBarController, public FakePart {
public:
    FakeStatusBar(CallLog& log) : FakePart(log, "statusBar") {}
    std::vector<QString> durations;
    void showRecordingControls(RecordingCoordinator&) override { call("showRecordingControls"); }
    void hideRecordingControls() override { call("hideRecordingControls"); }
    void updateDuration(const QString& text) override { durations.push_back(text); }
    void updatePauseState(bool paused) override { call("updatePauseState", text(paused)); }
};

class FakePanel final : public FloatingRecordingPanelController, public FakePart {
public:
    FakePanel(CallLog& log) : FakePart(log, "panel") {}
    void show(RecordingCoordinator&) override { call("show"); }
    void hide() override { call("hide"); }
    void setPaused(bool paused) override { call("setPaused", text(paused)); }
    void updateStartingCountdown(int seconds) override {
        call("updateStartingCountdown", std::to_string(seconds));
    }
};

class FakeResultOpener final : public RecordingResultOpener, public FakePart {
public:
    FakeResultOpener(CallLog& log) : FakePart(log, "opener") {}
    void openTrimmer(const QString& url) override { call("openTrimmer", text(url)); }
    void openURL(const QString& url) override { call("openURL", text(url)); }
    void activateFileViewerSelecting(const QString& url) override {
        call("activateFileViewerSelecting", text(url));
    }
};

class FakeCursorHider final : public CursorHider, public FakePart {
public:
    FakeCursorHider(CallLog& log) : FakePart(log, "hider") {}
    void hideCursor() override { call("hideCursor"); }
    void showCursor() override { call("showCursor"); }
};

class FakeEncoderProbe final : public EncoderProbe, public FakePart {
public:
    FakeEncoderProbe(CallLog& log) : FakePart(log, "encoderProbe") {}
    bool accepts = true;
    bool canOpenH264Encoder(int width, int height) override {
        call("canOpenH264Encoder", std::to_string(width) + "x" + std::to_string(height));
        return accepts;
    }
};

// Makes the fakes above. Each new engine gets the failures a test set for its part name, and
// the factory keeps a pointer to the last one of each kind for the test to inspect.
class FakeRecordingEngineFactory final : public RecordingEngineFactory, public FakePart {
public:
    explicit FakeRecordingEngineFactory(CallLog& log) : FakePart(log, "factory"), probe(log) {}

    std::map<std::string, std::set<std::string>> failures; // part name -> failing methods
    SCShareableContent content{{SCDisplay{1, Rect(0, 0, 1920, 1080), 1.0}}, {}, {}};
    std::vector<AVCaptureDevice> microphoneList{{"mic-1", "USB Mic"}};
    std::optional<AVCaptureDevice> defaultMic = AVCaptureDevice{"mic-0", "Built-in Mic"};
    std::vector<AVCaptureDevice> cameraList{{"cam-1", "HD Webcam"}, {"cam-2", "Capture Card"}};
    std::optional<AVCaptureDevice> defaultCam = AVCaptureDevice{"cam-0", "Integrated Camera"};
    bool microphoneAccess = true;
    bool alphaSupported = true;
    FakeEncoderProbe probe;
    // The core's tests never open a frame: frames stand for themselves by address, and this
    // tells the pump's change test what each one shows.
    std::function<uint32_t(const VideoFrame&)> checksum = [](const VideoFrame&) { return 1u; };
    uint32_t quickFrameChecksum(const VideoFrame& frame) override { return checksum(frame); }

    // With `holdFetches`, fetches wait until release(), so tests can overlap callers.
    bool holdFetches = false;
    // The first this many fetches fail.
    int failingFetches = 0;
    int fetchCount() const {
        std::lock_guard lock(m_fetchMutex);
        return m_fetches;
    }
    void release() {
        std::lock_guard lock(m_fetchMutex);
        m_released = true;
        m_fetchReleased.notify_all();
    }

    FakeScreenCaptureEngine* screen = nullptr;
    FakeAudioCaptureEngine* audio = nullptr;
    FakeCameraCaptureEngine* camera = nullptr;
    FakeMediaWriter* writer = nullptr;
    FakeLayerRecordingManager* layers = nullptr;
    FakeAudioOnlyRecorder* audioOnly = nullptr;
    FakeMetadataRecorder* metadata = nullptr;
    FakeZoomRenderer* zoom = nullptr;
    FakeCursorOverlayController* cursor = nullptr;

    std::unique_ptr<ScreenCaptureEngine> makeScreenCaptureEngine() override {
        return remember(
            screen, std::make_unique<FakeScreenCaptureEngine>(m_log, "screen", failures["screen"]));
    }
    std::unique_ptr<AudioCaptureEngine> makeAudioCaptureEngine() override {
        return remember(
            audio, std::make_unique<FakeAudioCaptureEngine>(m_log, "audio", failures["audio"]));
    }
    std::unique_ptr<CameraCaptureEngine> makeCameraCaptureEngine() override {
        return remember(
            camera, std::make_unique<FakeCameraCaptureEngine>(m_log, "camera", failures["camera"]));
    }
    std::unique_ptr<MediaWriterEngine> makeMediaWriter() override {
        return remember(writer,
                        std::make_unique<FakeMediaWriter>(m_log, "writer", failures["writer"]));
    }
    std::unique_ptr<LayerRecordingManager> makeLayerRecordingManager() override {
        return remember(layers,
                        std::make_unique<FakeLayerRecordingManager>(m_log, failures["layers"]));
    }
    std::unique_ptr<AudioOnlyRecorder>
    makeAudioOnlyRecorder(const RecordingConfiguration&) override {
        return remember(audioOnly, std::make_unique<FakeAudioOnlyRecorder>(m_log, "audioOnly",
                                                                           failures["audioOnly"]));
    }
    std::unique_ptr<MetadataRecorderEngine> makeMetadataRecorder(Size size,
                                                                 int frameRate) override {
        call("makeMetadataRecorder", std::to_string(int(size.width)) + "x" +
                                         std::to_string(int(size.height)) + "@" +
                                         std::to_string(frameRate));
        return remember(metadata, std::make_unique<FakeMetadataRecorder>(m_log, "metadata",
                                                                         failures["metadata"]));
    }
    std::unique_ptr<ZoomRenderer> makeZoomRenderer() override {
        return remember(zoom, std::make_unique<FakeZoomRenderer>(m_log, "zoom"));
    }
    std::unique_ptr<CursorOverlayController> makeCursorOverlayController() override {
        return remember(cursor, std::make_unique<FakeCursorOverlayController>(m_log, "cursor"));
    }
    SCShareableContent fetchShareableContent() override {
        std::unique_lock lock(m_fetchMutex);
        ++m_fetches;
        m_fetchReleased.wait(lock, [this] { return !holdFetches || m_released; });
        const bool fails = m_fetches <= failingFetches;
        lock.unlock();
        call("fetchShareableContent");
        if (fails)
            throw RecordingError::unknown(QStringLiteral("no content"));
        return content;
    }
    std::vector<AVCaptureDevice> microphones() override { return microphoneList; }
    std::optional<AVCaptureDevice> defaultMicrophone() override { return defaultMic; }
    std::vector<AVCaptureDevice> cameras() override { return cameraList; }
    std::optional<AVCaptureDevice> defaultCamera() override { return defaultCam; }
    bool requestMicrophoneAccess() override { return microphoneAccess; }
    bool isAlphaChannelSupported() override { return alphaSupported; }
    EncoderProbe& encoderProbe() override { return probe; }

private:
    template <typename Fake>
    static std::unique_ptr<Fake> remember(Fake*& slot, std::unique_ptr<Fake> made) {
        slot = made.get();
        return made;
    }

    mutable std::mutex m_fetchMutex;
    std::condition_variable m_fetchReleased;
    int m_fetches = 0;
    bool m_released = false;
};
