#include "app/trimmer/TimelineStrip.h"

#include "app/trimmer/TrimmerStyle.h"
#include "core/timeline/TimeRuler.h"

#include <QMouseEvent>
#include <QNativeGestureEvent>
#include <QPainter>
#include <QPainterPath>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace {
constexpr double rulerHeight = 24.0;
constexpr double zoomTrackHeight = 28.0;
constexpr double videoTrackHeight = 48.0;
constexpr double trackGap = 8.0;
constexpr double sideMargin = 16.0;
} // namespace

TimelineStrip::TimelineStrip(QWidget* parent) : QWidget(parent) {
    setMinimumHeight(int(rulerHeight + zoomTrackHeight + videoTrackHeight + 4 * trackGap));
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setFocusPolicy(Qt::NoFocus);
}

void TimelineStrip::setDuration(double seconds) {
    m_duration = std::max(0.0, seconds);
    m_viewport.fitToDuration(m_duration);
    update();
}

void TimelineStrip::setWaveform(std::vector<float> values) {
    m_waveform = std::move(values);
    update();
}

void TimelineStrip::setZoomSegments(std::vector<Bar> segments) {
    m_zoomSegments = std::move(segments);
    update();
}

void TimelineStrip::setCutSegments(std::vector<Bar> segments) {
    m_cutSegments = std::move(segments);
    update();
}

void TimelineStrip::setSelectedSegment(std::optional<QUuid> id) {
    m_selected = std::move(id);
    update();
}

void TimelineStrip::setSelectedZoomSegment(std::optional<QUuid> id) {
    m_selectedZoom = std::move(id);
    update();
}

void TimelineStrip::setPlayhead(double seconds) {
    if (seconds == m_playhead)
        return;
    // A playhead that leaves the view takes the view along, a little ahead of it.
    if (seconds < m_viewport.visibleStart || seconds > m_viewport.visibleEnd) {
        m_viewport.pan(seconds - m_viewport.visibleStart - m_viewport.visibleDuration() * 0.1);
        m_playhead = seconds;
        update();
        return;
    }
    // Only the strip of the old and the new playhead is painted again.
    const double oldX = xForTime(m_playhead);
    m_playhead = seconds;
    const double newX = xForTime(m_playhead);
    update(QRectF(std::min(oldX, newX) - 8, 0, std::abs(newX - oldX) + 16, height()).toRect());
}

QRectF TimelineStrip::rulerRect() const {
    return {sideMargin, trackGap / 2, width() - 2 * sideMargin, rulerHeight};
}

QRectF TimelineStrip::zoomTrackRect() const {
    return {sideMargin, rulerRect().bottom() + trackGap, width() - 2 * sideMargin, zoomTrackHeight};
}

QRectF TimelineStrip::videoTrackRect() const {
    return {sideMargin, zoomTrackRect().bottom() + trackGap, width() - 2 * sideMargin,
            videoTrackHeight};
}

double TimelineStrip::xForTime(double seconds) const {
    const QRectF track = rulerRect();
    if (m_duration <= 0)
        return track.left();
    return track.left() + m_viewport.timeToX(seconds, track.width());
}

double TimelineStrip::timeForX(double x) const {
    const QRectF track = rulerRect();
    if (track.width() <= 0)
        return 0.0;
    return m_viewport.clampedTime(m_viewport.xToTime(x - track.left(), track.width()));
}

void TimelineStrip::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(rect(), trimmer::background);
    painter.setPen(trimmer::hairline);
    painter.drawLine(QPointF(0, 0.5), QPointF(width(), 0.5));
    // What lies outside the view is cut at the tracks' ends.
    painter.setClipRect(QRectF(rulerRect().left() - 7, 0, rulerRect().width() + 14, height()));
    paintRuler(painter);
    paintZoomTrack(painter);
    paintVideoTrack(painter);
    paintPlayhead(painter);
}

