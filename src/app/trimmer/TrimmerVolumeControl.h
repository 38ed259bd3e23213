#pragma once

#include <QWidget>

class QPushButton;
class QSlider;
class TrimmerPlayer;

// The trimmer's sound control: a mute button and a volume slider bound to the player. Shown
// disabled when the recording has no sound.
//
// Main thread.
class TrimmerVolumeControl final : public QWidget {
    Q_OBJECT
public:
    TrimmerVolumeControl(TrimmerPlayer& player, QWidget* parent = nullptr);

    QPushButton& muteButton() { return *m_mute; }
    QSlider& slider() { return *m_slider; }

private:
    void display(double volume, bool muted);

    TrimmerPlayer& m_player;
    QPushButton* m_mute = nullptr;
    QSlider* m_slider = nullptr;
};
