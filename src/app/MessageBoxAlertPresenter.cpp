#include "app/MessageBoxAlertPresenter.h"

#include <QMessageBox>
#include <QPushButton>

void MessageBoxAlertPresenter::showAlert(const QString& title, const QString& message,
                                         Style style) {
    const QMessageBox::Icon icon = style == Style::critical        ? QMessageBox::Critical
                                   : style == Style::informational ? QMessageBox::Information
                                                                   : QMessageBox::Warning;
    QMessageBox box(icon, title, message, QMessageBox::Ok);
    box.exec();
}

bool MessageBoxAlertPresenter::showConfirmation(const QString& title, const QString& message,
                                                const QString& okTitle,
                                                const QString& cancelTitle) {
    QMessageBox box(QMessageBox::Question, title, message);
    QPushButton* ok = box.addButton(okTitle, QMessageBox::AcceptRole);
    box.addButton(cancelTitle, QMessageBox::RejectRole);
    box.setDefaultButton(ok);
    box.exec();
    return box.clickedButton() == ok;
}
