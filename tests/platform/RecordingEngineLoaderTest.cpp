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
