#pragma once

#include "core/support/AlertPresenter.h"

// Shows alerts as message boxes. Thread: main.
class MessageBoxAlertPresenter final : public AlertPresenter {
public:
    void showAlert(const QString& title, const QString& message, Style style) override;
    bool showConfirmation(const QString& title, const QString& message, const QString& okTitle,
                          const QString& cancelTitle) override;
};
