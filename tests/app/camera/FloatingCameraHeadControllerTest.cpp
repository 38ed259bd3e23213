#include "app/camera/FloatingCameraHeadController.h"
#include "app/camera/CameraOverlayWindowController.h"
#include "core/model/RecordingError.h"
#include "core/settings/UserDefaults.h"
#include "platform/v4l2/V4L2CameraCaptureEngine.h"

#include "support/EventLoop.h"
#include "support/ScopedEnvironment.h"

#include <QTemporaryDir>
#include <QWidget>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {
const AVCaptureDevice testCamera{QString(), QStringLiteral("Test Camera")};
}

// The bubble and the overlay show the same camera at once through one open device (a second
// opener would be refused), both paint its pictures, and once both are gone the device is free.
// The bubble sits centred above the window it belongs to.
TEST(FloatingCameraHeadControllerTest, BubbleAndOverlayShareOneDevice) {
    ScopedEnvironment camera("TAVELQUISTON_TEST_CAMERA", "1");
    QTemporaryDir folder;
    UserDefaults defaults(folder.filePath("settings.ini"));
    QWidget controls;
    controls.setGeometry(400, 500, 300, 120);
    controls.show();

    {
        FloatingCameraHeadController head(defaults);
        ASSERT_TRUE(head.show(QStringLiteral("Test Camera"), &controls));
        const QRect bubble = head.window()->frameGeometry();
        EXPECT_EQ(bubble.size(), QSize(160, 160));
        EXPECT_EQ(bubble.center().x(), controls.frameGeometry().center().x());
        EXPECT_EQ(bubble.bottom() + 1 + 16, controls.frameGeometry().top());

        CameraOverlayWindowController overlay;
        ASSERT_TRUE(overlay.showCameraOverlay(testCamera, QSize(320, 180),
                                              CameraOverlayWindowController::Position::topLeft));
        EXPECT_TRUE(waitUntil([&] { return head.hasShownFrame() && overlay.hasShownFrame(); }, 5s));

        V4L2CameraCaptureEngine other;
        EXPECT_THROW(other.setupCamera(testCamera), RecordingError) << "the device is open once";
        head.hide();
        EXPECT_THROW(other.setupCamera(testCamera), RecordingError) << "the overlay still has it";
    }
    V4L2CameraCaptureEngine after;
    EXPECT_NO_THROW(after.setupCamera(testCamera));
}

// Flip and close are remembered: the flip for the next time the bubble shows, the close as the
// camera switched off.
TEST(FloatingCameraHeadControllerTest, FlipAndCloseArePersisted) {
    ScopedEnvironment camera("TAVELQUISTON_TEST_CAMERA", "1");
    QTemporaryDir folder;
    UserDefaults defaults(folder.filePath("settings.ini"));
    defaults.set("recordCamera", true);
    FloatingCameraHeadController head(defaults);
    ASSERT_TRUE(head.show(QStringLiteral("default"), nullptr));
    head.toggleFlip();
    EXPECT_TRUE(defaults.boolValue("cameraFlipped"));
    head.turnOff();
    EXPECT_FALSE(head.isShowing());
    EXPECT_FALSE(defaults.boolValue("recordCamera", true));

    ScopedEnvironment noCamera("TAVELQUISTON_TEST_CAMERA", std::nullopt);
    // This machine has no other camera, so with the test camera off there is nothing to show.
    if (V4L2CameraDiscovery::discoverCameras().empty()) {
        EXPECT_FALSE(head.show(QStringLiteral("default"), nullptr));
    }
}
