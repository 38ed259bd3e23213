#include "core/metadata/MetadataRecorder.h"

#include "core/metadata/MetadataFile.h"
#include "core/support/Log.h"

#include <QDir>
#include <QFileInfo>
#include <QtEndian>

#include <bit>
#include <cstring>

namespace {
constexpr std::size_t recordSize = 24;

void putDouble(char* at, double value) {
    const quint64 bits = qToLittleEndian(std::bit_cast<quint64>(value));
    std::memcpy(at, &bits, sizeof bits);
}

double getDouble(const char* at) {
    quint64 bits;
    std::memcpy(&bits, at, sizeof bits);
    return std::bit_cast<double>(qFromLittleEndian(bits));
}
} // namespace

MetadataRecorderError::MetadataRecorderError(Kind kind)
    : m_kind(kind), m_what(errorDescription().toStdString()) {}

QString MetadataRecorderError::errorDescription() const {
    switch (m_kind) {
    case Kind::recordingStillActive:
        return QStringLiteral("Cannot save metadata while recording is still active");
    case Kind::recordingNotStarted:
        return QStringLiteral("Recording has not been started");
    case Kind::invalidMetadata:
        return QStringLiteral("Metadata is invalid or corrupted");
    }
    return {};
}

MetadataRecorder::MetadataRecorder(Size resolution, std::int64_t frameRate)
    : temporaryDirectory(QDir::tempPath()), m_metadata{.duration = 0,
                                                       .resolution = resolution,
                                                       .frameRate = frameRate} {}

MetadataRecorder::~MetadataRecorder() {
    cleanupCursorTempFile();
}

std::optional<double> MetadataRecorder::currentTimestamp() const {
    if (!m_isRecording)
        return std::nullopt;
    if (timeProvider)
        return timeProvider();
    if (m_recordingStartTime)
        return std::chrono::duration<double>(Clock::now() - *m_recordingStartTime).count();
    return std::nullopt;
}

void MetadataRecorder::startRecording(Clock::time_point at) {
    m_recordingStartTime = at;
    m_isRecording = true;
    m_metadata.zoomEvents.clear();
    m_metadata.zoomKeyframes.clear();
    m_metadata.cameraPositions.clear();
    m_metadata.cursorClicks.clear();
    m_metadata.cursorPositions.clear();
    m_cursorBuffer.clear();
    m_lastCursorPosition.reset();
    // Exactly one flush's worth, so that the buffer never grows past it while a file takes the
    // rest.
    m_cursorBuffer.reserve(cursorFlushThreshold);
    m_cursorPositionsOnDisk = 0;
    cleanupCursorTempFile();
    createCursorTempFile();
    logLine("📝 MetadataRecorder started");
}

void MetadataRecorder::createCursorTempFile() {
    const QString name = QStringLiteral("cursor_positions_%1.bin")
                             .arg(QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper());
    const QString path = QDir(temporaryDirectory).filePath(name);
    auto file = std::make_unique<QFile>(path);
    // NewOnly refuses an existing file or link (O_EXCL): nobody can make us write into theirs.
    if (!file->open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered,
                    QFileDevice::ReadOwner | QFileDevice::WriteOwner)) {
        logLine("⚠️ Failed to create cursor temp file: {}: {}", path.toStdString(),
                file->errorString().toStdString());
        return;
    }
    m_cursorTempFile = std::move(file);
    m_cursorTempFilePath = path;
    logLine("📝 Cursor temp file created: {}", path.toStdString());
}

void MetadataRecorder::recordCursorPosition(Point atTopLeft) {
    const std::optional<double> timestamp = currentTimestamp();
    if (!timestamp)
        return;
    // The time line can step back for a moment (at the first frame, right after a resume);
    // positions stay in time order, so a sample from before the last one is dropped. The last
    // one may already be on disk, hence its own record here.
    if (m_lastCursorPosition) {
        const CursorPosition& last = *m_lastCursorPosition;
        if (*timestamp < last.timestamp)
            return;
        // A resting cursor still yields a sample every 0.02 s; a move of a thousandth always
        // does.
        if (std::abs(atTopLeft.x - last.position.x) < 0.001 &&
            std::abs(atTopLeft.y - last.position.y) < 0.001 && *timestamp - last.timestamp < 0.02)
            return;
    }
    m_lastCursorPosition = CursorPosition{.timestamp = *timestamp, .position = atTopLeft};
    m_cursorBuffer.push_back(*m_lastCursorPosition);
    if (m_cursorBuffer.size() >= cursorFlushThreshold)
        flushCursorBufferToDisk();
    const std::size_t total = m_cursorPositionsOnDisk + m_cursorBuffer.size();
    if (total <= 3) {
        logLine("📍 Cursor sample #{}: t={:.2f}s pos=({:.3f}, {:.3f})", total, *timestamp,
                atTopLeft.x, atTopLeft.y);
    }
}