void TimelineStrip::paintRuler(QPainter& painter) {
    const QRectF ruler = rulerRect();
    if (m_duration <= 0)
        return;
    const RulerIntervals intervals =
        calculateIntervals(m_viewport.visibleDuration(), ruler.width());
    const double end = m_viewport.visibleEnd + 1e-9;
    QFont font = painter.font();
    font.setPixelSize(11);
    painter.setFont(font);
    if (intervals.minor > 0) {
        painter.setPen(trimmer::hairline);
        for (double t = std::floor(m_viewport.visibleStart / intervals.minor) * intervals.minor;
             t <= end; t += intervals.minor) {
            const double x = std::round(xForTime(t)) + 0.5;
            painter.drawLine(QPointF(x, ruler.bottom() - 4), QPointF(x, ruler.bottom()));
        }
    }
    for (double t = std::floor(m_viewport.visibleStart / intervals.major) * intervals.major;
         t <= end; t += intervals.major) {
        const double x = std::round(xForTime(t)) + 0.5;
        painter.setPen(trimmer::hairline);
        painter.drawLine(QPointF(x, ruler.bottom() - 8), QPointF(x, ruler.bottom()));
        painter.setPen(trimmer::secondaryText);
        painter.drawText(QRectF(x + 3, ruler.top(), 60, ruler.height() - 8),
                         Qt::AlignLeft | Qt::AlignVCenter,
                         QString::fromStdString(formatTimeAdaptive(t, intervals.major)));
    }
}

void TimelineStrip::paintZoomTrack(QPainter& painter) {
    const QRectF track = zoomTrackRect();
    painter.setPen(Qt::NoPen);
    painter.setBrush(trimmer::raised);
    painter.drawRoundedRect(track, trimmer::controlRadius, trimmer::controlRadius);
    QFont font = painter.font();
    font.setPixelSize(11);
    painter.setFont(font);
    for (const Bar& segment : m_zoomSegments) {
        const QRectF bar(QPointF(xForTime(segment.start), track.top() + 3),
                         QPointF(xForTime(segment.end), track.bottom() - 3));
        const bool selected = m_selectedZoom && *m_selectedZoom == segment.id;
        QColor fill = trimmer::accent;
        fill.setAlphaF(selected ? 0.9f : 0.55f);
        painter.setPen(selected ? QPen(trimmer::text, 1.5) : Qt::NoPen);
        painter.setBrush(fill);
        painter.drawRoundedRect(bar, trimmer::controlRadius, trimmer::controlRadius);
        // Handles at both ends.
        painter.setPen(Qt::NoPen);
        painter.setBrush(trimmer::text);
        painter.drawRoundedRect(QRectF(bar.left() + 3, bar.center().y() - 6, 3, 12), 1.5, 1.5);
        painter.drawRoundedRect(QRectF(bar.right() - 6, bar.center().y() - 6, 3, 12), 1.5, 1.5);
        if (bar.width() > 40) {
            painter.setPen(trimmer::text);
            painter.drawText(bar, Qt::AlignCenter,
                             QStringLiteral("%1×").arg(segment.zoomLevel, 0, 'g', 2));
        }
    }
}

void TimelineStrip::paintVideoTrack(QPainter& painter) {
    const QRectF track = videoTrackRect();
    std::vector<Bar> segments = m_cutSegments;
    if (segments.empty() && m_duration > 0)
        segments.push_back({QUuid(), 0.0, m_duration, 1.0, false});
    for (const Bar& segment : segments) {
        const QRectF bar(QPointF(xForTime(segment.start) + 1, track.top()),
                         QPointF(xForTime(segment.end) - 1, track.bottom()));
        const bool selected = m_selected && *m_selected == segment.id;
        QColor fill = segment.removed ? trimmer::background : trimmer::raised;
        painter.setPen(QPen(selected ? trimmer::accent : trimmer::hairline, selected ? 2 : 1));
        painter.setBrush(fill);
        painter.drawRoundedRect(bar, trimmer::controlRadius, trimmer::controlRadius);
        if (segment.removed) {
            // Removed parts are struck through in the destructive colour.
            QColor strike = trimmer::destructive;
            strike.setAlphaF(0.6f);
            painter.setPen(QPen(strike, 1.5));
            painter.drawLine(bar.topLeft() + QPointF(4, 4), bar.bottomRight() - QPointF(4, 4));
        }
    }
    // The waveform under the video track, mirrored around its middle.
    if (!m_waveform.empty() && m_duration > 0) {
        QPainterPath path;
        const double middle = track.center().y();
        const double amplitude = track.height() / 2 - 6;
        const double left = xForTime(0), right = xForTime(m_duration);
        const size_t count = m_waveform.size();
        // Only the values in view, one more at each side.
        const auto index = [&](double t) {
            return size_t(std::clamp(t / m_duration * double(count), 0.0, double(count)));
        };
        const size_t first =
            index(m_viewport.visibleStart) > 0 ? index(m_viewport.visibleStart) - 1 : 0;
        const size_t last = std::min(count, index(m_viewport.visibleEnd) + 2);
        const auto xOf = [&](size_t i) {
            return left + (right - left) * double(i) / double(count);
        };
        path.moveTo(xOf(first), middle);
        for (size_t i = first; i < last; ++i)
            path.lineTo(xOf(i), middle - amplitude * double(m_waveform[i]));
        for (size_t i = last; i-- > first;)
            path.lineTo(xOf(i), middle + amplitude * double(m_waveform[i]));
        path.closeSubpath();
        QColor wave = trimmer::secondaryText;
        wave.setAlphaF(0.45f);
        painter.setPen(Qt::NoPen);
        painter.setBrush(wave);
        painter.drawPath(path);
    }
}

