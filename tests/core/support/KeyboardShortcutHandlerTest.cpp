#include "core/support/KeyboardShortcutHandler.h"

#include <gtest/gtest.h>

using Key = KeyboardShortcutHandler::ShortcutKey;

// Ctrl+Shift plus the key calls its handler and swallows the event; anything else passes.
TEST(KeyboardShortcutHandlerTest, ctrlShiftShortcutsAreSwallowedOnlyWithAHandler) {
    KeyboardShortcutHandler handler;
    int stops = 0;
    // Without a registered handler the event goes on.
    EXPECT_FALSE(handler.handleKeyEvent(Qt::ControlModifier | Qt::ShiftModifier, Qt::Key_S));

    handler.registerHandler(Key::stopRecording, [&] { ++stops; });
    EXPECT_TRUE(handler.handleKeyEvent(Qt::ControlModifier | Qt::ShiftModifier, Qt::Key_S));
    // Extra modifiers still match: the set only has to contain Ctrl and Shift.
    EXPECT_TRUE(handler.handleKeyEvent(Qt::ControlModifier | Qt::ShiftModifier | Qt::AltModifier,
                                       Qt::Key_S));
    EXPECT_EQ(stops, 2);

    EXPECT_FALSE(handler.handleKeyEvent(Qt::ControlModifier, Qt::Key_S));
    EXPECT_FALSE(handler.handleKeyEvent(Qt::ShiftModifier, Qt::Key_S));
    EXPECT_FALSE(handler.handleKeyEvent(Qt::ControlModifier | Qt::ShiftModifier, Qt::Key_X));
    EXPECT_EQ(stops, 2);

    handler.unregisterHandler(Key::stopRecording);
    EXPECT_FALSE(handler.handleKeyEvent(Qt::ControlModifier | Qt::ShiftModifier, Qt::Key_S));
}

TEST(KeyboardShortcutHandlerTest, keysMapToTheirShortcuts) {
    KeyboardShortcutHandler handler;
    std::vector<Key> calls;
    for (Key key : {Key::toggleMagnifier, Key::startRecording, Key::stopRecording, Key::pauseResume,
                    Key::saveFrame})
        handler.registerHandler(key, [&calls, key] { calls.push_back(key); });
    for (int key : {Qt::Key_M, Qt::Key_S, Qt::Key_P, Qt::Key_F, Qt::Key_R})
        handler.handleKeyEvent(Qt::ControlModifier | Qt::ShiftModifier, key);
    // Start recording has no key of its own.
    EXPECT_EQ(calls, (std::vector<Key>{Key::toggleMagnifier, Key::stopRecording, Key::pauseResume,
                                       Key::saveFrame}));
}

// Monitoring installs one monitor from the factory and removes it again.
TEST(KeyboardShortcutHandlerTest, monitoringUsesTheFactoryOnce) {
    struct Monitor : KeyEventMonitor {
        explicit Monitor(int& alive) : alive(alive) { ++alive; }
        ~Monitor() override { --alive; }
        int& alive;
    };
    KeyboardShortcutHandler handler;
    int alive = 0, made = 0;
    KeyEventMonitor::Callback delivered;
    handler.setMonitorFactory([&](KeyEventMonitor::Callback callback) {
        ++made;
        delivered = std::move(callback);
        return std::make_unique<Monitor>(alive);
    });
    handler.startMonitoring();
    handler.startMonitoring();
    EXPECT_EQ(made, 1);
    EXPECT_EQ(alive, 1);
    bool stopped = false;
    handler.registerHandler(Key::stopRecording, [&] { stopped = true; });
    EXPECT_TRUE(delivered(Qt::ControlModifier | Qt::ShiftModifier, Qt::Key_S));
    EXPECT_TRUE(stopped);
    handler.stopMonitoring();
    EXPECT_EQ(alive, 0);
    EXPECT_FALSE(handler.isMonitoring());
}
