#pragma once

#include <QString>

#include <optional>

class VideoTrimmerViewModel;

// The trimmer's editing state kept beside the recording, so that an editor that was closed or
// crashed opens where the user left it: the cut and zoom segments, the look of the export
// (background, screen, camera, cursor, aspect, encoding), and the playhead.
// A single movie keeps it hidden beside itself (".Name.trimmer.json"); a package inside itself
// ("trimmer.json"). Written whole through a temporary file, so a crash never leaves half of it.
//
// Main thread.
class TrimmerAutosave final {
public:
    static QString pathFor(const QString& movie);
    // False when the file could not be written (a read-only folder): editing goes on.
    static bool save(const VideoTrimmerViewModel& session, double playhead);
    // Puts the saved cuts back into a freshly loaded session; the saved playhead, or nothing when
    // there was no state or it does not fit this recording.
    static std::optional<double> restore(VideoTrimmerViewModel& session);
};
