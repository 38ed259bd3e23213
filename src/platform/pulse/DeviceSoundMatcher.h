#pragma once

#include "platform/pulse/PulseConnection.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

// Finds the sound source that belongs to a video capture device: the HDMI audio of a capture
// card, the microphone of a webcam. Both halves of such a device hang off one USB (or PCI)
// device in sysfs, as a video4linux node and as an ALSA card, so the source whose card sits on
// the same physical device is the match. Sources without a sysfs place (virtual ones, or a
// server that does not say) match by card name instead. Monitors of sinks never match: they
// carry what the computer plays, not what the device hears.
// Thread: any; it reads sysfs and the values it is given.
class DeviceSoundMatcher final {
public:
    explicit DeviceSoundMatcher(std::filesystem::path sysRoot = "/sys");

    // The source for the V4L2 node `videoNode` ("/dev/video2"; anything else has no sysfs
    // place) whose card is called `cardName`; nothing when none belongs to it.
    std::optional<PulseConnection::Source>
    match(const std::string& videoNode, const std::string& cardName,
          const std::vector<PulseConnection::Source>& sources) const;

    // The physical device a sysfs folder belongs to: the nearest folder at or above it that is a
    // USB device (it has "idVendor"), else the folder that holds its "sound" or "video4linux"
    // class folder. Nothing when the folder does not exist.
    std::optional<std::filesystem::path> physicalDevice(const std::filesystem::path& folder) const;

    // Whether two names are one device's: a V4L2 card "Cam Link 4K: Cam Link 4K" against an ALSA
    // card "Cam Link 4K", ignoring case and what follows a colon.
    static bool namesMatch(const std::string& videoCardName, const std::string& soundName);

private:
    std::optional<std::filesystem::path> videoNodeDevice(const std::string& videoNode) const;

    std::filesystem::path m_sysRoot;
};
