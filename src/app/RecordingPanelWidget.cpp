#include "app/RecordingPanelWidget.h"

#include "app/AppStyle.h"
#include "core/model/Constants.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>

namespace {
constexpr int pillHeight = 48;
} // namespace

RecordingPanelWidget::RecordingPanelWidget()
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           Qt::WindowDoesNotAcceptFocus) {
    setObjectName(QStringLiteral("recordingPanel"));
    setWindowTitle(QString::fromUtf8(Constants::WindowTitle::statusBar.data(),
                                     qsizetype(Constants::WindowTitle::statusBar.size())));
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setStyleSheet(AppStyle::styleSheet());
    setFixedHeight(pillHeight);

    auto* layout = new QHBoxLayout(this);
    // Room on the left for the red dot drawn by paintEvent.
    layout->setContentsMargins(36, 8, 8, 8);
    layout->setSpacing(AppStyle::grid);

    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("panelStatusLabel"));
    QFont figures = m_status->font();
    figures.setPixelSize(15);
    figures.setWeight(QFont::DemiBold);
    figures.setStyleHint(QFont::TypeWriter, QFont::PreferDefault);
    m_status->setFont(figures);
    m_status->setMinimumWidth(72);
    layout->addWidget(m_status);

    auto makeButton = [this, layout](const char* name, const QString& text, const char* role,
                                     const QString& tip) {
        auto* button = new QPushButton(text, this);
        button->setObjectName(QString::fromLatin1(name));
        button->setProperty("role", QString::fromLatin1(role));
        button->setToolTip(tip);
        button->setCursor(Qt::PointingHandCursor);
        button->setFocusPolicy(Qt::NoFocus);
        layout->addWidget(button);
        return button;
    };
    m_pause = makeButton("panelPauseButton", tr("Pause"), "", tr("Pause or resume (Ctrl+Shift+P)"));
    m_stop = makeButton("panelStopButton", tr("Stop Recording"), "danger",
                        tr("Stop and save (Ctrl+Shift+S)"));
    m_cancel = makeButton("panelCancelButton", tr("Cancel"), "ghost", tr("Cancel the start (Esc)"));
    connect(m_pause, &QPushButton::clicked, this, &RecordingPanelWidget::pauseClicked);
    connect(m_stop, &QPushButton::clicked, this, &RecordingPanelWidget::stopClicked);
    connect(m_cancel, &QPushButton::clicked, this, &RecordingPanelWidget::cancelClicked);
    setStarting(true);
}

void RecordingPanelWidget::setStatus(const QString& text, bool recording, bool paused) {
    m_status->setText(text);
    m_recording = recording;
    m_paused = paused;
    update();
}

void RecordingPanelWidget::setStarting(bool starting) {
    m_cancel->setVisible(starting);
    m_pause->setVisible(!starting);
    m_stop->setVisible(!starting);
    adjustSize();
}

void RecordingPanelWidget::setPaused(bool paused) {
    m_pause->setText(paused ? tr("Resume") : tr("Pause"));
}

void RecordingPanelWidget::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF pill = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    QPainterPath path;
    path.addRoundedRect(pill, pill.height() / 2, pill.height() / 2);
    painter.fillPath(path, AppStyle::background);
    painter.setPen(QPen(AppStyle::hairline, 1.0));
    painter.drawPath(path);
    // Red while recording, grey while starting or paused.
    const QColor dot = m_recording && !m_paused ? AppStyle::recording : AppStyle::secondaryText;
    painter.setPen(Qt::NoPen);
    painter.setBrush(dot);
    painter.drawEllipse(QPointF(20, pillHeight / 2.0), 6, 6);
}

void RecordingPanelWidget::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton)
        m_dragOffset = event->globalPosition().toPoint() - frameGeometry().topLeft();
}

void RecordingPanelWidget::mouseMoveEvent(QMouseEvent* event) {
    if (m_dragOffset && (event->buttons() & Qt::LeftButton))
        move(event->globalPosition().toPoint() - *m_dragOffset);
}

void RecordingPanelWidget::mouseReleaseEvent(QMouseEvent*) {
    if (!m_dragOffset)
        return;
    m_dragOffset.reset();
    emit dragged(pos());
}
