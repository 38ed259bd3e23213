#include "app/ThumbnailTile.h"

#include "app/AppStyle.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QScreen>

namespace {
constexpr int labelHeight = 28;
constexpr int padding = 8;

QPixmap fitted(const QPixmap& source, QSize fit) {
    if (source.isNull())
        return {};
    const qreal ratio = qApp->devicePixelRatio();
    QPixmap scaled = source.scaled(fit * ratio, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    scaled.setDevicePixelRatio(ratio);
    return scaled;
}
} // namespace

ThumbnailTile::ThumbnailTile(const QString& name, QWidget* parent) : QToolButton(parent) {
    setText(name);
    setToolTip(name);
    setCheckable(true);
    setCursor(Qt::PointingHandCursor);
    // A size hint with a fixed policy rather than setFixedSize: the style sheet's button
    // minimum would otherwise replace the fixed minimum when the tile is polished.
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    resize(sizeHint());
}

QSize ThumbnailTile::sizeHint() const {
    return QSize(pictureSize.width() + 2 * padding,
                 pictureSize.height() + 2 * padding + labelHeight);
}

void ThumbnailTile::setPicture(const QPixmap& picture) {
    m_picture = picture;
    m_hasPicture = !picture.isNull();
    update();
}

void ThumbnailTile::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF card = QRectF(rect()).adjusted(1, 1, -1, -1);
    QPainterPath path;
    path.addRoundedRect(card, AppStyle::windowRadius, AppStyle::windowRadius);
    painter.fillPath(path, underMouse() ? AppStyle::hairline : AppStyle::raised);
    painter.setPen(QPen(isChecked() ? AppStyle::accent : AppStyle::hairline, isChecked() ? 2 : 1));
    painter.drawPath(path);

    const QRect canvas(padding, padding, pictureSize.width(), pictureSize.height());
    QPainterPath canvasPath;
    canvasPath.addRoundedRect(canvas, AppStyle::controlRadius, AppStyle::controlRadius);
    painter.fillPath(canvasPath, QColor(0x11, 0x12, 0x16));
    if (m_hasPicture) {
        const QSizeF size = m_picture.deviceIndependentSize();
        const QRectF target(canvas.x() + (canvas.width() - size.width()) / 2,
                            canvas.y() + (canvas.height() - size.height()) / 2, size.width(),
                            size.height());
        painter.save();
        painter.setClipPath(canvasPath);
        painter.drawPixmap(target, m_picture, QRectF(m_picture.rect()));
        painter.restore();
    }
    painter.setPen(isChecked() ? AppStyle::text : AppStyle::secondaryText);
    const QRect label(padding, canvas.bottom() + 4, canvas.width(), labelHeight - 4);
    painter.drawText(label, Qt::AlignLeft | Qt::AlignVCenter,
                     fontMetrics().elidedText(text(), Qt::ElideRight, label.width()));
}

QPixmap grabDesktopRect(const QRect& rect, QSize fit) {
    QScreen* screen = QGuiApplication::screenAt(rect.center());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (!screen)
        return {};
    const QRect local = rect.translated(-screen->geometry().topLeft());
    return fitted(screen->grabWindow(0, local.x(), local.y(), local.width(), local.height()), fit);
}

QPixmap grabWindowPicture(quintptr windowID, QSize fit) {
    QScreen* screen = QGuiApplication::primaryScreen();
    return screen ? fitted(screen->grabWindow(windowID), fit) : QPixmap();
}
