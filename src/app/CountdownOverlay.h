#pragma once

#include <QWidget>

// The countdown before a recording: a large number in the middle of what will be recorded,
// on a translucent dark rounded square, letting clicks through. Thread: main.
class CountdownOverlay final : public QWidget {
    Q_OBJECT
public:
    CountdownOverlay();

    // Shows `seconds` centred on `area` (desktop points, top-left origin).
    void showCount(int seconds, const QRect& area);
    int count() const { return m_count; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    int m_count = 0;
};
