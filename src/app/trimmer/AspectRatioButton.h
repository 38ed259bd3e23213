#pragma once

#include <QAbstractButton>

// One output shape as a small frame of its proportions with its name under it ("16:9");
// `ratio` 0 draws the recording's own shape with a dashed outline. Checkable. Main thread.
class AspectRatioButton final : public QAbstractButton {
public:
    AspectRatioButton(const QString& name, double ratio, QWidget* parent = nullptr);

    QSize sizeHint() const override { return {56, 60}; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    double m_ratio = 0.0;
};
