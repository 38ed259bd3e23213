#include "platform/x11/X11CaptureFilter.h"

#include "core/model/RecordingError.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

SCRunningApplication app(const char* id) {
    return SCRunningApplication{QString::fromLatin1(id), QString::fromLatin1(id), 1};
}

SCWindow window(uint32_t id, const char* title, const char* owner, Rect frame) {
    return SCWindow{id, QString::fromLatin1(title), frame, app(owner), true};
}

SCShareableContent desktop() {
    SCShareableContent content;
    content.displays = {SCDisplay{7, Rect(0, 0, 1280, 720), 1.0}};
    content.applications = {app("com.tavelquiston.app"), app("xterm"), app("xfce4-panel"),
                            app("secret")};
    content.windows = {
        window(1, "Recording", "com.tavelquiston.app", Rect(0, 0, 100, 100)),
        window(2, "Mouse Pointer", "com.tavelquiston.app", Rect(0, 0, 10, 10)),
        window(3, "Camera Overlayer", "com.tavelquiston.app", Rect(0, 0, 10, 10)),
        window(4, "shell", "xterm", Rect(100, 200, 300, 150)),
        window(5, "shell 2", "xterm", Rect(500, 100, 200, 400)),
    };
    return content;
}

std::vector<uint32_t> ids(const std::vector<SCWindow>& windows) {
    std::vector<uint32_t> result;
    for (const SCWindow& w : windows)
        result.push_back(w.windowID);
    return result;
}

} // namespace

// The screen leaves out the program's own windows (but not its pointer and camera overlays),
// the desktop's panels and what the user hid.
TEST(X11CaptureFilterTest, ScreenExcludesOwnWindowsPanelsAndHiddenApps) {
    const SCShareableContent content = desktop();
    const RecordingMode mode = RecordingMode::screen(content.displays.front());
    const X11ContentFilter filter =
        X11ContentFilter::make(mode, RecordingConfiguration(mode, {}), content,
                               R"([{"bundleID":"secret","name":"Secret"}])");
    EXPECT_EQ(filter.kind, X11ContentFilter::Kind::display);
    EXPECT_EQ(ids(filter.exceptingWindows), std::vector<uint32_t>{1});
    ASSERT_EQ(filter.excludedApplications.size(), 2u);
    EXPECT_EQ(filter.excludedApplications[0].bundleIdentifier, QStringLiteral("xfce4-panel"));
    EXPECT_EQ(filter.excludedApplications[1].bundleIdentifier, QStringLiteral("secret"));
    EXPECT_EQ(filter.contentRect, Rect(0, 0, 1280, 720));
    // Kept out also when they start during the recording: the hidden one and the panels,
    // whether running now or not.
    const auto& later = filter.excludedBundleIDs;
    EXPECT_NE(std::find(later.begin(), later.end(), QStringLiteral("secret")), later.end());
    EXPECT_NE(std::find(later.begin(), later.end(), QStringLiteral("tint2")), later.end());
    EXPECT_EQ(std::find(later.begin(), later.end(), QStringLiteral("xterm")), later.end());
    EXPECT_TRUE(X11ContentFilter::isOwnWindowKeptOut(QStringLiteral("com.tavelquiston.app"),
                                                     QStringLiteral("Recording")));
    EXPECT_FALSE(X11ContentFilter::isOwnWindowKeptOut(QStringLiteral("com.tavelquiston.app"),
                                                      QStringLiteral("Screen Magnifier")));
    EXPECT_FALSE(
        X11ContentFilter::isOwnWindowKeptOut(QStringLiteral("xterm"), QStringLiteral("Recording")));
}

