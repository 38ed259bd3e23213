#include "app/PreviewWindow.h"

#include "app/AppIcons.h"
#include "app/AppStyle.h"
#include "app/DesktopResultOpener.h"
#include "app/VideoTrimmerManager.h"
#include "core/async/DetachedTask.h"
#include "core/model/Constants.h"
#include "core/support/TimerManager.h"
#include "media/VideoFrameGrabber.h"

#include <QDesktopServices>
#include <QFileInfo>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QScreen>
#include <QUrl>
#include <QVBoxLayout>

namespace {
constexpr QSize pictureSize(384, 216);

QString autoCloseTimer() {
    return QString::fromLatin1(TimerManager::TimerID::previewAutoClose);
}
// The preview whose closing the one timer counts down; a newer preview takes it over.
const PreviewWindow* autoCloseOwner = nullptr;
} // namespace

PreviewWindow::PreviewWindow(const QString& videoPath, QWidget* parent, double autoCloseSeconds)
    : CardWindow(parent, Qt::WindowStaysOnTopHint), m_videoPath(videoPath),
      m_autoCloseSeconds(autoCloseSeconds) {
    setObjectName(QStringLiteral("previewWindow"));
    setWindowTitle(QString::fromUtf8(Constants::WindowTitle::preview.data(),
                                     qsizetype(Constants::WindowTitle::preview.size())));
    setAttribute(Qt::WA_DeleteOnClose);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(12);

    m_picture = new QLabel(this);
    m_picture->setObjectName(QStringLiteral("previewPicture"));
    m_picture->setFixedSize(pictureSize);
    m_picture->setAlignment(Qt::AlignCenter);
    m_picture->setStyleSheet(QStringLiteral("background: #111216; border-radius: 6px;"));
    layout->addWidget(m_picture);

    const QFileInfo info(videoPath);
    auto* name = new QLabel(info.fileName(), this);
    name->setObjectName(QStringLiteral("previewFileName"));
    name->setProperty("role", QStringLiteral("title"));
    auto* detail = new QLabel(
        tr("%1 · %2").arg(QLocale().formattedDataSize(info.size()), info.absolutePath()), this);
    detail->setProperty("role", QStringLiteral("secondary"));
    layout->addWidget(name);
    layout->addWidget(detail);

    auto* buttons = new QHBoxLayout();
    auto* dismiss = new QPushButton(tr("Close"), this);
    dismiss->setProperty("role", QStringLiteral("ghost"));
    auto* folder = new QPushButton(tr("Reveal"), this);
    folder->setObjectName(QStringLiteral("previewShowInFolder"));
    folder->setToolTip(tr("Show the recording in its folder"));
    auto* open = new QPushButton(tr("Open"), this);
    open->setObjectName(QStringLiteral("previewOpen"));
    open->setToolTip(tr("Open the recording in the desktop's video player"));
    auto* edit = new QPushButton(tr("Edit"), this);
    edit->setObjectName(QStringLiteral("previewEdit"));
    edit->setToolTip(tr("Cut, zoom and style the recording in the trimmer"));
    edit->setProperty("role", QStringLiteral("primary"));
    edit->setDefault(true);
    buttons->addWidget(dismiss);
    buttons->addStretch();
    buttons->addWidget(folder);
    buttons->addWidget(open);
    buttons->addWidget(edit);
    layout->addLayout(buttons);

    connect(dismiss, &QPushButton::clicked, this, &QWidget::close);
    connect(edit, &QPushButton::clicked, this, [this] {
        // The trimmer that may be open on it already comes forward.
        if (VideoTrimmerManager::shared().openTrimmer(m_videoPath))
            close();
    });
    connect(open, &QPushButton::clicked, this, [this] {
        QDesktopServices::openUrl(QUrl::fromLocalFile(m_videoPath));
        close();
    });
    connect(folder, &QPushButton::clicked, this, [this] {
        DesktopResultOpener::showInFileManager(m_videoPath);
        close();
    });
    adjustSize();
    // Bottom right of the primary screen, where finished things usually appear.
    if (const QScreen* screen = QGuiApplication::primaryScreen()) {
        const QRect free = screen->availableGeometry();
        move(free.right() - width() - 24, free.bottom() - height() - 24);
    }
    loadThumbnail();
    scheduleAutoClose();
}

PreviewWindow::~PreviewWindow() {
    if (autoCloseOwner != this)
        return;
    TimerManager::shared().invalidate(autoCloseTimer());
    autoCloseOwner = nullptr;
}

bool PreviewWindow::isAutoClosePending() const {
    return autoCloseOwner == this && TimerManager::shared().isActive(autoCloseTimer());
}

void PreviewWindow::scheduleAutoClose() {
    if (m_autoCloseSeconds <= 0)
        return;
    autoCloseOwner = this;
    QPointer<PreviewWindow> self(this);
    TimerManager::shared().scheduleOnce(autoCloseTimer(), m_autoCloseSeconds, [self] {
        if (self)
            self->close();
    });
}

// Someone reading the preview or reaching for a button keeps it there.
void PreviewWindow::enterEvent(QEnterEvent* event) {
    CardWindow::enterEvent(event);
    if (autoCloseOwner == this)
        TimerManager::shared().invalidate(autoCloseTimer());
}

void PreviewWindow::leaveEvent(QEvent* event) {
    CardWindow::leaveEvent(event);
    scheduleAutoClose();
}

void PreviewWindow::loadThumbnail() {
    m_picture->setText(tr("Loading…"));
    // Decoding takes a moment; the window is up at once and the picture follows.
    [](QPointer<PreviewWindow> self, QString path) -> QCoro::Task<void> {
        QCoro::Task<std::optional<GrabbedVideoFrame>> grabbing =
            runDetached<std::optional<GrabbedVideoFrame>>([path] {
                std::string error;
                return grabVideoFrame(path, 0.0, &error);
            });
        const std::optional<GrabbedVideoFrame> frame = co_await grabbing;
        if (self)
            self->showThumbnail(frame);
    }(this, m_videoPath);
}

void PreviewWindow::showThumbnail(const std::optional<GrabbedVideoFrame>& frame) {
    if (!frame) {
        m_picture->setText(tr("No picture could be read from this file."));
        return;
    }
    const QImage image(frame->bgra.data(), frame->width, frame->height, frame->width * 4,
                       QImage::Format_ARGB32);
    const qreal ratio = devicePixelRatioF();
    QPixmap pixmap = QPixmap::fromImage(
        image.scaled(pictureSize * ratio, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    pixmap.setDevicePixelRatio(ratio);
    m_picture->setPixmap(pixmap);
}
