#include "core/model/RecordingMode.h"

#include <gtest/gtest.h>

namespace {
SCDisplay display(uint32_t id, Rect frame = {0, 0, 1920, 1080}) {
    return SCDisplay{id, frame, 1.0};
}
SCWindow window(uint32_t id, QString title = "w") {
    return SCWindow{id, title, Rect{0, 0, 100, 100}, std::nullopt, true};
}
SCRunningApplication app(QString bundle, QString name = "App") {
    return SCRunningApplication{bundle, name, 1};
}
} // namespace

// Modes compare by the identity of what they capture, not by every property of it.
TEST(RecordingModeTest, equalityUsesIdentityOfTheCapturedThing) {
    EXPECT_EQ(RecordingMode::screen(display(1)),
              RecordingMode::screen(display(1, {0, 0, 800, 600})));
    EXPECT_NE(RecordingMode::screen(display(1)), RecordingMode::screen(display(2)));
    EXPECT_EQ(RecordingMode::window(window(7, "a")), RecordingMode::window(window(7, "b")));
    EXPECT_EQ(RecordingMode::application({app("org.a", "A")}),
              RecordingMode::application({app("org.a", "Other")}));
    EXPECT_EQ(RecordingMode::iOSDevice({"dev-1", "Phone"}),
              RecordingMode::iOSDevice({"dev-1", "Renamed"}));
    EXPECT_EQ(RecordingMode::systemAudio(), RecordingMode::systemAudio());
}

// An area compares its rectangle exactly, field by field.
TEST(RecordingModeTest, areaComparesRectangleExactly) {
    const auto a = RecordingMode::screenArea(display(1), {10, 20, 300, 200});
    EXPECT_EQ(a, RecordingMode::screenArea(display(1), {10, 20, 300, 200}));
    EXPECT_NE(a, RecordingMode::screenArea(display(1), {10, 20, 300, 200.0000001}));
    EXPECT_NE(a, RecordingMode::screenArea(display(2), {10, 20, 300, 200}));
}

// Order matters within windows and applications; different cases never compare equal.
TEST(RecordingModeTest, orderMattersAndCasesDiffer) {
    EXPECT_NE(RecordingMode::windows({window(1), window(2)}),
              RecordingMode::windows({window(2), window(1)}));
    EXPECT_NE(RecordingMode::windows({window(1)}), RecordingMode::windows({window(1), window(2)}));
    EXPECT_NE(RecordingMode::application({app("a"), app("b")}),
              RecordingMode::application({app("b"), app("a")}));
    EXPECT_NE(RecordingMode::window(window(1)), RecordingMode::windows({window(1)}));
    EXPECT_NE(RecordingMode::screen(display(1)),
              RecordingMode::screenArea(display(1), {0, 0, 1920, 1080}));
}
