#pragma once

#include "app/CardWindow.h"

class QLabel;
class QPushButton;
class QVBoxLayout;

// The frame every source selector shares: its title, a hint, the content the selector puts
// in, and a footer with Cancel and the record button (enabled once something is chosen).
// Escape closes it. Thread: main.
class SelectorWindow : public CardWindow {
    Q_OBJECT
public:
    SelectorWindow(const QString& title, const QString& hint, QWidget* parent = nullptr);

    QPushButton* recordButton() const { return m_record; }

protected:
    QVBoxLayout* content() const { return m_content; }
    // Adds a widget to the footer, left of the buttons.
    void addFooterWidget(QWidget* widget);
    void setRecordEnabled(bool enabled);
    // Called by the record button; the selector emits its choice.
    virtual void confirm() = 0;
    void keyPressEvent(QKeyEvent* event) override;

private:
    QVBoxLayout* m_content = nullptr;
    QWidget* m_footer = nullptr;
    QPushButton* m_record = nullptr;
};
