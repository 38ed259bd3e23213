#pragma once

#include <QDBusConnection>
#include <QEventLoop>
#include <QObject>
#include <QPoint>
#include <QSize>
#include <QString>
#include <QVariantMap>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

// One stream the portal shares: a PipeWire node and where it lies on the desktop.
struct PortalStream {
    uint32_t nodeID = 0;
    QPoint position;         // logical pixels of the desktop; (0,0) when the portal does not say
    QSize size;              // the source's size; empty when the portal does not say
    uint32_t sourceType = 1; // 1 monitor, 2 window, 4 virtual
};

// A session of the desktop's ScreenCast portal (org.freedesktop.portal.ScreenCast): create,
// select sources, start (where the desktop may ask the user), then a PipeWire remote for the
// streams. Every request's answer comes as a Response signal on a request object whose path
// follows from our bus name and a token of ours, so we listen there before calling.
// Thread: any thread with a Qt event dispatcher; the calls wait in a local event loop, bounded
// by the timeouts given. `closedHandler` runs on the main thread.
class PortalScreenCast final : public QObject {
    Q_OBJECT
public:
    static constexpr uint32_t monitorSource = 1;
    static constexpr uint32_t windowSource = 2;

    struct Options {
        uint32_t sourceTypes = monitorSource;
        bool multiple = false;
        QString restoreToken; // from an earlier session; the user is not asked again
        // How long the desktop may take to answer; Start includes the user choosing.
        std::chrono::milliseconds requestTimeout{10000};
        std::chrono::milliseconds startTimeout{120000};
    };

    // The portal's source types (bit mask), or absent when no ScreenCast portal answers within
    // `timeout`. Cheap: one property read.
    static std::optional<uint32_t>
    availableSourceTypes(const QDBusConnection& bus,
                         std::chrono::milliseconds timeout = std::chrono::milliseconds(1000));

    explicit PortalScreenCast(QDBusConnection bus);
    ~PortalScreenCast() override;

    // Runs CreateSession, SelectSources and Start. Throws RecordingError: permission denied when
    // the user or the desktop refuses, an invalid configuration when the portal is missing or
    // does not answer.
    void start(const Options& options);
    const std::vector<PortalStream>& streams() const { return m_streams; }
    // The token that lets the next session start without asking; empty when none was given.
    QString restoreToken() const { return m_restoreToken; }
    uint32_t cursorMode() const { return m_cursorMode; }

    // A new descriptor of the PipeWire remote that holds the streams (the caller owns it).
    // Throws RecordingError.
    int openPipeWireRemote();
    void close();
    bool isClosed() const { return m_closed.load(); }
    // Called once when the desktop ends the session (the user stopped sharing).
    void setClosedHandler(std::function<void()> handler);

private slots:
    void onResponse(uint response, const QVariantMap& results);
    void onSessionClosed(const QVariantMap& details);

private:
    // Calls a portal method whose answer is a Response; the results on success.
    QVariantMap request(const QString& method, const QList<QVariant>& arguments,
                        const QString& token, std::chrono::milliseconds timeout);
    QString newToken();
    QString senderPath() const;

    QDBusConnection m_bus;
    QString m_sessionHandle;
    std::vector<PortalStream> m_streams;
    QString m_restoreToken;
    uint32_t m_cursorMode = 0;
    int m_tokenCounter = 0;

    QEventLoop* m_waiting = nullptr; // the request waiting for its answer
    std::optional<uint> m_response;
    QVariantMap m_results;

    std::atomic<bool> m_closed{false};
    std::mutex m_closedMutex;
    std::function<void()> m_closedHandler;
};
