#include "app/ApplicationSelector.h"

#include "app/AppIcons.h"
#include "app/AppStyle.h"
#include "core/model/Constants.h"

#include <QCoreApplication>
#include <QListWidget>
#include <QVBoxLayout>

ApplicationSelector::ApplicationSelector(std::vector<SCRunningApplication> applications,
                                         QWidget* parent)
    : SelectorWindow(
          QString::fromUtf8(Constants::WindowTitle::applicationSelector.data(),
                            qsizetype(Constants::WindowTitle::applicationSelector.size())),
          tr("Choose one or more applications; all their windows are recorded."), parent) {
    setObjectName(QStringLiteral("applicationSelector"));
    for (SCRunningApplication& app : applications)
        if (app.processID != QCoreApplication::applicationPid())
            m_applications.push_back(std::move(app));
    std::sort(m_applications.begin(), m_applications.end(), [](const auto& a, const auto& b) {
        return a.applicationName.compare(b.applicationName, Qt::CaseInsensitive) < 0;
    });

    m_list = new QListWidget(this);
    m_list->setObjectName(QStringLiteral("applicationList"));
    m_list->setIconSize(QSize(20, 20));
    m_list->setMinimumSize(420, 280);
    const QIcon icon = AppIcons::icon(QStringLiteral("application"), AppStyle::secondaryText);
    for (const SCRunningApplication& app : m_applications) {
        auto* item = new QListWidgetItem(
            icon, app.applicationName + QStringLiteral("\n") + app.bundleIdentifier, m_list);
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
        item->setCheckState(Qt::Unchecked);
    }
    // The whole row toggles, not only its small box.
    connect(m_list, &QListWidget::itemClicked, this, [](QListWidgetItem* item) {
        item->setCheckState(item->checkState() == Qt::Checked ? Qt::Unchecked : Qt::Checked);
    });
    connect(m_list, &QListWidget::itemChanged, this,
            [this] { setRecordEnabled(!chosenApplications().empty()); });
    content()->addWidget(m_list);
}

std::vector<SCRunningApplication> ApplicationSelector::chosenApplications() const {
    std::vector<SCRunningApplication> chosen;
    for (int i = 0; i < m_list->count(); ++i)
        if (m_list->item(i)->checkState() == Qt::Checked)
            chosen.push_back(m_applications[size_t(i)]);
    return chosen;
}

void ApplicationSelector::confirm() {
    const std::vector<SCRunningApplication> chosen = chosenApplications();
    if (!chosen.empty())
        emit applicationsChosen(chosen);
}
