#include "core/model/RecordingState.h"

QString RecordingState::displayName() const {
    static const char* const names[] = {"Idle",   "Preparing...",  "Ready",     "Recording",
                                        "Paused", "Finalizing...", "Completed", "Failed"};
    return QString::fromLatin1(names[m_value.index()]);
}

bool RecordingState::operator==(const RecordingState& other) const {
    if (m_value.index() != other.m_value.index())
        return false;
    if (const auto* a = as<Recording>())
        return a->startTime == other.as<Recording>()->startTime;
    if (const auto* a = as<Paused>()) {
        const auto* b = other.as<Paused>();
        return a->pauseTime == b->pauseTime && a->elapsed == b->elapsed;
    }
    if (const auto* a = as<Completed>())
        return a->fileURL == other.as<Completed>()->fileURL;
    if (const auto* a = as<Failed>())
        return a->error.localizedDescription() == other.as<Failed>()->error.localizedDescription();
    return true;
}
