#pragma once

#include "core/recording/RecordingValidator.h"

#include <QString>

#include <optional>

class CursorHider;
class FloatingRecordingPanelController;
class KeyboardShortcutHandler;
class NotificationManager;
class RecordingClock;
class RecordingEngineFactory;
class RecordingResultOpener;
class SleepPreventer;
class StatusBarController;
class SystemEventMonitor;
class UserDefaults;

// What the coordinator works with besides its engines. Nothing here is owned by the
// coordinator; everything must outlive it. An absent surface (the command line has no panel or
// tray) is simply not shown; an absent service falls back to the shared one.
struct RecordingServices {
    RecordingEngineFactory* engines = nullptr; // required
    RecordingClock* clock = nullptr;
    const UserDefaults* defaults = nullptr;
    SleepPreventer* sleepPreventer = nullptr;
    KeyboardShortcutHandler* shortcuts = nullptr;
    NotificationManager* notifications = nullptr;
    StatusBarController* statusBar = nullptr;
    FloatingRecordingPanelController* panel = nullptr;
    RecordingResultOpener* resultOpener = nullptr;
    CursorHider* cursorHider = nullptr;
    SystemEventMonitor* systemEvents = nullptr;
    // Free bytes at a path; the file system's own answer when empty.
    RecordingValidator::DiskSpaceProvider availableDiskSpace;
    // Where "startup-timing.log" goes: the user's state folder when absent, nowhere when empty.
    std::optional<QString> startupLogDirectory;

    // These services with every absent entry replaced by its fallback.
    static RecordingServices withFallbacks(RecordingServices services);
};
