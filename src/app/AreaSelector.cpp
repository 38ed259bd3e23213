#include "app/AreaSelector.h"

#include "app/AppStyle.h"
#include "app/DesktopGeometry.h"
#include "core/model/Constants.h"
#include "core/settings/UserDefaults.h"

#include <QGuiApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QScreen>

namespace {
constexpr int handleSize = 10;
constexpr int minimumSide = 16;

QString savedAreaText(const QRect& r) {
    return QStringLiteral("%1,%2,%3,%4").arg(r.x()).arg(r.y()).arg(r.width()).arg(r.height());
}

std::optional<QRect> parseSavedArea(const QString& text) {
    const QStringList parts = text.split(QLatin1Char(','));
    if (parts.size() != 4)
        return std::nullopt;
    QRect r(parts[0].toInt(), parts[1].toInt(), parts[2].toInt(), parts[3].toInt());
    return r.width() >= minimumSide && r.height() >= minimumSide ? std::optional(r) : std::nullopt;
}
} // namespace

AreaSelector::AreaSelector(std::vector<SCDisplay> displays, UserDefaults& defaults, QWidget* parent)
    : QWidget(parent, Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint),
      m_defaults(defaults) {
    setObjectName(QStringLiteral("areaSelector"));
    setWindowTitle(QString::fromUtf8(Constants::WindowTitle::areaSelector.data(),
                                     qsizetype(Constants::WindowTitle::areaSelector.size())));
    setMouseTracking(true);
    setCursor(Qt::CrossCursor);

    // The display under the pointer, else the first (the primary).
    QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    const QRect screenRect = screen ? screen->geometry() : QRect(0, 0, 1280, 720);
    for (const SCDisplay& display : displays)
        if (DesktopGeometry::toTopLeft(display.frame) == screenRect)
            m_display = display;
    if (!m_display && !displays.empty())
        m_display = displays.front();
    const QRect displayRect = m_display ? DesktopGeometry::toTopLeft(m_display->frame) : screenRect;
    setGeometry(displayRect);
    // A still of the display: the overlay needs no compositor to look see-through.
    // (The offscreen platform has no screen contents to take.)
    if (screen && QGuiApplication::platformName() != QLatin1String("offscreen"))
        m_still = screen->grabWindow(0, displayRect.x() - screen->geometry().x(),
                                     displayRect.y() - screen->geometry().y(), displayRect.width(),
                                     displayRect.height());

    m_toolbar = new QWidget(this);
    m_toolbar->setObjectName(QStringLiteral("areaToolbar"));
    m_toolbar->setStyleSheet(AppStyle::styleSheet() +
                             QStringLiteral("QWidget#areaToolbar { background: #1c1d21;"
                                            " border: 1px solid #34353c; border-radius: 10px; }"));
    auto* row = new QHBoxLayout(m_toolbar);
    row->setContentsMargins(8, 8, 8, 8);
    row->setSpacing(8);
    auto* cancel = new QPushButton(tr("Cancel"), m_toolbar);
    cancel->setObjectName(QStringLiteral("areaCancelButton"));
    cancel->setProperty("role", QStringLiteral("ghost"));
    m_record = new QPushButton(tr("Record Area"), m_toolbar);
    m_record->setObjectName(QStringLiteral("areaRecordButton"));
    m_record->setProperty("role", QStringLiteral("danger"));
    row->addWidget(cancel);
    row->addWidget(m_record);
    connect(cancel, &QPushButton::clicked, this, &QWidget::close);
    connect(m_record, &QPushButton::clicked, this, &AreaSelector::confirm);

    const QRect local(QPoint(), displayRect.size());
    const std::optional<QRect> saved =
        parseSavedArea(m_defaults.stringValue("savedArea", QString()));
    if (saved && local.contains(*saved)) {
        setSelection(*saved);
    } else {
        const QSize size(m_defaults.integerValue("areaWidth", 600),
                         m_defaults.integerValue("areaHeight", 450));
        QRect centred(QPoint(), size.boundedTo(local.size()));
        centred.moveCenter(local.center());
        setSelection(centred);
    }
}

void AreaSelector::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    activateWindow();
    setFocus();
}

void AreaSelector::setSelection(const QRect& rect) {
    m_selection = rect.normalized().intersected(QRect(QPoint(), size()));
    placeToolbar();
    update();
}

void AreaSelector::placeToolbar() {
    m_toolbar->adjustSize();
    // Under the area when there is room, else inside it at the bottom.
    QPoint place(m_selection.center().x() - m_toolbar->width() / 2, m_selection.bottom() + 12);
    if (place.y() + m_toolbar->height() > height())
        place.setY(m_selection.bottom() - m_toolbar->height() - 12);
    place.setX(std::clamp(place.x(), 8, std::max(8, width() - m_toolbar->width() - 8)));
    m_toolbar->move(place);
    m_record->setEnabled(m_selection.width() >= minimumSide && m_selection.height() >= minimumSide);
}

