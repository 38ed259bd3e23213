#pragma once

#include "core/editing/CutSegmentList.h"
#include "core/metadata/ZoomSegment.h"

#include <QUndoCommand>

#include <functional>
#include <vector>

class VideoTrimmerViewModel;

// One edit of the session's segments, undone and redone by putting back the segments as they
// were before and after it. The edit is made before the command is pushed, so the stack's first
// call to redo has nothing to do.
//
// Main thread, like the session.
class SessionEditCommand final : public QUndoCommand {
public:
    struct Snapshot {
        CutSegmentList cuts;
        std::vector<ZoomSegment> zoomSegments;
    };
    static Snapshot take(const VideoTrimmerViewModel& session);

    // `changed` is called after every undo and redo, so that views show the session again.
    SessionEditCommand(const QString& text, VideoTrimmerViewModel& session, Snapshot before,
                       Snapshot after, std::function<void()> changed);

    void undo() override;
    void redo() override;

private:
    void apply(const Snapshot& snapshot);

    VideoTrimmerViewModel& m_session;
    Snapshot m_before;
    Snapshot m_after;
    std::function<void()> m_changed;
    bool m_done = true;
};