TEST(X11CaptureFilterTest, BrokenOrEmptyHiddenAppsHideNothing) {
    EXPECT_TRUE(X11ContentFilter::hiddenBundleIDs("").empty());
    EXPECT_TRUE(X11ContentFilter::hiddenBundleIDs("not json").empty());
    EXPECT_TRUE(X11ContentFilter::hiddenBundleIDs(R"({"bundleID":"x"})").empty());
    EXPECT_EQ(X11ContentFilter::hiddenBundleIDs(R"([{"bundleID":"a"},{"name":"b"}])"),
              std::vector<QString>{QStringLiteral("a")});
}

// Windows and applications are shown on the whole of the content's first display; only a
// lone window without the wallpaper is content by itself. Applications bring all their windows,
// and the program's own overlays but not its other windows.
TEST(X11CaptureFilterTest, WindowsAndApplications) {
    SCShareableContent content = desktop();
    const RecordingMode windows = RecordingMode::windows({content.windows[3], content.windows[4]});
    const X11ContentFilter w =
        X11ContentFilter::make(windows, RecordingConfiguration(windows, {}), content, {});
    EXPECT_EQ(w.kind, X11ContentFilter::Kind::windows);
    EXPECT_EQ(w.display.displayID, 7u);
    EXPECT_EQ(w.contentRect, Rect(0, 0, 1280, 720));
    EXPECT_FALSE(w.desktopIndependentWindow);

    const RecordingMode one = RecordingMode::window(content.windows[4]);
    RecordingConfiguration onWallpaper(one, {});
    onWallpaper.backgroundColor = BackgroundType::wallpaper;
    const X11ContentFilter shown = X11ContentFilter::make(one, onWallpaper, content, {});
    EXPECT_EQ(shown.contentRect, Rect(0, 0, 1280, 720));
    EXPECT_FALSE(shown.desktopIndependentWindow);
    RecordingConfiguration onColour(one, {});
    onColour.backgroundColor = BackgroundType::blue;
    const X11ContentFilter alone = X11ContentFilter::make(one, onColour, content, {});
    EXPECT_EQ(alone.contentRect, Rect(500, 100, 200, 400));
    EXPECT_TRUE(alone.desktopIndependentWindow);
    EXPECT_EQ(ids(alone.includedWindows), std::vector<uint32_t>{5});

    const RecordingMode apps = RecordingMode::application({app("xterm")});
    const X11ContentFilter a =
        X11ContentFilter::make(apps, RecordingConfiguration(apps, {}), content, {});
    EXPECT_EQ(a.kind, X11ContentFilter::Kind::applications);
    EXPECT_EQ(a.contentRect, Rect(0, 0, 1280, 720));
    // Windows 2 and 3 are the program's pointer and camera overlays; 1 is its own panel.
    EXPECT_EQ(ids(a.includedWindows), (std::vector<uint32_t>{2, 3, 4, 5}));
    ASSERT_EQ(a.includedApplications.size(), 2u);
    EXPECT_EQ(a.includedApplications[1].bundleIdentifier, QStringLiteral("com.tavelquiston.app"));

    // Without the program running, only the chosen application is there.
    content.applications.erase(content.applications.begin());
    content.windows.erase(content.windows.begin(), content.windows.begin() + 3);
    const X11ContentFilter b =
        X11ContentFilter::make(apps, RecordingConfiguration(apps, {}), content, {});
    EXPECT_EQ(ids(b.includedWindows), (std::vector<uint32_t>{4, 5}));
    EXPECT_EQ(b.includedApplications.size(), 1u);
}

TEST(X11CaptureFilterTest, RefusesDevicesAndMissingDisplays) {
    const RecordingMode device = RecordingMode::iOSDevice(AVCaptureDevice{});
    EXPECT_THROW(X11ContentFilter::make(device, RecordingConfiguration(device, {}), desktop(), {}),
                 RecordingError);
    SCShareableContent empty;
    const RecordingMode audio = RecordingMode::systemAudio();
    EXPECT_THROW(X11ContentFilter::make(audio, RecordingConfiguration(audio, {}), empty, {}),
                 RecordingError);
}
