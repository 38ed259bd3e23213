#pragma once

#include "app/SelectorWindow.h"

#include "core/model/CaptureSources.h"

#include <vector>

class QListWidget;

// "Select Application": the running applications with windows; all windows of the chosen
// ones are recorded. Thread: main.
class ApplicationSelector final : public SelectorWindow {
    Q_OBJECT
public:
    explicit ApplicationSelector(std::vector<SCRunningApplication> applications,
                                 QWidget* parent = nullptr);

    std::vector<SCRunningApplication> chosenApplications() const;

signals:
    void applicationsChosen(const std::vector<SCRunningApplication>& applications);

protected:
    void confirm() override;

private:
    std::vector<SCRunningApplication> m_applications;
    QListWidget* m_list = nullptr;
};
