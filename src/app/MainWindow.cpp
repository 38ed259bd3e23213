#include "app/MainWindow.h"

#include "core/model/Constants.h"
#include "core/model/RecordingState.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

MainWindow::MainWindow(QWidget* parent) : QWidget(parent) {
    setWindowTitle(QString::fromUtf8(Constants::WindowTitle::modeSelection.data(),
                                     qsizetype(Constants::WindowTitle::modeSelection.size())));
    auto* layout = new QVBoxLayout(this);
    auto* heading = new QLabel(tr("<b>tavelquiston</b> — screen recorder and editor"), this);
    m_status = new QLabel(RecordingState::idle().displayName(), this);
    m_status->setObjectName(QStringLiteral("statusLabel"));
    auto* quit = new QPushButton(tr("Quit"), this);
    connect(quit, &QPushButton::clicked, qApp, &QApplication::quit);
    layout->addWidget(heading);
    layout->addWidget(m_status);
    layout->addWidget(quit);
    setMinimumWidth(360);
}

void MainWindow::setStatusText(const QString& text) {
    m_status->setText(text);
}

QString MainWindow::statusText() const {
    return m_status->text();
}
