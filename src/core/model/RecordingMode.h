#pragma once

#include "core/model/CaptureSources.h"

#include <QString>

#include <variant>
#include <vector>

// What a recording captures. Each case carries the platform object it was chosen from.
class RecordingMode {
public:
    struct Screen {
        SCDisplay display;
    };
    struct ScreenArea {
        SCDisplay display;
        Rect rect;
    };
    struct Window {
        SCWindow window;
    };
    struct Windows {
        std::vector<SCWindow> windows;
    };
    struct Application {
        std::vector<SCRunningApplication> apps;
    };
    struct IOSDevice {
        AVCaptureDevice device;
    };
    struct SystemAudio {};

    using Value =
        std::variant<Screen, ScreenArea, Window, Windows, Application, IOSDevice, SystemAudio>;

    static RecordingMode screen(SCDisplay display) {
        return RecordingMode(Screen{std::move(display)});
    }
    static RecordingMode screenArea(SCDisplay display, Rect rect) {
        return RecordingMode(ScreenArea{std::move(display), rect});
    }
    static RecordingMode window(SCWindow window) {
        return RecordingMode(Window{std::move(window)});
    }
    static RecordingMode windows(std::vector<SCWindow> windows) {
        return RecordingMode(Windows{std::move(windows)});
    }
    static RecordingMode application(std::vector<SCRunningApplication> apps) {
        return RecordingMode(Application{std::move(apps)});
    }
    static RecordingMode iOSDevice(AVCaptureDevice device) {
        return RecordingMode(IOSDevice{std::move(device)});
    }
    static RecordingMode systemAudio() { return RecordingMode(SystemAudio{}); }

    const Value& value() const { return m_value; }
    template <typename Case>
    bool is() const {
        return std::holds_alternative<Case>(m_value);
    }
    template <typename Case>
    const Case* as() const {
        return std::get_if<Case>(&m_value);
    }

    QString displayName() const;
    bool isAudioOnly() const { return is<SystemAudio>(); }
    bool hasVideo() const { return !isAudioOnly(); }

    // Modes compare by the identity of what they capture, not by every field of it: a display
    // by its id, windows by their ordered ids, applications by their ordered bundle identifiers.
    bool operator==(const RecordingMode& other) const;

private:
    explicit RecordingMode(Value value) : m_value(std::move(value)) {}
    Value m_value;
};
