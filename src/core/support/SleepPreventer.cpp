#include "core/support/SleepPreventer.h"

#include "core/support/Log.h"

namespace {
class UnavailablePowerAssertionBackend final : public PowerAssertionBackend {
public:
    Result createAssertion(const QString&) override {
        return QStringLiteral("no power management service");
    }
    QString releaseAssertion(uint32_t) override {
        return QStringLiteral("no power management service");
    }
};
} // namespace

SleepPreventer& SleepPreventer::shared() {
    static SleepPreventer preventer(std::make_unique<UnavailablePowerAssertionBackend>());
    return preventer;
}

void SleepPreventer::setSharedBackend(std::unique_ptr<PowerAssertionBackend> backend) {
    SleepPreventer& preventer = shared();
    preventer.allowSleep();
    preventer.m_backend =
        backend ? std::move(backend) : std::make_unique<UnavailablePowerAssertionBackend>();
}

SleepPreventer::SleepPreventer(std::unique_ptr<PowerAssertionBackend> backend)
    : m_backend(std::move(backend)) {}

SleepPreventer::~SleepPreventer() {
    allowSleep();
}

void SleepPreventer::preventSleep(const QString& reason) {
    if (m_isPreventingSleep) {
        logLine("⚡ Sleep prevention already active");
        return;
    }
    const PowerAssertionBackend::Result result = m_backend->createAssertion(reason);
    if (const auto* id = std::get_if<uint32_t>(&result)) {
        m_assertionID = *id;
        m_isPreventingSleep = true;
        logLine("⚡ Sleep prevention enabled: {}", reason.toStdString());
    } else {
        logLine("⚠️ Failed to prevent sleep, error code: {}",
                std::get<QString>(result).toStdString());
    }
}

void SleepPreventer::allowSleep() {
    if (m_isPreventingSleep) {
        const QString error = m_backend->releaseAssertion(m_assertionID);
        if (error.isEmpty())
            logLine("⚡ Sleep prevention disabled");
        else
            logLine("⚠️ Failed to release sleep assertion, error code: {}",
                    error.toStdString());
    }
    m_isPreventingSleep = false;
    m_assertionID = 0;
}
