#include "platform/x11/CursorOverlayWindows.h"

#include "core/model/Constants.h"
#include "core/support/Log.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QRegion>

#include <algorithm>
#include <cmath>

namespace {

constexpr int highlightSide = 70;
constexpr int rippleSide = 200;
constexpr int clickAnimationMs = 300;
constexpr int rippleMs = 600;

// Tool windows that take no input and no focus and stay above everything; the window manager
// leaves them alone, so they sit exactly on the pointer.
void makeOverlay(QWindow& window, std::string_view title) {
    window.setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                    Qt::WindowTransparentForInput | Qt::WindowDoesNotAcceptFocus |
                    Qt::X11BypassWindowManagerHint);
    window.setTitle(QString::fromUtf8(title.data(), qsizetype(title.size())));
    QSurfaceFormat format = window.format();
    format.setAlphaBufferSize(8);
    window.setFormat(format);
}

// A round shape for a window without a compositor to blend it.
void cutToCircle(QWindow& window, int side) {
    window.setMask(QRegion(0, 0, side, side, QRegion::Ellipse));
}

QColor colourOf(const CodableColor& c) {
    return QColor::fromRgbF(float(c.red), float(c.green), float(c.blue), float(c.alpha));
}

} // namespace

class CursorOverlayWindows::PointerWindow final : public QRasterWindow {
public:
    PointerWindow() {
        makeOverlay(*this, Constants::WindowTitle::mousePointer);
        m_pressed.setSingleShot(true);
        QObject::connect(&m_pressed, &QTimer::timeout, [this] { update(); });
    }
    PointerLook look;

    int side() const {
        return look.customStyle ? std::max(4, int(std::lround(look.customSize))) : highlightSide;
    }
    void press() {
        m_pressed.start(clickAnimationMs);
        update();
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setCompositionMode(QPainter::CompositionMode_Source);
        p.fillRect(QRect(QPoint(0, 0), size()), Qt::transparent);
        p.setCompositionMode(QPainter::CompositionMode_SourceOver);
        p.setRenderHint(QPainter::Antialiasing);
        const double s = side();
        const double scale = look.scaleAnimation && m_pressed.isActive() ? 0.8 : 1.0;
        p.translate(s / 2, s / 2);
        p.scale(scale, scale);
        p.translate(-s / 2, -s / 2);
        if (!look.customStyle) {
            // The highlight: a soft yellow disc with a firm rim.
            p.setPen(QPen(QColor(255, 200, 0, 230), 3));
            p.setBrush(QColor(255, 230, 0, 110));
            p.drawEllipse(QRectF(2, 2, s - 4, s - 4));
            return;
        }
        p.setPen(QPen(Qt::white, std::max(1.0, s / 16)));
        p.setBrush(Qt::black);
        switch (*look.customStyle) {
        case CursorStyle::circle:
            p.drawEllipse(QRectF(s * 0.15, s * 0.15, s * 0.7, s * 0.7));
            break;
        case CursorStyle::arrow: {
            QPainterPath arrow;
            arrow.moveTo(s * 0.5, s * 0.5);
            arrow.lineTo(s * 0.5, s * 0.95);
            arrow.lineTo(s * 0.62, s * 0.82);
            arrow.lineTo(s * 0.72, s * 0.98);
            arrow.lineTo(s * 0.8, s * 0.94);
            arrow.lineTo(s * 0.7, s * 0.78);
            arrow.lineTo(s * 0.86, s * 0.78);
            arrow.closeSubpath();
            p.drawPath(arrow);
            break;
        }
        case CursorStyle::pointer: {
            // A hand's finger pointing up at the hot spot in the middle.
            p.drawRoundedRect(QRectF(s * 0.42, s * 0.5, s * 0.16, s * 0.3), s * 0.08, s * 0.08);
            p.drawRoundedRect(QRectF(s * 0.36, s * 0.7, s * 0.36, s * 0.26), s * 0.1, s * 0.1);
            break;
        }
        case CursorStyle::custom:
            p.setBrush(Qt::NoBrush);
            p.setPen(QPen(QColor(0, 160, 255), std::max(2.0, s / 10)));
            p.drawEllipse(QRectF(s * 0.2, s * 0.2, s * 0.6, s * 0.6));
            p.drawPoint(QPointF(s / 2, s / 2));
            break;
        }
    }

private:
    QTimer m_pressed;
};

