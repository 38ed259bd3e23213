#include "app/SelectorWindow.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

SelectorWindow::SelectorWindow(const QString& title, const QString& hint, QWidget* parent)
    : CardWindow(parent, Qt::WindowStaysOnTopHint) {
    setWindowTitle(title);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(12);
    auto* heading = new QLabel(title, this);
    heading->setProperty("role", QStringLiteral("title"));
    auto* hintLabel = new QLabel(hint, this);
    hintLabel->setProperty("role", QStringLiteral("secondary"));
    layout->addWidget(heading);
    layout->addWidget(hintLabel);

    m_content = new QVBoxLayout();
    m_content->setSpacing(8);
    layout->addLayout(m_content, 1);

    m_footer = new QWidget(this);
    auto* footer = new QHBoxLayout(m_footer);
    footer->setContentsMargins(0, 0, 0, 0);
    footer->setSpacing(8);
    auto* cancel = new QPushButton(tr("Cancel"), m_footer);
    cancel->setObjectName(QStringLiteral("selectorCancelButton"));
    cancel->setProperty("role", QStringLiteral("ghost"));
    m_record = new QPushButton(tr("Record"), m_footer);
    m_record->setObjectName(QStringLiteral("selectorRecordButton"));
    m_record->setProperty("role", QStringLiteral("danger"));
    m_record->setEnabled(false);
    footer->addStretch();
    footer->addWidget(cancel);
    footer->addWidget(m_record);
    layout->addWidget(m_footer);
    connect(cancel, &QPushButton::clicked, this, &QWidget::close);
    connect(m_record, &QPushButton::clicked, this, [this] { confirm(); });
}

void SelectorWindow::addFooterWidget(QWidget* widget) {
    static_cast<QHBoxLayout*>(m_footer->layout())->insertWidget(0, widget);
}

void SelectorWindow::setRecordEnabled(bool enabled) {
    m_record->setEnabled(enabled);
}

void SelectorWindow::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape) {
        close();
        return;
    }
    if ((event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) &&
        m_record->isEnabled()) {
        confirm();
        return;
    }
    CardWindow::keyPressEvent(event);
}
