#pragma once

#include <QAbstractButton>
#include <QColor>

#include <vector>

// A round-cornered sample of a background: one colour, or a gradient of several at an angle.
// Checkable; the chosen one carries the accent ring. Main thread.
class SwatchButton final : public QAbstractButton {
public:
    SwatchButton(std::vector<QColor> colors, double angle, const QString& name,
                 QWidget* parent = nullptr);

    QSize sizeHint() const override { return {40, 40}; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    std::vector<QColor> m_colors;
    double m_angle = 0.0;
};
