#include "platform/wayland/PortalSessionKeeper.h"

#include "core/settings/UserDefaults.h"
#include "platform/wayland/PortalCoordinates.h"

#include <algorithm>

PortalSessionKeeper::TokenStore PortalSessionKeeper::settingsTokenStore(const char* key) {
    return {[key] { return UserDefaults::standard().stringValue(key, {}); },
            [key](const QString& token) {
                UserDefaults::standard().set(key, token);
                UserDefaults::standard().sync();
            }};
}

PortalSessionKeeper::PortalSessionKeeper(QDBusConnection bus, TokenStore tokens,
                                         PortalScreenCast::Options options)
    : m_bus(std::move(bus)), m_tokens(std::move(tokens)), m_options(std::move(options)) {}

std::shared_ptr<PortalScreenCast> PortalSessionKeeper::session() {
    std::lock_guard lock(m_mutex);
    if (m_session && !m_session->isClosed())
        return m_session;
    m_session.reset();
    auto session = std::make_shared<PortalScreenCast>(m_bus);
    PortalScreenCast::Options options = m_options;
    if (m_tokens.load)
        options.restoreToken = m_tokens.load();
    session->start(options);
    // Each token is good for one restore; the new one replaces it.
    if (m_tokens.save && !session->restoreToken().isEmpty())
        m_tokens.save(session->restoreToken());
    m_session = session;
    return session;
}

SCShareableContent PortalSessionKeeper::content() {
    return contentOf(session()->streams());
}

SCShareableContent PortalSessionKeeper::contentOf(const std::vector<PortalStream>& streams) {
    int top = 0;
    for (const PortalStream& stream : streams)
        top = std::max(top, stream.position.y() + stream.size.height());
    SCShareableContent content;
    for (const PortalStream& stream : streams) {
        if (stream.sourceType == PortalScreenCast::windowSource) {
            SCWindow window;
            window.windowID = stream.nodeID;
            window.title = QStringLiteral("The window shared from the desktop");
            window.frame = Rect(0, 0, stream.size.width(), stream.size.height());
            content.windows.push_back(window);
            continue;
        }
        if (stream.sourceType != PortalScreenCast::monitorSource || stream.size.isEmpty())
            continue;
        SCDisplay display;
        display.displayID = stream.nodeID;
        display.frame = PortalCoordinates::monitorToGlobal(stream.position, stream.size, top);
        content.displays.push_back(display);
    }
    return content;
}
