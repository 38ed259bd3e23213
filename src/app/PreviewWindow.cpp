#include "app/PreviewWindow.h"

#include "app/AppIcons.h"
#include "app/AppStyle.h"
#include "app/DesktopResultOpener.h"
#include "core/model/Constants.h"
#include "media/VideoFrameGrabber.h"

#include <QDesktopServices>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QScreen>
#include <QUrl>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentRun>

namespace {
constexpr QSize pictureSize(384, 216);
} // namespace

PreviewWindow::PreviewWindow(const QString& videoPath, QWidget* parent)
    : CardWindow(parent, Qt::WindowStaysOnTopHint), m_videoPath(videoPath) {
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
    auto* close = new QPushButton(tr("Close"), this);
    close->setProperty("role", QStringLiteral("ghost"));
    auto* folder = new QPushButton(tr("Show in Folder"), this);
    folder->setObjectName(QStringLiteral("previewShowInFolder"));
    auto* open = new QPushButton(tr("Open"), this);
    open->setObjectName(QStringLiteral("previewOpen"));
    open->setProperty("role", QStringLiteral("primary"));
    open->setDefault(true);
    buttons->addWidget(close);
    buttons->addStretch();
    buttons->addWidget(folder);
    buttons->addWidget(open);
    layout->addLayout(buttons);

    connect(close, &QPushButton::clicked, this, &QWidget::close);
    connect(open, &QPushButton::clicked, this,
            [this] { QDesktopServices::openUrl(QUrl::fromLocalFile(m_videoPath)); });
    connect(folder, &QPushButton::clicked, this,
            [this] { DesktopResultOpener::showInFileManager(m_videoPath); });
    adjustSize();
    // Bottom right of the primary screen, where finished things usually appear.
    if (const QScreen* screen = QGuiApplication::primaryScreen()) {
        const QRect free = screen->availableGeometry();
        move(free.right() - width() - 24, free.bottom() - height() - 24);
    }
    loadThumbnail();
}

void PreviewWindow::loadThumbnail() {
    m_picture->setText(tr("Loading…"));
    // Decoding takes a moment; the window is up at once and the picture follows.
    auto* watcher = new QFutureWatcher<std::optional<GrabbedVideoFrame>>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher] {
        watcher->deleteLater();
        const std::optional<GrabbedVideoFrame> frame = watcher->result();
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
    });
    watcher->setFuture(QtConcurrent::run([path = m_videoPath] {
        std::string error;
        return grabVideoFrame(path, 0.0, &error);
    }));
}
