#pragma once

#include "core/metadata/RecordingMetadata.h"

#include <QFile>
#include <QString>

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>

class MetadataRecorderError final : public std::exception {
public:
    enum class Kind { recordingStillActive, recordingNotStarted, invalidMetadata };

    explicit MetadataRecorderError(Kind kind);
    Kind kind() const { return m_kind; }
    QString errorDescription() const;
    const char* what() const noexcept override { return m_what.c_str(); }

private:
    Kind m_kind;
    std::string m_what;
};

// Collects the metadata of one recording: zoom events, camera positions, clicks and cursor
// samples, and at the end yields a finished document. Cursor samples arrive 30 times a second
// for hours, so they do not stay in memory: a buffer of at most `cursorFlushThreshold` samples
// is flushed to a spill file "cursor_positions_<UUID>.bin" in the temporary folder (24 bytes per
// sample: time, x, y as little-endian doubles) and read back once, at stop. The spill file is
// created exclusively and readable by its owner alone, since it tells where someone moved their
// mouse; it is removed at stop, and by the destructor should a recording never stop.
//
// Thread: no lock of its own; the owner serialises every call (the main thread in the app).
class MetadataRecorder final {
public:
    using Clock = std::chrono::system_clock;

    MetadataRecorder(Size resolution, std::int64_t frameRate);
    ~MetadataRecorder();
    MetadataRecorder(const MetadataRecorder&) = delete;
    MetadataRecorder& operator=(const MetadataRecorder&) = delete;

    // The recording's own time line, when set; a missing value drops the call like one made
    // outside a recording. Without it, times are wall-clock seconds since the start.
    std::function<std::optional<double>()> timeProvider;
    std::size_t cursorFlushThreshold = 10000;
    // Where the spill file goes; the system's temporary folder unless a test says otherwise.
    QString temporaryDirectory;

    void startRecording(Clock::time_point at);
    // Reads the samples back, removes the spill file, and replaces the document by the finished
    // one: never with zoom segments, which the editor makes on first opening.
    void stopRecording(double duration);

    // `at` is normalised with its origin at the bottom left; a matching keyframe is recorded too.
    void recordZoomEvent(Point at, double level, double duration,
                         EasingFunction easing = EasingFunction::easeInOut);
    void recordCameraPosition(Rect frame, EasingFunction easing = EasingFunction::easeInOut);
    // Normalised, origin top-left.
    void recordCursorClick(Point at, ClickType clickType);
    void recordCursorPosition(Point atTopLeft);
    void setBackgroundSettings(std::optional<BackgroundSettings> settings);

    // Throws MetadataRecorderError while recording, MetadataFileError or MetadataEncodingError.
    void saveMetadata(const QString& path) const;
    RecordingMetadata getCurrentMetadata() const { return m_metadata; }
    // Throws MetadataFileError or MetadataDecodingError.
    static RecordingMetadata loadMetadata(const QString& path);

    bool isRecording() const { return m_isRecording; }
    std::size_t cursorPositionsOnDisk() const { return m_cursorPositionsOnDisk; }
    std::size_t bufferedCursorPositions() const { return m_cursorBuffer.size(); }
    std::size_t cursorBufferCapacity() const { return m_cursorBuffer.capacity(); }
    std::optional<QString> cursorTempFilePath() const { return m_cursorTempFilePath; }

private:
    std::optional<double> currentTimestamp() const;
    void createCursorTempFile();
    void flushCursorBufferToDisk();
    std::vector<CursorPosition> loadAllCursorPositions();
    void cleanupCursorTempFile();

    RecordingMetadata m_metadata;
    std::optional<Clock::time_point> m_recordingStartTime;
    bool m_isRecording = false;
    std::vector<CursorPosition> m_cursorBuffer;
    std::optional<CursorPosition> m_lastCursorPosition; // the newest kept, buffered or on disk
    std::unique_ptr<QFile> m_cursorTempFile;            // open for writing during a recording
    std::optional<QString> m_cursorTempFilePath;
    std::size_t m_cursorPositionsOnDisk = 0;
};
