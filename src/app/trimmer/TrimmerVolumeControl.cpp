#include "app/trimmer/TrimmerVolumeControl.h"

#include "app/AppIcons.h"
#include "app/trimmer/TrimmerPlayer.h"
#include "app/trimmer/TrimmerStyle.h"

#include <QHBoxLayout>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSlider>

#include <cmath>

TrimmerVolumeControl::TrimmerVolumeControl(TrimmerPlayer& player, QWidget* parent)
    : QWidget(parent), m_player(player) {
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(trimmer::grid);
    m_mute = new QPushButton(this);
    m_mute->setCheckable(true);
    m_mute->setFocusPolicy(Qt::NoFocus);
    m_mute->setCursor(Qt::PointingHandCursor);
    m_mute->setMinimumWidth(40);
    m_slider = new QSlider(Qt::Horizontal, this);
    m_slider->setRange(0, 100);
    m_slider->setFixedWidth(96);
    m_slider->setFocusPolicy(Qt::NoFocus);
    m_slider->setToolTip(tr("Volume"));
    layout->addWidget(m_mute);
    layout->addWidget(m_slider);

    connect(m_mute, &QPushButton::toggled, this, [this](bool on) { m_player.setMuted(on); });
    connect(m_slider, &QSlider::valueChanged, this, [this](int value) {
        m_player.setVolume(value / 100.0);
        // Raising the volume of a muted recording means to hear it.
        if (value > 0 && m_player.isMuted())
            m_player.setMuted(false);
    });
    connect(&m_player, &TrimmerPlayer::volumeChanged, this, &TrimmerVolumeControl::display);
    display(m_player.volume(), m_player.isMuted());
    setEnabled(m_player.hasAudio());
    if (!m_player.hasAudio())
        setToolTip(tr("This recording has no sound"));
}

void TrimmerVolumeControl::display(double volume, bool muted) {
    const QSignalBlocker blockButton(m_mute);
    const QSignalBlocker blockSlider(m_slider);
    m_mute->setChecked(muted);
    m_mute->setIcon(AppIcons::icon(muted || volume <= 0.0 ? QStringLiteral("speaker-off")
                                                          : QStringLiteral("speaker"),
                                   trimmer::text));
    m_mute->setToolTip(muted ? tr("Sound off: click to hear it (M)")
                             : tr("Sound on: click to mute it (M)"));
    m_slider->setValue(int(std::lround(volume * 100)));
}