void TimelineStrip::paintPlayhead(QPainter& painter) {
    const double x = xForTime(m_playhead);
    painter.setPen(QPen(trimmer::accent, 2));
    painter.drawLine(QPointF(x, rulerRect().top()), QPointF(x, videoTrackRect().bottom()));
    painter.setPen(Qt::NoPen);
    painter.setBrush(trimmer::accent);
    QPainterPath knob;
    knob.addRoundedRect(QRectF(x - 6, rulerRect().top(), 12, 10), 3, 3);
    painter.drawPath(knob);
}

void TimelineStrip::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || m_duration <= 0)
        return;
    const QPointF at = event->position();
    const double t = timeForX(at.x());
    if (zoomTrackRect().contains(at)) {
        // Later segments are drawn on top, so they are hit first.
        for (auto it = m_zoomSegments.rbegin(); it != m_zoomSegments.rend(); ++it) {
            const double left = xForTime(it->start), right = xForTime(it->end);
            if (at.x() < left - 2 || at.x() > right + 2)
                continue;
            constexpr double edge = 8.0;
            ZoomGrip grip = ZoomGrip::move;
            if (at.x() <= left + edge)
                grip = ZoomGrip::start;
            else if (at.x() >= right - edge)
                grip = ZoomGrip::end;
            m_zoomDrag = ZoomDrag{it->id, grip, t - it->start};
            setSelectedZoomSegment(it->id);
            emit zoomSegmentSelected(it->id);
            emit zoomDragStarted(it->id);
            return;
        }
    }
    if (videoTrackRect().contains(at)) {
        for (const Bar& segment : m_cutSegments) {
            if (t >= segment.start && t < segment.end) {
                setSelectedSegment(segment.id);
                emit segmentSelected(segment.id);
            }
        }
    }
    m_dragging = true;
    emit scrubbed(t);
}

void TimelineStrip::mouseMoveEvent(QMouseEvent* event) {
    if (m_zoomDrag) {
        const double t = timeForX(event->position().x());
        emit zoomDragged(m_zoomDrag->id, m_zoomDrag->grip,
                         m_zoomDrag->grip == ZoomGrip::move ? t - m_zoomDrag->grabOffset : t);
        return;
    }
    if (m_dragging)
        emit scrubbed(timeForX(event->position().x()));
}

void TimelineStrip::wheelEvent(QWheelEvent* event) {
    if (m_duration <= 0)
        return;
    const QPoint delta = event->angleDelta();
    if (event->modifiers() & Qt::ControlModifier) {
        // One notch of the wheel zooms by about a fifth.
        const double factor = std::pow(1.2, delta.y() / 120.0);
        m_viewport.zoom(factor, timeForX(event->position().x()));
    } else {
        const int notches = delta.x() != 0 ? -delta.x() : -delta.y();
        m_viewport.pan(m_viewport.visibleDuration() * 0.1 * notches / 120.0);
    }
    update();
    event->accept();
}

bool TimelineStrip::event(QEvent* event) {
    if (event->type() == QEvent::NativeGesture) {
        auto* gesture = static_cast<QNativeGestureEvent*>(event);
        if (gesture->gestureType() == Qt::ZoomNativeGesture && m_duration > 0) {
            m_viewport.zoom(1.0 + gesture->value(), timeForX(gesture->position().x()));
            update();
            return true;
        }
    }
    return QWidget::event(event);
}

void TimelineStrip::mouseReleaseEvent(QMouseEvent* event) {
    if (m_zoomDrag) {
        const QUuid id = m_zoomDrag->id;
        m_zoomDrag.reset();
        emit zoomDragEnded(id);
        return;
    }
    if (!m_dragging)
        return;
    m_dragging = false;
    emit scrubEnded(timeForX(event->position().x()));
}
