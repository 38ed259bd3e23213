#include "app/WindowSelector.h"

#include "app/ThumbnailTile.h"
#include "core/model/Constants.h"

#include <QButtonGroup>
#include <QCoreApplication>
#include <QGridLayout>
#include <QLabel>
#include <QScrollArea>
#include <QTimer>
#include <QVBoxLayout>

namespace {
constexpr int columns = 3;

QString windowName(const SCWindow& window) {
    const QString title = window.title.isEmpty() ? QObject::tr("Untitled") : window.title;
    if (window.owningApplication && !window.owningApplication->applicationName.isEmpty() &&
        window.owningApplication->applicationName != title)
        return window.owningApplication->applicationName + QStringLiteral(" — ") + title;
    return title;
}
} // namespace

WindowSelector::WindowSelector(std::vector<SCWindow> windows, bool several, QWidget* parent)
    : SelectorWindow(QString::fromUtf8(Constants::WindowTitle::windowSelector.data(),
                                       qsizetype(Constants::WindowTitle::windowSelector.size())),
                     several ? tr("Choose the windows to record together.")
                             : tr("Choose the window to record."),
                     parent) {
    setObjectName(QStringLiteral("windowSelector"));
    // Our own windows are never a recording's subject.
    for (SCWindow& window : windows)
        if (window.isOnScreen &&
            !(window.owningApplication &&
              window.owningApplication->processID == QCoreApplication::applicationPid()))
            m_windows.push_back(std::move(window));

    auto* grid = new QWidget(this);
    auto* layout = new QGridLayout(grid);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(12);
    auto* group = new QButtonGroup(this);
    group->setExclusive(!several);
    for (size_t i = 0; i < m_windows.size(); ++i) {
        auto* tile = new ThumbnailTile(windowName(m_windows[i]), grid);
        tile->setObjectName(QStringLiteral("windowThumbnail_%1").arg(m_windows[i].windowID));
        group->addButton(tile, int(i));
        layout->addWidget(tile, int(i) / columns, int(i) % columns);
        m_tiles.push_back(tile);
    }
    connect(group, &QButtonGroup::idToggled, this,
            [this] { setRecordEnabled(!chosenWindows().empty()); });

    // Two rows show at once; more scroll.
    auto* scroll = new QScrollArea(this);
    scroll->setObjectName(QStringLiteral("windowGrid"));
    scroll->setWidget(grid);
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setStyleSheet(QStringLiteral("QScrollArea, QScrollArea > QWidget > QWidget {"
                                         " background: transparent; }"));
    const QSize tile = m_tiles.empty() ? QSize() : m_tiles.front()->sizeHint();
    const int rows = std::clamp((int(m_windows.size()) + columns - 1) / columns, 1, 2);
    const int shownColumns = std::clamp(int(m_windows.size()), 1, columns);
    scroll->setFixedSize(shownColumns * (tile.width() + 12) + 12, rows * (tile.height() + 12));
    content()->addWidget(scroll);
    if (m_windows.empty())
        content()->addWidget(new QLabel(tr("No windows are open on this desktop."), this));
    QTimer::singleShot(0, this, &WindowSelector::loadNextThumbnail);
}

void WindowSelector::loadNextThumbnail() {
    if (m_nextThumbnail >= m_tiles.size())
        return;
    const size_t i = m_nextThumbnail++;
    m_tiles[i]->setPicture(grabWindowPicture(m_windows[i].windowID, ThumbnailTile::pictureSize));
    QTimer::singleShot(0, this, &WindowSelector::loadNextThumbnail);
}

std::vector<SCWindow> WindowSelector::chosenWindows() const {
    std::vector<SCWindow> chosen;
    for (size_t i = 0; i < m_tiles.size(); ++i)
        if (m_tiles[i]->isChecked())
            chosen.push_back(m_windows[i]);
    return chosen;
}

void WindowSelector::confirm() {
    const std::vector<SCWindow> chosen = chosenWindows();
    if (!chosen.empty())
        emit windowsChosen(chosen);
}
