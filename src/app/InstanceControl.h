#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantList>

#include <optional>

// One running tavelquiston per session: the first instance owns the bus name
// "com.tavelquiston.app" and answers on "/com/tavelquiston/app"; later starts forward their
// command to it and exit. The desktop's own shortcut settings can bind these commands.
namespace InstanceControl {
inline constexpr const char* serviceName = "com.tavelquiston.app";
inline constexpr const char* objectPath = "/com/tavelquiston/app";
inline constexpr const char* interfaceName = "com.tavelquiston.app.Control";

// The remote command named by the arguments ("ToggleRecording", "PauseRecording",
// "StopRecording"), if any.
std::optional<QString> commandFromArguments(const QStringList& arguments);

enum class Forwarded { delivered, noInstance };
// Calls `method` on the running instance with `arguments`. Blocks for at most a few seconds.
Forwarded forward(const QString& method, const QVariantList& arguments = {});
} // namespace InstanceControl

// The running instance's side: exported on the session bus, it turns calls into actions.
class InstanceControlService final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.tavelquiston.app.Control")
public:
    explicit InstanceControlService(QObject* parent = nullptr) : QObject(parent) {}

    // Takes the bus name and exports this object; false when another instance has it (or there
    // is no session bus, in which case this process simply runs alone).
    bool registerOnSessionBus();

public slots:
    Q_SCRIPTABLE void Activate() { emit activateRequested(); }
    Q_SCRIPTABLE void ToggleRecording() { emit toggleRecordingRequested(); }
    Q_SCRIPTABLE void PauseRecording() { emit pauseRequested(); }
    Q_SCRIPTABLE void StopRecording() { emit stopRequested(); }
    // A recording to edit: its trimmer opens, or comes forward when it is open already.
    Q_SCRIPTABLE void OpenFile(const QString& path) { emit openFileRequested(path); }
    // "idle", "starting", "recording", "paused", ... for scripts and tests.
    Q_SCRIPTABLE QString State() const { return m_state; }

signals:
    void activateRequested();
    void toggleRecordingRequested();
    void pauseRequested();
    void stopRequested();
    void openFileRequested(const QString& path);

public:
    void setState(const QString& state) { m_state = state; }

private:
    QString m_state = QStringLiteral("idle");
};
