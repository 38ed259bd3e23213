#pragma once

#include <QWidget>

// A thin horizontal bar showing a level from 0 to 1 (full scale) on a logarithmic scale of
// -60 to 0 dB, falling back smoothly. Thread: main.
class AudioLevelMeter final : public QWidget {
public:
    explicit AudioLevelMeter(QWidget* parent = nullptr);

    // A peak magnitude, 0 to 1.
    void setLevel(float peak);
    float level() const { return m_shown; }
    QSize sizeHint() const override { return {160, 6}; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    float m_shown = 0;
};