void MetadataRecorder::flushCursorBufferToDisk() {
    // Without a file the samples stay in memory: fewer guarantees, but nothing is lost.
    if (m_cursorBuffer.empty() || !m_cursorTempFile)
        return;
    QByteArray bytes(qsizetype(m_cursorBuffer.size() * recordSize), Qt::Uninitialized);
    char* at = bytes.data();
    for (const CursorPosition& p : m_cursorBuffer) {
        putDouble(at, p.timestamp);
        putDouble(at + 8, p.position.x);
        putDouble(at + 16, p.position.y);
        at += recordSize;
    }
    const qint64 written = m_cursorTempFile->write(bytes);
    if (written != bytes.size()) {
        // Records that did reach the file are still read back, since reading goes by its size.
        logLine("⚠️ Failed to flush cursor buffer: {}",
                m_cursorTempFile->errorString().toStdString());
        return;
    }
    m_cursorPositionsOnDisk += m_cursorBuffer.size();
    const std::size_t count = m_cursorBuffer.size();
    m_cursorBuffer.clear(); // keeps its capacity for the next round
    logLine("💾 Flushed {} cursor positions to disk (total: {})", count, m_cursorPositionsOnDisk);
}

std::vector<CursorPosition> MetadataRecorder::loadAllCursorPositions() {
    std::vector<CursorPosition> result;
    if (m_cursorPositionsOnDisk >= 1 && m_cursorTempFilePath &&
        QFileInfo::exists(*m_cursorTempFilePath)) {
        if (m_cursorTempFile)
            m_cursorTempFile->close();
        QFile file(*m_cursorTempFilePath);
        QByteArray bytes;
        if (file.open(QIODevice::ReadOnly))
            bytes = file.readAll();
        if (file.error() != QFileDevice::NoError) {
            logLine("⚠️ Failed to load cursor positions from temp file: {}",
                    file.errorString().toStdString());
        } else {
            // A partial last record, from a write cut short, is ignored.
            const std::size_t count = std::size_t(bytes.size()) / recordSize;
            result.reserve(count + m_cursorBuffer.size());
            const char* at = bytes.constData();
            for (std::size_t i = 0; i < count; ++i, at += recordSize)
                result.push_back(
                    CursorPosition{.timestamp = getDouble(at),
                                   .position = {getDouble(at + 8), getDouble(at + 16)}});
            logLine("📂 Loaded {} cursor positions from temp file", count);
        }
    }
    result.insert(result.end(), m_cursorBuffer.begin(), m_cursorBuffer.end());
    return result;
}

void MetadataRecorder::cleanupCursorTempFile() {
    if (m_cursorTempFile) {
        m_cursorTempFile->close();
        m_cursorTempFile.reset();
    }
    if (m_cursorTempFilePath) {
        QFile file(*m_cursorTempFilePath);
        if (file.exists() && !file.remove())
            logLine("⚠️ Failed to remove cursor temp file: {}",
                    file.errorString().toStdString());
        m_cursorTempFilePath.reset();
    }
}

