#include "app/trimmer/SessionEditCommand.h"

SessionEditCommand::Look SessionEditCommand::takeLook(const VideoTrimmerViewModel& session) {
    return {session.exportStyle,          session.cursorOverlaySettings,
            session.backgroundSettings,   session.backgroundEnabled,
            session.encoding.video.codec, session.encoding.tuning.constantRateFactor};
}

void SessionEditCommand::applyLook(const Look& look, VideoTrimmerViewModel& session) {
    session.exportStyle = look.exportStyle;
    session.cursorOverlaySettings = look.cursorOverlaySettings;
    session.backgroundSettings = look.backgroundSettings;
    session.backgroundEnabled = look.backgroundEnabled;
    session.encoding.video.codec = look.codec;
    session.encoding.tuning.constantRateFactor = look.constantRateFactor;
}

SessionEditCommand::Snapshot SessionEditCommand::take(const VideoTrimmerViewModel& session) {
    return {session.cutSegmentList(), session.zoomSegments, takeLook(session)};
}

SessionEditCommand::SessionEditCommand(const QString& text, VideoTrimmerViewModel& session,
                                       Snapshot before, Snapshot after,
                                       std::function<void()> changed, int mergeId)
    : QUndoCommand(text), m_session(session), m_before(std::move(before)),
      m_after(std::move(after)), m_changed(std::move(changed)), m_mergeId(mergeId) {}

void SessionEditCommand::apply(const Snapshot& snapshot) {
    m_session.restoreCutSegmentList(snapshot.cuts);
    m_session.zoomSegments = snapshot.zoomSegments;
    applyLook(snapshot.look, m_session);
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

bool SessionEditCommand::mergeWith(const QUndoCommand* other) {
    const auto* next = dynamic_cast<const SessionEditCommand*>(other);
    if (!next || m_mergeId == -1 || next->m_mergeId != m_mergeId)
        return false;
    m_after = next->m_after;
    return true;
}
