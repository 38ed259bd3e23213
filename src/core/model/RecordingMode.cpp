#include "core/model/RecordingMode.h"

namespace {
template <class... Fs>
struct Overloaded : Fs... {
    using Fs::operator()...;
};

template <typename Item, typename Key>
bool sameKeys(const std::vector<Item>& a, const std::vector<Item>& b, Key key) {
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (key(a[i]) != key(b[i]))
            return false;
    }
    return true;
}
} // namespace

QString RecordingMode::displayName() const {
    return std::visit(
        Overloaded{
            [](const Screen&) { return QStringLiteral("Screen Recording"); },
            [](const ScreenArea&) { return QStringLiteral("Area Recording"); },
            [](const Window&) { return QStringLiteral("Window Recording"); },
            [](const Windows&) { return QStringLiteral("Multi-Window Recording"); },
            [](const Application&) { return QStringLiteral("Application Recording"); },
            [](const IOSDevice&) { return QStringLiteral("iOS Device Recording"); },
            [](const SystemAudio&) { return QStringLiteral("Audio Recording"); },
        },
        m_value);
}

bool RecordingMode::operator==(const RecordingMode& other) const {
    if (m_value.index() != other.m_value.index())
        return false;
    return std::visit(Overloaded{
                          [&](const Screen& a) {
                              return a.display.displayID == other.as<Screen>()->display.displayID;
                          },
                          [&](const ScreenArea& a) {
                              const auto* b = other.as<ScreenArea>();
                              return a.display.displayID == b->display.displayID &&
                                     a.rect == b->rect;
                          },
                          [&](const Window& a) {
                              return a.window.windowID == other.as<Window>()->window.windowID;
                          },
                          [&](const Windows& a) {
                              return sameKeys(a.windows, other.as<Windows>()->windows,
                                              [](const SCWindow& w) { return w.windowID; });
                          },
                          [&](const Application& a) {
                              return sameKeys(a.apps, other.as<Application>()->apps,
                                              [](const SCRunningApplication& app) {
                                                  return app.bundleIdentifier;
                                              });
                          },
                          [&](const IOSDevice& a) {
                              return a.device.uniqueID == other.as<IOSDevice>()->device.uniqueID;
                          },
                          [](const SystemAudio&) { return true; },
                      },
                      m_value);
}