void MetadataRecorder::stopRecording(double duration) {
    m_isRecording = false;
    std::vector<CursorPosition> positions = loadAllCursorPositions();
    cleanupCursorTempFile();
    m_cursorBuffer.clear();
    RecordingMetadata finished{.duration = duration,
                               .resolution = m_metadata.resolution,
                               .frameRate = m_metadata.frameRate,
                               .zoomEvents = std::move(m_metadata.zoomEvents),
                               .zoomKeyframes = std::move(m_metadata.zoomKeyframes),
                               .zoomSegments = {},
                               .cameraPositions = std::move(m_metadata.cameraPositions),
                               .cursorClicks = std::move(m_metadata.cursorClicks),
                               .cursorPositions = std::move(positions),
                               .backgroundSettings = m_metadata.backgroundSettings};
    m_metadata = std::move(finished);
    logLine("📝 MetadataRecorder stopped - Duration: {}s", formatDouble(duration));
    logLine("   Zoom events: {}", m_metadata.zoomEvents.size());
    logLine("   Camera positions: {}", m_metadata.cameraPositions.size());
    logLine("   Cursor clicks: {}", m_metadata.cursorClicks.size());
    logLine("   Cursor positions: {}", m_metadata.cursorPositions.size());
}

void MetadataRecorder::recordZoomEvent(Point at, double level, double duration,
                                       EasingFunction easing) {
    const std::optional<double> timestamp = currentTimestamp();
    if (!timestamp) {
        logLine("⚠️ Cannot record zoom event - recording not active");
        return;
    }
    m_metadata.zoomEvents.push_back(ZoomEvent{.timestamp = *timestamp,
                                              .position = at,
                                              .level = level,
                                              .duration = duration,
                                              .easing = easing});
    // The keyframe is the editor's top-left view of the same zoom.
    m_metadata.zoomKeyframes.push_back(ZoomKeyframe{.time = *timestamp,
                                                    .center = {at.x, 1.0 - at.y},
                                                    .level = level,
                                                    .easeIn = duration,
                                                    .easeOut = duration,
                                                    .easing = easing});
    logLine("🔍 Recorded zoom event at {} - Level: {}x, Position: ({}, {})",
            formatDouble(*timestamp), formatDouble(level), formatDouble(at.x), formatDouble(at.y));
}

void MetadataRecorder::recordCameraPosition(Rect frame, EasingFunction easing) {
    const std::optional<double> timestamp = currentTimestamp();
    if (!timestamp) {
        logLine("⚠️ Cannot record camera position - recording not active");
        return;
    }
    m_metadata.cameraPositions.push_back(
        CameraKeyframe{.timestamp = *timestamp, .frame = frame, .easing = easing});
    logLine("📹 Recorded camera position at {}", formatDouble(*timestamp));
}

void MetadataRecorder::recordCursorClick(Point at, ClickType clickType) {
    const std::optional<double> timestamp = currentTimestamp();
    if (!timestamp) {
        logLine("⚠️ Cannot record cursor click - recording not active");
        return;
    }
    m_metadata.cursorClicks.push_back(
        CursorClick{.timestamp = *timestamp, .position = at, .clickType = clickType});
    logLine("🖱️ Recorded {} at {} - Position: ({}, {})", rawValue(clickType).toStdString(),
            formatDouble(*timestamp), formatDouble(at.x), formatDouble(at.y));
}

void MetadataRecorder::setBackgroundSettings(std::optional<BackgroundSettings> settings) {
    m_metadata.backgroundSettings = std::move(settings);
    logLine("🎨 Background settings updated: {}",
            m_metadata.backgroundSettings ? describe(*m_metadata.backgroundSettings).toStdString()
                                          : "none");
}

void MetadataRecorder::saveMetadata(const QString& path) const {
    if (m_isRecording)
        throw MetadataRecorderError(MetadataRecorderError::Kind::recordingStillActive);
    const qint64 size = writeMetadataFile(m_metadata, path);
    logLine("💾 Metadata saved to: {}", QFileInfo(path).fileName().toStdString());
    logLine("   File size: {} bytes", size);
}

RecordingMetadata MetadataRecorder::loadMetadata(const QString& path) {
    RecordingMetadata metadata = readMetadataFile(path);
    logLine("📂 Metadata loaded from: {}", QFileInfo(path).fileName().toStdString());
    logLine("   Duration: {}s", formatDouble(metadata.duration));
    logLine("   Zoom events: {}", metadata.zoomEvents.size());
    logLine("   Camera positions: {}", metadata.cameraPositions.size());
    logLine("   Cursor clicks: {}", metadata.cursorClicks.size());
    return metadata;
}
