#include "platform/pulse/AudioDeviceManager.h"

#include "platform/pulse/PulseConnection.h"

#include <algorithm>
#include <stdexcept>

std::vector<AudioDeviceManager::Microphone> AudioDeviceManager::describeMicrophones() {
    std::vector<Microphone> microphones;
    try {
        PulseConnection connection("tavelquiston device list");
        const std::string defaultName = connection.defaults().sourceName;
        for (const PulseConnection::Source& source : connection.sources()) {
            if (source.isMonitor)
                continue;
            microphones.push_back(
                {{QString::fromStdString(source.name), QString::fromStdString(source.description)},
                 source.sampleRate,
                 source.channelCount,
                 source.name == defaultName});
        }
    } catch (const std::runtime_error&) {
        return {}; // no sound server: no microphones
    }
    // A default that is a monitor is no microphone: the first one stands in for it.
    if (!microphones.empty() &&
        std::none_of(microphones.begin(), microphones.end(),
                     [](const Microphone& microphone) { return microphone.isDefault; }))
        microphones.front().isDefault = true;
    return microphones;
}

std::vector<AVCaptureDevice> AudioDeviceManager::getAvailableMicrophones() {
    std::vector<AVCaptureDevice> devices;
    for (const Microphone& microphone : describeMicrophones())
        devices.push_back(microphone.device);
    return devices;
}

std::optional<AVCaptureDevice> AudioDeviceManager::getDefaultMicrophone() {
    for (const Microphone& microphone : describeMicrophones())
        if (microphone.isDefault)
            return microphone.device;
    return std::nullopt;
}

std::optional<int>
AudioDeviceManager::getMicrophoneSampleRate(const std::optional<AVCaptureDevice>& device) {
    for (const Microphone& microphone : describeMicrophones())
        if (device ? microphone.device.uniqueID == device->uniqueID : microphone.isDefault)
            return microphone.sampleRate;
    return std::nullopt;
}

std::optional<std::string> AudioDeviceManager::systemAudioSource() {
    try {
        PulseConnection connection("tavelquiston device list");
        const std::string sink = connection.defaults().sinkName;
        if (sink.empty())
            return std::nullopt;
        if (auto monitor = connection.source(sink + ".monitor"))
            return monitor->name;
    } catch (const std::runtime_error&) {
    }
    return std::nullopt;
}
