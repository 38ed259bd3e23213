#pragma once

#include "core/editing/CutSegmentList.h"
#include "core/metadata/ZoomSegment.h"
#include "exporter/VideoTrimmerViewModel.h"

#include <QUndoCommand>

#include <functional>
#include <optional>
#include <vector>

// One edit of the session, undone and redone by putting back the segments and the look of the
// export as they were before and after it. The edit is made before the command is pushed, so
// the stack's first call to redo has nothing to do.
//
// Main thread, like the session.
class SessionEditCommand final : public QUndoCommand {
public:
    // What the panel sets: the export's look, the cursor, the background and the encoding.
    struct Look {
        VideoTrimmerViewModel::ExportStyle exportStyle;
        CursorOverlaySettings cursorOverlaySettings;
        BackgroundSettings backgroundSettings;
        bool backgroundEnabled = false;
        VideoCodecSettings::Codec codec = VideoCodecSettings::Codec::h264;
        std::optional<int> constantRateFactor;
        bool operator==(const Look&) const = default;
    };
    struct Snapshot {
        CutSegmentList cuts;
        std::vector<ZoomSegment> zoomSegments;
        Look look;
    };
    static Snapshot take(const VideoTrimmerViewModel& session);
    static Look takeLook(const VideoTrimmerViewModel& session);
    static void applyLook(const Look& look, VideoTrimmerViewModel& session);

    // `changed` is called after every undo and redo, so that views show the session again.
    // Commands with the same `mergeId` (not -1) pushed one after another become one step: the
    // many values of one slider drag are undone together.
    SessionEditCommand(const QString& text, VideoTrimmerViewModel& session, Snapshot before,
                       Snapshot after, std::function<void()> changed, int mergeId = -1);

    void undo() override;
    void redo() override;
    int id() const override { return m_mergeId; }
    bool mergeWith(const QUndoCommand* other) override;

private:
    void apply(const Snapshot& snapshot);

    VideoTrimmerViewModel& m_session;
    Snapshot m_before;
    Snapshot m_after;
    std::function<void()> m_changed;
    int m_mergeId = -1;
    bool m_done = true;
};
