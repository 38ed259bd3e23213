#pragma once

#include "core/model/SCShareableContent.h"
#include "platform/wayland/PortalScreenCast.h"

#include <QDBusConnection>

#include <functional>
#include <memory>
#include <mutex>

// Keeps the one portal session a backend records from: listing the content starts it (the
// desktop asks the user once, or not at all with a restore token, which brings back the same
// choice), and the screen engine records from the same session. A session the desktop
// ended is replaced on next use. Thread-safe.
class PortalSessionKeeper final {
public:
    // Where the restore token lives between runs.
    struct TokenStore {
        std::function<QString()> load;
        std::function<void(const QString&)> save;
    };
    // The application's settings, under `key`.
    static TokenStore settingsTokenStore(const char* key);

    PortalSessionKeeper(QDBusConnection bus, TokenStore tokens,
                        PortalScreenCast::Options options = {});

    // A started, open session. Throws RecordingError.
    std::shared_ptr<PortalScreenCast> session();
    // The session's monitors as displays and its windows as windows, each with its PipeWire
    // node as id. Display frames are global points with the origin at the bottom left of the
    // union of all monitors; a window's frame has only its size (Wayland keeps its place).
    SCShareableContent content();

    static SCShareableContent contentOf(const std::vector<PortalStream>& streams);

private:
    QDBusConnection m_bus;
    TokenStore m_tokens;
    PortalScreenCast::Options m_options;
    std::mutex m_mutex;
    std::shared_ptr<PortalScreenCast> m_session;
};