class CursorOverlayWindows::RippleWindow final : public QRasterWindow {
public:
    RippleWindow() {
        makeOverlay(*this, Constants::WindowTitle::rippleEffect);
        resize(rippleSide, rippleSide);
        m_frame.setInterval(16);
        QObject::connect(&m_frame, &QTimer::timeout, [this] {
            if (m_clock.elapsed() >= rippleMs) {
                m_frame.stop();
                hide();
                return;
            }
            shapeToRing();
            update();
        });
    }
    void start(int x, int y, QColor colour, ClickType type) {
        m_colour = colour;
        m_type = type;
        setPosition(x - rippleSide / 2, y - rippleSide / 2);
        m_clock.start();
        m_frame.start();
        shapeToRing();
        show();
        raise();
        update();
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setCompositionMode(QPainter::CompositionMode_Source);
        p.fillRect(QRect(QPoint(0, 0), size()), Qt::transparent);
        p.setCompositionMode(QPainter::CompositionMode_SourceOver);
        p.setRenderHint(QPainter::Antialiasing);
        QColor ring = m_colour;
        ring.setAlphaF(float(std::min(1.0, m_colour.alphaF() * (1.0 - progress()) * 2.0)));
        const double radius = this->radius();
        p.setPen(QPen(ring, penWidth()));
        p.setBrush(Qt::NoBrush);
        p.drawEllipse(QPointF(rippleSide / 2.0, rippleSide / 2.0), radius, radius);
        if (m_type == ClickType::doubleClick)
            p.drawEllipse(QPointF(rippleSide / 2.0, rippleSide / 2.0), radius * 0.6, radius * 0.6);
    }

private:
    double progress() const { return std::clamp(m_clock.elapsed() / double(rippleMs), 0.0, 1.0); }
    double radius() const { return 10 + progress() * (rippleSide / 2.0 - 14); }
    int penWidth() const { return m_type == ClickType::rightClick ? 3 : 6; }
    // Without a compositor the window is opaque: it is cut to the ring (and the inner ring of
    // a double click), so the screen shows through everywhere else.
    void shapeToRing() {
        auto ring = [&](double r) {
            const int outer = int(std::ceil(r + penWidth()));
            const int inner = std::max(0, int(std::floor(r - penWidth())));
            const int c = rippleSide / 2;
            return QRegion(c - outer, c - outer, 2 * outer, 2 * outer, QRegion::Ellipse)
                .subtracted(QRegion(c - inner, c - inner, 2 * inner, 2 * inner, QRegion::Ellipse));
        };
        QRegion shape = ring(radius());
        if (m_type == ClickType::doubleClick)
            shape += ring(radius() * 0.6);
        setMask(shape);
    }

    QColor m_colour;
    ClickType m_type = ClickType::leftClick;
    QElapsedTimer m_clock;
    QTimer m_frame;
};

class CursorOverlayWindows::MagnifierWindow final : public QRasterWindow {
public:
    static constexpr int width = magnifierCropWidth * magnifierZoom;
    static constexpr int height = magnifierCropHeight * magnifierZoom;
    static constexpr int radius = 14;
    static constexpr int border = 3;

