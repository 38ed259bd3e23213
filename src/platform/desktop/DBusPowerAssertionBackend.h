#pragma once

#include "core/support/SleepPreventer.h"

#include <QDBusConnection>

#include <map>

// Keeps the display awake through the desktop's screen-saver inhibit on the session bus; when
// no screen saver answers, through logind's idle inhibitor on the system bus, which holds the
// inhibition as long as we hold its file descriptor. Thread: main (blocking calls, each bounded
// by a short timeout).
class DBusPowerAssertionBackend final : public PowerAssertionBackend {
public:
    DBusPowerAssertionBackend(QDBusConnection sessionBus, QDBusConnection systemBus);
    ~DBusPowerAssertionBackend() override;

    Result createAssertion(const QString& reason) override;
    QString releaseAssertion(uint32_t assertionID) override;

    static constexpr int callTimeoutMs = 3000;

private:
    QDBusConnection m_session;
    QDBusConnection m_system;
    // Assertions held through logind: our own id -> the inhibitor's descriptor.
    std::map<uint32_t, int> m_logindInhibitors;
    uint32_t m_nextLogindID = 0x80000000u; // apart from the screen saver's small cookies
};
