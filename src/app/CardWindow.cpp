#include "app/CardWindow.h"

#include "app/AppStyle.h"

#include <QMouseEvent>

CardWindow::CardWindow(QWidget* parent, Qt::WindowFlags flags)
    : QWidget(parent, Qt::Window | Qt::FramelessWindowHint | flags) {
    // Rounded corners need the corners outside the card to stay see-through.
    setAttribute(Qt::WA_TranslucentBackground);
    setStyleSheet(AppStyle::styleSheet());
}

void CardWindow::paintEvent(QPaintEvent*) {
    AppStyle::paintCard(*this);
}

void CardWindow::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        m_dragOffset = event->globalPosition().toPoint() - frameGeometry().topLeft();
        event->accept();
        return;
    }
    QWidget::mousePressEvent(event);
}

void CardWindow::mouseMoveEvent(QMouseEvent* event) {
    if (m_dragOffset && (event->buttons() & Qt::LeftButton)) {
        move(event->globalPosition().toPoint() - *m_dragOffset);
        event->accept();
        return;
    }
    QWidget::mouseMoveEvent(event);
}

void CardWindow::mouseReleaseEvent(QMouseEvent* event) {
    if (m_dragOffset) {
        m_dragOffset.reset();
        emit moved(pos());
    }
    QWidget::mouseReleaseEvent(event);
}
