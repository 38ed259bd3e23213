#include "platform/pulse/DeviceSoundMatcher.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fstream>

namespace fs = std::filesystem;

namespace {

PulseConnection::Source source(std::string name, std::string description, std::string sysfsPath,
                               bool isMonitor = false, std::string cardName = {}) {
    PulseConnection::Source result;
    result.name = std::move(name);
    result.description = std::move(description);
    result.sampleRate = 48000;
    result.channelCount = 2;
    result.isMonitor = isMonitor;
    result.sysfsPath = std::move(sysfsPath);
    result.cardName = std::move(cardName);
    return result;
}

// A small sysfs: two USB devices on one hub, each with its interfaces, and a PCI capture card.
// The video4linux class links point into the device tree as the kernel's do.
class FakeSysfs {
public:
    FakeSysfs() {
        usbDevice("devices/pci0000:00/0000:00:14.0/usb1/1-2");
        usbDevice("devices/pci0000:00/0000:00:14.0/usb1/1-3");
        videoNode("video2", "devices/pci0000:00/0000:00:14.0/usb1/1-2/1-2:1.0");
        videoNode("video4", "devices/pci0000:00/0000:00:14.0/usb1/1-3/1-3:1.0");
        videoNode("video0", "devices/pci0000:00/0000:03:00.0");
        folder("devices/pci0000:00/0000:00:14.0/usb1/1-2/1-2:1.3/sound/card1");
        folder("devices/pci0000:00/0000:00:14.0/usb1/1-3/1-3:1.2/sound/card2");
        folder("devices/pci0000:00/0000:03:00.0/sound/card3");
        folder("devices/pci0000:00/0000:00:1f.3/sound/card0");
    }
    fs::path root() const { return fs::path(m_dir.path().toStdString()); }

private:
    void folder(const std::string& relative) { fs::create_directories(root() / relative); }
    void usbDevice(const std::string& relative) {
        folder(relative);
        std::ofstream(root() / relative / "idVendor") << "0fd9\n";
    }
    void videoNode(const std::string& name, const std::string& device) {
        const fs::path node = root() / device / "video4linux" / name;
        fs::create_directories(node);
        fs::create_directories(root() / "class/video4linux");
        fs::create_directory_symlink(node, root() / "class/video4linux" / name);
        fs::create_directory_symlink(root() / device, node / "device");
    }
    QTemporaryDir m_dir;
};

const std::string card1 = "/devices/pci0000:00/0000:00:14.0/usb1/1-2/1-2:1.3/sound/card1";
const std::string card2 = "/devices/pci0000:00/0000:00:14.0/usb1/1-3/1-3:1.2/sound/card2";
const std::string card3 = "/devices/pci0000:00/0000:03:00.0/sound/card3";
const std::string onboard = "/devices/pci0000:00/0000:00:1f.3/sound/card0";

} // namespace

// A USB capture card's HDMI audio is another interface of the same USB device: it is found
// among the computer's own sound card and another USB device's microphone, whatever the order.
TEST(DeviceSoundMatcherTest, FindsTheSourceOnTheSameUsbDevice) {
    FakeSysfs sys;
    const DeviceSoundMatcher matcher(sys.root());
    const std::vector<PulseConnection::Source> sources = {
        source("alsa_input.pci-onboard", "Built-in Audio Analog Stereo", onboard),
        source("alsa_input.usb-webcam", "C920 Analog Stereo", card2),
        source("alsa_input.usb-camlink", "Cam Link 4K Analog Stereo", card1),
    };
    const auto forCard = matcher.match("/dev/video2", "Cam Link 4K: Cam Link 4K", sources);
    ASSERT_TRUE(forCard);
    EXPECT_EQ(forCard->name, "alsa_input.usb-camlink");
    const auto forWebcam = matcher.match("/dev/video4", "HD Pro Webcam C920", sources);
    ASSERT_TRUE(forWebcam);
    EXPECT_EQ(forWebcam->name, "alsa_input.usb-webcam");
}

// A PCI card has no USB device above it: the card's own folder joins video and sound.
TEST(DeviceSoundMatcherTest, FindsTheSourceOfAPciCaptureCard) {
    FakeSysfs sys;
    const DeviceSoundMatcher matcher(sys.root());
    const auto found = matcher.match("/dev/video0", "Magewell Pro Capture",
                                     {source("onboard", "Built-in Audio", onboard),
                                      source("magewell", "Pro Capture HDMI", card3)});
    ASSERT_TRUE(found);
    EXPECT_EQ(found->name, "magewell");
}

// What the computer plays is never the device's sound, even on the same card; and a source
// named like the device but sitting on other hardware is not its sound either.
TEST(DeviceSoundMatcherTest, RejectsMonitorsAndLookAlikesOnOtherHardware) {
    FakeSysfs sys;
    const DeviceSoundMatcher matcher(sys.root());
    EXPECT_FALSE(matcher.match(
        "/dev/video2", "Cam Link 4K",
        {source("alsa_output.usb-camlink.monitor", "Monitor of Cam Link 4K", card1, true),
         source("alsa_input.other", "Cam Link 4K", card2)}));
    // A device with no sound of its own on a machine with other sound cards has none.
    EXPECT_FALSE(matcher.match("/dev/video4", "HD Pro Webcam C920",
                               {source("onboard", "Built-in Audio", onboard),
                                source("camlink", "Cam Link 4K Analog Stereo", card1)}));
}

// Without a sysfs place on either side (the test device, a virtual source, a server that does
// not say where its cards are) the card name decides.
TEST(DeviceSoundMatcherTest, FallsBackToTheCardName) {
    FakeSysfs sys;
    const DeviceSoundMatcher matcher(sys.root());
    const std::vector<PulseConnection::Source> sources = {
        source("tq.monitor", "Test Camera", {}, true),
        source("alsa_input.onboard", "Built-in Audio", onboard),
        source("test_camera_sound", "Test Camera", {}),
    };
    const auto testDevice =
        matcher.match("testsrc2=size=1280x720,realtime", "Test Camera", sources);
    ASSERT_TRUE(testDevice);
    EXPECT_EQ(testDevice->name, "test_camera_sound");
    // A node that sysfs does not know (a loopback made by a program) matches by ALSA card name.
    const auto byCard =
        matcher.match("/dev/video9", "Game Capture HD60: Game Capture",
                      {source("hd60", "USB Audio", {}, false, "Game Capture HD60")});
    ASSERT_TRUE(byCard);
    EXPECT_EQ(byCard->name, "hd60");
    EXPECT_FALSE(matcher.match("/dev/video9", "", sources));
}

// The names of a device's two halves differ in what follows a colon and in case, and not more;
// a grabber's video and audio products whose names differ in a word are not paired by name.
TEST(DeviceSoundMatcherTest, NamesMatchOnlyTheSameDevice) {
    EXPECT_TRUE(DeviceSoundMatcher::namesMatch("Cam Link 4K: Cam Link 4K", "cam link 4k"));
    EXPECT_TRUE(DeviceSoundMatcher::namesMatch("Cam Link 4K", "Cam Link 4K Analog Stereo"));
    EXPECT_FALSE(
        DeviceSoundMatcher::namesMatch("USB3.0 HD Video Capture", "USB3.0 HD Audio Capture"));
    EXPECT_FALSE(DeviceSoundMatcher::namesMatch("  ", "Built-in Audio"));
}