    MagnifierWindow() {
        makeOverlay(*this, Constants::WindowTitle::screenMagnifier);
        // Opaque: the picture fills it and the shape cuts the corners. A window with an alpha
        // channel is composited by the server, and without a compositing manager whatever
        // repaints below it may then show through until it paints again.
        QSurfaceFormat format = this->format();
        format.setAlphaBufferSize(0);
        setFormat(format);
        resize(width, height);
        // Rounded corners; without a compositor the window is cut to them.
        QPainterPath outline;
        outline.addRoundedRect(QRectF(0, 0, width, height), radius, radius);
        setMask(QRegion(outline.toFillPolygon().toPolygon()));
    }
    // True when the window was hidden and is now mapped, on top of the others.
    bool show(int x, int y, const QImage& crop) {
        const QPoint at(x - width / 2, y - height / 2);
        const bool wasVisible = isVisible();
        // At rest over a still screen there is nothing to do.
        if (wasVisible && at == position() && crop == m_crop)
            return false;
        m_crop = crop;
        setPosition(at);
        if (!wasVisible)
            QRasterWindow::show();
        update();
        return !wasVisible;
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setCompositionMode(QPainter::CompositionMode_Source);
        p.fillRect(QRect(QPoint(0, 0), size()), Qt::transparent);
        p.setRenderHint(QPainter::Antialiasing);
        QPainterPath outline;
        outline.addRoundedRect(QRectF(0, 0, width, height), radius, radius);
        p.setClipPath(outline);
        // Whole screen pixels, each a square of three: sharp, as a magnifier should be.
        p.drawImage(QRect(0, 0, width, height), m_crop);
        p.setClipping(false);
        p.setCompositionMode(QPainter::CompositionMode_SourceOver);
        p.setPen(QPen(QColor(60, 60, 60), border));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(QRectF(border / 2.0, border / 2.0, width - border, height - border),
                          radius, radius);
    }

private:
    QImage m_crop;
};

bool CursorOverlayWindows::isAvailable() {
    return qobject_cast<QGuiApplication*>(QCoreApplication::instance()) != nullptr;
}

CursorOverlayWindows::CursorOverlayWindows()
    : m_magnifier(std::make_unique<MagnifierWindow>()),
      m_pointer(std::make_unique<PointerWindow>()), m_ripple(std::make_unique<RippleWindow>()) {}

CursorOverlayWindows::~CursorOverlayWindows() = default;

void CursorOverlayWindows::setLook(const PointerLook& look) {
    m_pointer->look = look;
    const int side = m_pointer->side();
    m_pointer->resize(side, side);
    cutToCircle(*m_pointer, side);
    if (look.customStyle && *look.customStyle != CursorStyle::circle)
        m_pointer->setMask(QRegion(0, 0, side, side));
    m_pointer->update();
}

void CursorOverlayWindows::movePointer(int x, int y) {
    const PointerLook& look = m_pointer->look;
    if (!look.highlight && !look.customStyle) {
        hidePointer();
        return;
    }
    const int side = m_pointer->side();
    m_pointer->setPosition(x - side / 2, y - side / 2);
    if (!m_pointer->isVisible())
        m_pointer->show();
    m_pointer->raise();
    // Painting again marks the new place as changed for capture that listens for damage; a
    // moved window alone may not.
    m_pointer->update();
}

void CursorOverlayWindows::hidePointer() {
    m_pointer->hide();
}

void CursorOverlayWindows::click(int x, int y, ClickType type,
                                 std::optional<CodableColor> rippleColor) {
    if (m_pointer->isVisible())
        m_pointer->press();
    if (rippleColor)
        m_ripple->start(x, y, colourOf(*rippleColor), type);
}

void CursorOverlayWindows::hideAll() {
    m_pointer->hide();
    m_ripple->hide();
    m_magnifier->hide();
}

void CursorOverlayWindows::showMagnifier(int x, int y, const QImage& crop) {
    if (!m_magnifier->show(x, y, crop))
        return;
    // The pointer and the ripple stay above it.
    if (m_pointer->isVisible())
        m_pointer->raise();
    if (m_ripple->isVisible())
        m_ripple->raise();
}

void CursorOverlayWindows::hideMagnifier() {
    m_magnifier->hide();
}

bool CursorOverlayWindows::isMagnifierVisible() const {
    return m_magnifier->isVisible();
}

bool CursorOverlayWindows::isPointerVisible() const {
    return m_pointer->isVisible();
}
