#pragma once

#include <QToolButton>

// A selectable card of a source: its picture on a dark canvas and its name below, outlined in
// the accent colour while chosen. Thread: main.
class ThumbnailTile final : public QToolButton {
    Q_OBJECT
public:
    static constexpr QSize pictureSize{240, 135};

    ThumbnailTile(const QString& name, QWidget* parent = nullptr);

    void setPicture(const QPixmap& picture);
    bool hasPicture() const { return m_hasPicture; }
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QPixmap m_picture;
    bool m_hasPicture = false;
};

// Where a desktop rectangle (global, top-left origin) shows on the screens, scaled to fit a
// tile, or a null pixmap when nothing of it is on a screen.
QPixmap grabDesktopRect(const QRect& rect, QSize fit);
QPixmap grabWindowPicture(quintptr windowID, QSize fit);
