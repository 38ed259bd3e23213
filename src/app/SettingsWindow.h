#pragma once

#include "app/CardWindow.h"

#include <QVariant>

#include <string_view>

class QCheckBox;
class QComboBox;
class QFormLayout;
class QLineEdit;
class QListWidget;
class RecordingEngineFactory;
class UserDefaults;

// "Settings": every persisted default a recording reads, written the moment it changes, so the
// command line and the next recording see it. Thread: main.
class SettingsWindow final : public CardWindow {
    Q_OBJECT
public:
    SettingsWindow(UserDefaults& defaults, RecordingEngineFactory& engines,
                   QWidget* parent = nullptr);

    // The JSON list of "hiddenApps" as the capture filter reads it.
    static QByteArray hiddenAppsJson(const QList<QPair<QString, QString>>& idsAndNames);

private:
    QWidget* recordingPage();
    QWidget* cursorPage();
    QWidget* sourcesPage();
    QWidget* hiddenAppsPage();
    QWidget* generalPage();

    QCheckBox* check(QFormLayout* form, const char* key, bool fallback, const QString& label);
    QComboBox* choice(QFormLayout* form, const char* key, const QVariant& fallback,
                      const QString& label, const QList<QPair<QString, QVariant>>& items);
    QWidget* number(QFormLayout* form, const char* key, double fallback, const QString& label,
                    double minimum, double maximum, double step, int decimals,
                    const QString& suffix = {});
    void saveHiddenApps();

    UserDefaults& m_defaults;
    RecordingEngineFactory& m_engines;
    QLineEdit* m_outputFolder = nullptr;
    QListWidget* m_hiddenApps = nullptr;
};
