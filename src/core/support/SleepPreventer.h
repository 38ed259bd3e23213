#pragma once

#include <QString>

#include <cstdint>
#include <memory>
#include <variant>

// Keeps the display awake through a system assertion (a screen-saver inhibit on the desktop).
// Thread: main; the backend is called synchronously.
class PowerAssertionBackend {
public:
    // An assertion id on success, else an error code as the system gives it.
    using Result = std::variant<uint32_t, QString>;
    virtual ~PowerAssertionBackend() = default;
    virtual Result createAssertion(const QString& reason) = 0;
    // Empty on success, else an error code.
    virtual QString releaseAssertion(uint32_t assertionID) = 0;
};

class SleepPreventer {
public:
    static SleepPreventer& shared();
    // The backend the shared object uses; the platform's loader installs one at start-up.
    static void setSharedBackend(std::unique_ptr<PowerAssertionBackend> backend);

    explicit SleepPreventer(std::unique_ptr<PowerAssertionBackend> backend);
    ~SleepPreventer();

    void preventSleep(const QString& reason);
    void allowSleep();

    uint32_t assertionID() const { return m_assertionID; }
    bool isPreventingSleep() const { return m_isPreventingSleep; }

private:
    std::unique_ptr<PowerAssertionBackend> m_backend;
    uint32_t m_assertionID = 0;
    bool m_isPreventingSleep = false;
};
