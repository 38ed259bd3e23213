#pragma once

#include <QString>

// Shows alerts to the person at the machine: a message box in the app, standard error in the
// command-line tool. Thread: main.
class AlertPresenter {
public:
    enum class Style { informational, warning, critical };

    virtual ~AlertPresenter() = default;
    virtual void showAlert(const QString& title, const QString& message, Style style) = 0;
    // True when the person chose the first button.
    virtual bool showConfirmation(const QString& title, const QString& message,
                                  const QString& okTitle, const QString& cancelTitle) = 0;
};

// Writes alerts to standard error; a confirmation is never given, since nobody can answer.
class StandardErrorAlertPresenter final : public AlertPresenter {
public:
    void showAlert(const QString& title, const QString& message, Style style) override;
    bool showConfirmation(const QString& title, const QString& message, const QString& okTitle,
                          const QString& cancelTitle) override;
};
