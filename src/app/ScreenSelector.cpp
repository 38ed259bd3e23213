#include "app/ScreenSelector.h"

#include "app/DesktopGeometry.h"
#include "app/ThumbnailTile.h"
#include "core/model/Constants.h"

#include <QButtonGroup>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

ScreenSelector::ScreenSelector(std::vector<SCDisplay> displays, QWidget* parent)
    : SelectorWindow(QString::fromUtf8(Constants::WindowTitle::screenSelector.data(),
                                       qsizetype(Constants::WindowTitle::screenSelector.size())),
                     tr("Choose the display to record."), parent),
      m_displays(std::move(displays)) {
    setObjectName(QStringLiteral("screenSelector"));
    auto* row = new QHBoxLayout();
    row->setSpacing(12);
    auto* group = new QButtonGroup(this);
    for (size_t i = 0; i < m_displays.size(); ++i) {
        const SCDisplay& display = m_displays[i];
        auto* tile = new ThumbnailTile(tr("Display %1 · %2 × %3")
                                           .arg(i + 1)
                                           .arg(display.frame.size.width)
                                           .arg(display.frame.size.height),
                                       this);
        tile->setObjectName(QStringLiteral("screenThumbnail_%1").arg(display.displayID));
        group->addButton(tile, int(i));
        row->addWidget(tile);
        m_tiles.push_back(tile);
    }
    content()->addLayout(row);
    if (m_displays.empty())
        content()->addWidget(new QLabel(tr("No display was found to record."), this));
    connect(group, &QButtonGroup::idClicked, this, [this] { setRecordEnabled(true); });
    // One display needs no choosing.
    if (m_tiles.size() == 1) {
        m_tiles.front()->setChecked(true);
        setRecordEnabled(true);
    }

    m_autoStop = new QComboBox(this);
    m_autoStop->setObjectName(QStringLiteral("autoStopChoice"));
    m_autoStop->addItem(tr("No time limit"), 0);
    for (int minutes : {1, 5, 10, 30, 60})
        m_autoStop->addItem(tr("Stop after %n minute(s)", "", minutes), minutes);
    addFooterWidget(m_autoStop);

    refreshThumbnails();
    m_refresh.setInterval(1000);
    connect(&m_refresh, &QTimer::timeout, this, &ScreenSelector::refreshThumbnails);
    m_refresh.start();
}

void ScreenSelector::refreshThumbnails() {
    for (size_t i = 0; i < m_tiles.size(); ++i)
        m_tiles[i]->setPicture(grabDesktopRect(DesktopGeometry::toTopLeft(m_displays[i].frame),
                                               ThumbnailTile::pictureSize));
}

void ScreenSelector::confirm() {
    for (size_t i = 0; i < m_tiles.size(); ++i) {
        if (m_tiles[i]->isChecked()) {
            m_refresh.stop();
            emit displayChosen(m_displays[i], m_autoStop->currentData().toInt());
            return;
        }
    }
}
