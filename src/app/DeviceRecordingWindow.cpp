#include "app/DeviceRecordingWindow.h"

#include "app/AppIcons.h"
#include "app/AppStyle.h"
#include "app/camera/CameraPreviewWidget.h"
#include "core/support/Formatters.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QShortcut>
#include <QVBoxLayout>

DeviceRecordingWindow::DeviceRecordingWindow(const QString& deviceName,
                                             const QString& soundDescription, QWidget* parent)
    : CardWindow(parent, Qt::WindowStaysOnTopHint) {
    setObjectName(QStringLiteral("deviceRecordingWindow"));
    setWindowTitle(deviceName + QStringLiteral(" — Preview"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 12, 16, 16);
    layout->setSpacing(12);

    auto* header = new QHBoxLayout();
    header->setSpacing(8);
    auto* dot = new QLabel(this);
    dot->setFixedSize(10, 10);
    dot->setStyleSheet(QStringLiteral("background: #ff4d5e; border-radius: 5px;"));
    auto* title = new QLabel(deviceName, this);
    title->setProperty("role", QStringLiteral("title"));
    m_elapsed = new QLabel(this);
    m_elapsed->setObjectName(QStringLiteral("deviceElapsedLabel"));
    // Figures of one width, so the time does not jitter as it runs.
    QFont figures = m_elapsed->font();
    figures.setWeight(QFont::DemiBold);
    figures.setStyleHint(QFont::TypeWriter, QFont::PreferDefault);
    m_elapsed->setFont(figures);
    header->addWidget(dot);
    header->addWidget(title);
    header->addStretch();
    header->addWidget(m_elapsed);
    layout->addLayout(header);

    m_preview = new CameraPreviewWidget(this);
    m_preview->setObjectName(QStringLiteral("devicePreview"));
    m_preview->setFixedSize(640, 360);
    layout->addWidget(m_preview);

    auto* footer = new QHBoxLayout();
    footer->setSpacing(8);
    auto* sound = new QLabel(this);
    sound->setObjectName(QStringLiteral("deviceSoundLabel"));
    sound->setProperty("role", QStringLiteral("secondary"));
    sound->setText(soundDescription.isEmpty() ? tr("No sound")
                                              : tr("Sound: %1").arg(soundDescription));
    auto* speaker = new QLabel(this);
    speaker->setPixmap(AppIcons::icon(QStringLiteral("speaker"), AppStyle::secondaryText)
                           .pixmap(QSize(16, 16), devicePixelRatioF()));
    m_stop =
        new QPushButton(AppIcons::icon(QStringLiteral("stop"), AppStyle::text), tr("Stop"), this);
    m_stop->setObjectName(QStringLiteral("deviceStopButton"));
    m_stop->setProperty("role", QStringLiteral("danger"));
    m_stop->setToolTip(tr("Stop recording (Esc)"));
    m_stop->setMinimumWidth(96);
    footer->addWidget(speaker);
    footer->addWidget(sound);
    footer->addStretch();
    footer->addWidget(m_stop);
    layout->addLayout(footer);
    layout->setSizeConstraint(QLayout::SetFixedSize);

    connect(m_stop, &QPushButton::clicked, this, &DeviceRecordingWindow::stopRequested);
    new QShortcut(QKeySequence(Qt::Key_Escape), this, [this] { emit stopRequested(); });
    setElapsedSeconds(0);
}

void DeviceRecordingWindow::setElapsedSeconds(double seconds) {
    m_elapsed->setText(formattedDuration(seconds));
}

QString DeviceRecordingWindow::elapsedText() const {
    return m_elapsed->text();
}

void DeviceRecordingWindow::showFinishing() {
    m_stop->setEnabled(false);
    m_stop->setText(tr("Finishing…"));
}
