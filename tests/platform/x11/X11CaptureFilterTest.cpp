#include "platform/x11/X11CaptureFilter.h"

#include "core/model/RecordingError.h"

#include <gtest/gtest.h>

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
    const SCContentFilter filter =
        SCContentFilter::make(mode, RecordingConfiguration(mode, {}), content,
                              R"([{"bundleID":"secret","name":"Secret"}])");
    EXPECT_EQ(filter.kind, SCContentFilter::Kind::display);
    EXPECT_EQ(ids(filter.exceptingWindows), std::vector<uint32_t>{1});
    ASSERT_EQ(filter.excludedApplications.size(), 2u);
    EXPECT_EQ(filter.excludedApplications[0].bundleIdentifier, QStringLiteral("xfce4-panel"));
    EXPECT_EQ(filter.excludedApplications[1].bundleIdentifier, QStringLiteral("secret"));
    EXPECT_EQ(filter.contentRect, Rect(0, 0, 1280, 720));
}

TEST(X11CaptureFilterTest, BrokenOrEmptyHiddenAppsHideNothing) {
    EXPECT_TRUE(SCContentFilter::hiddenBundleIDs("").empty());
    EXPECT_TRUE(SCContentFilter::hiddenBundleIDs("not json").empty());
    EXPECT_TRUE(SCContentFilter::hiddenBundleIDs(R"({"bundleID":"x"})").empty());
    EXPECT_EQ(SCContentFilter::hiddenBundleIDs(R"([{"bundleID":"a"},{"name":"b"}])"),
              std::vector<QString>{QStringLiteral("a")});
}

// Windows are captured on the content's first display within the union of their frames;
// applications bring all their windows.
TEST(X11CaptureFilterTest, WindowsAndApplications) {
    const SCShareableContent content = desktop();
    const RecordingMode windows = RecordingMode::windows({content.windows[3], content.windows[4]});
    const SCContentFilter w =
        SCContentFilter::make(windows, RecordingConfiguration(windows, {}), content, {});
    EXPECT_EQ(w.kind, SCContentFilter::Kind::windows);
    EXPECT_EQ(w.display.displayID, 7u);
    // x 100...700, y 100...500 by hand from the two frames.
    EXPECT_EQ(w.contentRect, Rect(100, 100, 600, 400));

    const RecordingMode apps = RecordingMode::application({app("xterm")});
    const SCContentFilter a =
        SCContentFilter::make(apps, RecordingConfiguration(apps, {}), content, {});
    EXPECT_EQ(a.kind, SCContentFilter::Kind::applications);
    EXPECT_EQ(ids(a.includedWindows), (std::vector<uint32_t>{4, 5}));
}

TEST(X11CaptureFilterTest, RefusesDevicesAndMissingDisplays) {
    const RecordingMode device = RecordingMode::iOSDevice(AVCaptureDevice{});
    EXPECT_THROW(SCContentFilter::make(device, RecordingConfiguration(device, {}), desktop(), {}),
                 RecordingError);
    SCShareableContent empty;
    const RecordingMode audio = RecordingMode::systemAudio();
    EXPECT_THROW(SCContentFilter::make(audio, RecordingConfiguration(audio, {}), empty, {}),
                 RecordingError);
}
