#pragma once

#include "core/recording/surfaces/RecordingResultOpener.h"

#include <functional>

// Hands a finished recording to the person on this desktop: the completion notification, then
// the editor (or, until one is installed, the preview window); other files open in the
// desktop's default application, and folders in its file manager. Thread: main.
class DesktopResultOpener final : public RecordingResultOpener {
public:
    using TrimmerOpener = std::function<void(const QString& videoPath)>;

    // Where videos go after a recording; the preview window when none is set.
    void setTrimmerOpener(TrimmerOpener opener) { m_trimmerOpener = std::move(opener); }

    void openTrimmer(const QString& videoURL) override;
    void openURL(const QString& url) override;
    void activateFileViewerSelecting(const QString& url) override;

    // org.freedesktop.FileManager1.ShowItems, or the folder itself where no file manager
    // answers that call.
    static void showInFileManager(const QString& path);

private:
    TrimmerOpener m_trimmerOpener;
};
