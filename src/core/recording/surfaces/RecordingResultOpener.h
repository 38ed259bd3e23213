#pragma once

#include <QString>

// Hands a finished recording to the person: the editor for videos, the desktop's default
// application and file manager for audio. Thread: main.
class RecordingResultOpener {
public:
    virtual ~RecordingResultOpener() = default;
    virtual void openTrimmer(const QString& videoURL) = 0;
    virtual void openURL(const QString& url) = 0;
    virtual void activateFileViewerSelecting(const QString& url) = 0;
};
