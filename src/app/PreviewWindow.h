#pragma once

#include "app/CardWindow.h"
#include "core/model/Constants.h"

#include <optional>

class QLabel;
struct GrabbedVideoFrame;

// The small window that shows a finished recording for a moment: its first picture, its name,
// and the ways on (edit it in the trimmer, open it, reveal it in its folder). It goes away by
// itself after `autoCloseSeconds`, but not while the pointer rests on it. Thread: main.
class PreviewWindow final : public CardWindow {
    Q_OBJECT
public:
    explicit PreviewWindow(const QString& videoPath, QWidget* parent = nullptr,
                           double autoCloseSeconds = Constants::previewAutoCloseSeconds);
    ~PreviewWindow() override;

    const QString& videoPath() const { return m_videoPath; }
    bool isAutoClosePending() const;

protected:
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    void loadThumbnail();
    void showThumbnail(const std::optional<GrabbedVideoFrame>& frame);
    void scheduleAutoClose();

    QString m_videoPath;
    QLabel* m_picture = nullptr;
    double m_autoCloseSeconds = 0.0;
};
