#include "app/trimmer/SessionEditCommand.h"

#include "exporter/VideoTrimmerViewModel.h"

SessionEditCommand::Snapshot SessionEditCommand::take(const VideoTrimmerViewModel& session) {
    return {session.cutSegmentList(), session.zoomSegments};
}

SessionEditCommand::SessionEditCommand(const QString& text, VideoTrimmerViewModel& session,
                                       Snapshot before, Snapshot after,
                                       std::function<void()> changed)
    : QUndoCommand(text), m_session(session), m_before(std::move(before)),
      m_after(std::move(after)), m_changed(std::move(changed)) {}

void SessionEditCommand::apply(const Snapshot& snapshot) {
    m_session.restoreCutSegmentList(snapshot.cuts);
    m_session.zoomSegments = snapshot.zoomSegments;
    if (m_changed)
        m_changed();
}

void SessionEditCommand::undo() {
    apply(m_before);
    m_done = false;
}

void SessionEditCommand::redo() {
    // The first call comes from the push, right after the edit itself.
    if (m_done)
        return;
    apply(m_after);
    m_done = true;
}
