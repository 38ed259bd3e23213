#pragma once

#include <QWidget>

class QLabel;

// The program's main window: where a recording is chosen and started. Thread: main.
class MainWindow final : public QWidget {
    Q_OBJECT
public:
    explicit MainWindow(QWidget* parent = nullptr);

    void setStatusText(const QString& text);
    QString statusText() const;

private:
    QLabel* m_status = nullptr;
};
