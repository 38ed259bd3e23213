#pragma once

#include "core/geometry/Rect.h"
#include "core/metadata/CursorClick.h"

#include <QDateTime>
#include <QString>

#include <functional>
#include <optional>

// How much a metadata document holds; what the coordinator reports before saving.
struct MetadataCounts {
    int cursorPositions = 0;
    int cursorClicks = 0;
    int zoomEvents = 0;
    bool operator==(const MetadataCounts&) const = default;
};

// Collects cursor positions, clicks and zoom events of one recording and saves them beside it.
// Thread: main.
class MetadataRecorderEngine {
public:
    // Seconds on the video's time line, absent before the first frame.
    using TimeProvider = std::function<std::optional<double>()>;

    virtual ~MetadataRecorderEngine() = default;

    virtual void startRecording(const QDateTime& at) = 0;
    virtual void setTimeProvider(TimeProvider provider) = 0;
    virtual void recordCursorPosition(Point atTopLeft) = 0;
    // Normalised, origin top left.
    virtual void recordCursorClick(Point at, ClickType clickType) = 0;
    // Normalised with the origin at the bottom left; `duration` is the zoom's ease in seconds.
    virtual void recordZoomEvent(Point at, double level, double duration) = 0;
    virtual MetadataCounts currentCounts() const = 0;
    virtual void stopRecording(double duration) = 0;
    virtual void saveMetadata(const QString& url) = 0; // throws
};
