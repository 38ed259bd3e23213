#include "platform/RecordingEngineLoader.h"

#include "core/model/RecordingError.h"
#include "core/recording/engines/RecordingEngineFactory.h"
#include "core/recording/engines/ScreenCaptureEngine.h"

#include <gtest/gtest.h>

namespace {

QProcessEnvironment environmentWith(const QString& name, const QString& value) {
    QProcessEnvironment environment;
    if (!name.isEmpty())
        environment.insert(name, value);
    return environment;
}

// The message a set-up step fails with, or empty when it did not fail with a RecordingError.
template <typename Step>
QString failureOf(Step step) {
    try {
        step();
    } catch (const RecordingError& error) {
        return error.errorDescription();
    }
    return {};
}

} // namespace

// X11 wherever an X display is named (Xwayland included); a request always wins.
TEST(RecordingEngineLoader, ChoosesTheBackendFromTheSessionUnlessAsked) {
    const auto x11 = environmentWith(QStringLiteral("DISPLAY"), QStringLiteral(":5"));
    const auto none = environmentWith({}, {});
    EXPECT_EQ(chooseCaptureBackend(x11, std::nullopt), CaptureBackend::x11);
    EXPECT_EQ(chooseCaptureBackend(none, std::nullopt), std::nullopt);
    EXPECT_EQ(chooseCaptureBackend(x11, CaptureBackend::wayland), CaptureBackend::wayland);
    EXPECT_EQ(parseCaptureBackend(QStringLiteral("wayland")), CaptureBackend::wayland);
    EXPECT_EQ(parseCaptureBackend(QStringLiteral("quartz")), std::nullopt);
}

// On a Wayland desktop the portal decides: with ScreenCast there, Wayland; without it, the X
// display of Xwayland when there is one, else nothing. A request still wins.
TEST(RecordingEngineLoader, PrefersThePortalOnAWaylandDesktop) {
    QProcessEnvironment both = environmentWith(QStringLiteral("DISPLAY"), QStringLiteral(":0"));
    both.insert(QStringLiteral("WAYLAND_DISPLAY"), QStringLiteral("wayland-0"));
    const auto waylandOnly =
        environmentWith(QStringLiteral("WAYLAND_DISPLAY"), QStringLiteral("wayland-0"));
    const auto x11 = environmentWith(QStringLiteral("DISPLAY"), QStringLiteral(":0"));
    EXPECT_EQ(chooseCaptureBackend(both, std::nullopt, true), CaptureBackend::wayland);
    EXPECT_EQ(chooseCaptureBackend(both, std::nullopt, false), CaptureBackend::x11);
    EXPECT_EQ(chooseCaptureBackend(waylandOnly, std::nullopt, false), std::nullopt);
    EXPECT_EQ(chooseCaptureBackend(x11, std::nullopt, true), CaptureBackend::x11);
    EXPECT_EQ(chooseCaptureBackend(both, CaptureBackend::x11, true), CaptureBackend::x11);

    // The portal is asked only where it can matter.
    int asked = 0;
    RecordingEngineLoaderOptions options;
    options.environment = x11;
    options.screenCastPortalAvailable = [&] { return ++asked, true; };
    makeRecordingEngineFactory(options);
    EXPECT_EQ(asked, 0);
    options.environment = both;
    options.backend = CaptureBackend::x11;
    makeRecordingEngineFactory(options);
    EXPECT_EQ(asked, 0);
}

// Without a display, preparing a recording fails at its first step with the reason, not later
// with a recording of nothing.
TEST(RecordingEngineLoader, MissingCapabilitiesFailWithTheirReason) {
    RecordingEngineLoaderOptions options;
    options.environment = environmentWith({}, {});
    const auto factory = makeRecordingEngineFactory(options);

    EXPECT_TRUE(failureOf([&] { factory->fetchShareableContent(); }).contains("DISPLAY"));
    auto screen = factory->makeScreenCaptureEngine();
    EXPECT_TRUE(failureOf([&] { screen->updateAvailableContent(); }).contains("DISPLAY"));

    options.backend = CaptureBackend::wayland;
    EXPECT_TRUE(failureOf([&] {
                    makeRecordingEngineFactory(options)->fetchShareableContent();
                }).contains("Wayland"));
}
