#pragma once

#include "core/model/CaptureSources.h"

#include <optional>
#include <string>
#include <vector>

// The microphones the sound server offers: its sources that are not the monitor of a sink. A
// device's uniqueID is the source's name on the server, its localizedName the description.
// Thread: any; every call asks the server anew and answers empty when there is none.
class AudioDeviceManager final {
public:
    struct Microphone {
        AVCaptureDevice device;
        int sampleRate = 0;
        int channelCount = 0;
        bool isDefault = false;
    };

    static std::vector<Microphone> describeMicrophones();
    static std::vector<AVCaptureDevice> getAvailableMicrophones();
    // The server's default source when it is a microphone, else the first microphone.
    static std::optional<AVCaptureDevice> getDefaultMicrophone();
    // The device's rate, or the default microphone's when no device is given.
    static std::optional<int> getMicrophoneSampleRate(const std::optional<AVCaptureDevice>& device);

    // The monitor of the default sink, where system audio is heard; absent without a server.
    static std::optional<std::string> systemAudioSource();

    void refreshDevices() { m_availableDevices = getAvailableMicrophones(); }
    const std::vector<AVCaptureDevice>& availableDevices() const { return m_availableDevices; }

private:
    std::vector<AVCaptureDevice> m_availableDevices;
};
