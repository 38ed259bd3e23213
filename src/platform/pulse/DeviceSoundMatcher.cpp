#include "platform/pulse/DeviceSoundMatcher.h"

#include <algorithm>
#include <cctype>

namespace fs = std::filesystem;

namespace {

std::string folded(std::string text) {
    // A V4L2 card name often repeats itself after a colon ("Cam Link 4K: Cam Link 4K").
    if (const auto colon = text.find(':'); colon != std::string::npos)
        text.resize(colon);
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    const auto first = text.find_first_not_of(" \t");
    const auto last = text.find_last_not_of(" \t");
    return first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
}

bool isUsbDevice(const fs::path& folder) {
    std::error_code ignored;
    return fs::exists(folder / "idVendor", ignored);
}

} // namespace

DeviceSoundMatcher::DeviceSoundMatcher(fs::path sysRoot) : m_sysRoot(std::move(sysRoot)) {}

bool DeviceSoundMatcher::namesMatch(const std::string& videoCardName,
                                    const std::string& soundName) {
    const std::string video = folded(videoCardName);
    const std::string sound = folded(soundName);
    if (video.empty() || sound.empty())
        return false;
    // "USB3.0 HD Video Capture" against the ALSA card "USB3.0 HD Audio Capture" is no match, but
    // the description "Cam Link 4K Analog Stereo" against the card "Cam Link 4K" is.
    return sound.find(video) != std::string::npos || video.find(sound) != std::string::npos;
}

std::optional<fs::path> DeviceSoundMatcher::physicalDevice(const fs::path& folder) const {
    std::error_code error;
    const fs::path real = fs::canonical(folder, error);
    if (error)
        return std::nullopt;
    for (fs::path at = real; !at.empty() && at != at.root_path(); at = at.parent_path()) {
        if (isUsbDevice(at))
            return at;
        if (at == m_sysRoot)
            break;
    }
    // Not on USB (a PCI capture card): the card's own folder, above ".../sound/cardN" or
    // ".../video4linux/videoN".
    fs::path device = real;
    for (fs::path at = real; !at.empty() && at != at.root_path(); at = at.parent_path()) {
        const std::string name = at.filename().string();
        if (name == "sound" || name == "video4linux") {
            device = at.parent_path();
            break;
        }
    }
    return device;
}

std::optional<fs::path> DeviceSoundMatcher::videoNodeDevice(const std::string& videoNode) const {
    const std::string prefix = "/dev/";
    if (videoNode.rfind(prefix, 0) != 0)
        return std::nullopt;
    // /dev/v4l/by-id links lead to the node itself.
    std::error_code error;
    const fs::path node = fs::canonical(videoNode, error);
    const std::string name =
        error ? fs::path(videoNode).filename().string() : node.filename().string();
    return physicalDevice(m_sysRoot / "class" / "video4linux" / name / "device");
}

std::optional<PulseConnection::Source>
DeviceSoundMatcher::match(const std::string& videoNode, const std::string& cardName,
                          const std::vector<PulseConnection::Source>& sources) const {
    const std::optional<fs::path> videoDevice = videoNodeDevice(videoNode);
    if (videoDevice) {
        for (const PulseConnection::Source& source : sources) {
            if (source.isMonitor || source.sysfsPath.empty())
                continue;
            const fs::path relative = fs::path(source.sysfsPath).relative_path();
            if (physicalDevice(m_sysRoot / relative) == videoDevice)
                return source;
        }
    }
    // Card names are a weaker sign: a source that has a sysfs place elsewhere is some other
    // device's, whatever it is called.
    for (const PulseConnection::Source& source : sources) {
        if (source.isMonitor)
            continue;
        if (videoDevice && !source.sysfsPath.empty())
            continue;
        if (namesMatch(cardName, source.cardName) || namesMatch(cardName, source.description))
            return source;
    }
    return std::nullopt;
}