void AreaSelector::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (!m_still.isNull())
        painter.drawPixmap(rect(), m_still);
    else
        painter.fillRect(rect(), AppStyle::background);
    // Dim everything but the area.
    QRegion outside(rect());
    outside -= QRegion(m_selection);
    painter.setClipRegion(outside);
    painter.fillRect(rect(), QColor(0, 0, 0, 140));
    painter.setClipping(false);

    painter.setPen(QPen(AppStyle::accent, 2));
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(QRectF(m_selection).adjusted(-1, -1, 1, 1));
    painter.setBrush(Qt::white);
    painter.setPen(QPen(AppStyle::accent, 1.5));
    for (const QPoint& corner : {m_selection.topLeft(), m_selection.topRight(),
                                 m_selection.bottomLeft(), m_selection.bottomRight()})
        painter.drawEllipse(QPointF(corner), handleSize / 2.0, handleSize / 2.0);

    // The size, in tabular figures, above the area's top left.
    const QString label =
        QStringLiteral("%1 × %2").arg(m_selection.width()).arg(m_selection.height());
    QFont font = painter.font();
    font.setPixelSize(12);
    font.setWeight(QFont::DemiBold);
    painter.setFont(font);
    const QRect text = painter.fontMetrics().boundingRect(label).adjusted(-8, -4, 8, 4);
    QRect badge(m_selection.left(), m_selection.top() - text.height() - 8, text.width(),
                text.height());
    if (badge.top() < 4)
        badge.moveTop(m_selection.top() + 8);
    painter.setPen(Qt::NoPen);
    painter.setBrush(AppStyle::background);
    painter.drawRoundedRect(badge, AppStyle::controlRadius, AppStyle::controlRadius);
    painter.setPen(AppStyle::text);
    painter.drawText(badge, Qt::AlignCenter, label);
}

Qt::Edges AreaSelector::edgesAt(QPoint p) const {
    Qt::Edges edges;
    const QRect grow = m_selection.adjusted(-handleSize, -handleSize, handleSize, handleSize);
    if (!grow.contains(p))
        return edges;
    if (std::abs(p.x() - m_selection.left()) <= handleSize)
        edges |= Qt::LeftEdge;
    if (std::abs(p.x() - m_selection.right()) <= handleSize)
        edges |= Qt::RightEdge;
    if (std::abs(p.y() - m_selection.top()) <= handleSize)
        edges |= Qt::TopEdge;
    if (std::abs(p.y() - m_selection.bottom()) <= handleSize)
        edges |= Qt::BottomEdge;
    return edges;
}

void AreaSelector::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton)
        return;
    const QPoint p = event->position().toPoint();
    m_anchor = p;
    m_startSelection = m_selection;
    m_edges = edgesAt(p);
    if (m_edges)
        m_drag = Drag::resize;
    else if (m_selection.contains(p))
        m_drag = Drag::move;
    else
        m_drag = Drag::create;
}

void AreaSelector::mouseMoveEvent(QMouseEvent* event) {
    const QPoint p = event->position().toPoint();
    if (m_drag == Drag::none) {
        const Qt::Edges edges = edgesAt(p);
        const bool diagonal =
            (edges & (Qt::LeftEdge | Qt::RightEdge)) && (edges & (Qt::TopEdge | Qt::BottomEdge));
        const bool falling =
            edges == (Qt::LeftEdge | Qt::TopEdge) || edges == (Qt::RightEdge | Qt::BottomEdge);
        setCursor(diagonal ? (falling ? Qt::SizeFDiagCursor : Qt::SizeBDiagCursor)
                  : edges & (Qt::LeftEdge | Qt::RightEdge) ? Qt::SizeHorCursor
                  : edges                                  ? Qt::SizeVerCursor
                  : m_selection.contains(p)                ? Qt::SizeAllCursor
                                                           : Qt::CrossCursor);
        return;
    }
    QRect next = m_startSelection;
    const QPoint delta = p - m_anchor;
    switch (m_drag) {
    case Drag::create:
        // Exactly the dragged distance: a drag of 400 points makes an area 400 wide.
        next = QRect(m_anchor, QSize(p.x() - m_anchor.x(), p.y() - m_anchor.y())).normalized();
        break;
    case Drag::move:
        next.translate(delta);
        next.moveLeft(std::clamp(next.left(), 0, width() - next.width()));
        next.moveTop(std::clamp(next.top(), 0, height() - next.height()));
        break;
    case Drag::resize:
        if (m_edges & Qt::LeftEdge)
            next.setLeft(next.left() + delta.x());
        if (m_edges & Qt::RightEdge)
            next.setRight(next.right() + delta.x());
        if (m_edges & Qt::TopEdge)
            next.setTop(next.top() + delta.y());
        if (m_edges & Qt::BottomEdge)
            next.setBottom(next.bottom() + delta.y());
        break;
    case Drag::none:
        break;
    }
    setSelection(next);
}

void AreaSelector::mouseReleaseEvent(QMouseEvent*) {
    m_drag = Drag::none;
}

void AreaSelector::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape)
        close();
    else if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter)
        confirm();
    else
        QWidget::keyPressEvent(event);
}

void AreaSelector::confirm() {
    if (!m_display || !m_record->isEnabled())
        return;
    m_defaults.set("savedArea", savedAreaText(m_selection));
    // The recording's area counts from the display's bottom left.
    const Rect area(m_selection.x(), height() - m_selection.y() - m_selection.height(),
                    m_selection.width(), m_selection.height());
    emit areaChosen(*m_display, area);
}
