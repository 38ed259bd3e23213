#pragma once

#include "app/SelectorWindow.h"

#include "platform/v4l2/V4L2CaptureDeviceDiscovery.h"

#include <vector>

class QListWidget;

// "Select Device": the attached capture devices (capture cards first), each with its picture
// size and the sound that will be recorded with it. One is chosen. Thread: main.
class DeviceSelector final : public SelectorWindow {
    Q_OBJECT
public:
    explicit DeviceSelector(std::vector<CaptureDeviceInfo> devices, QWidget* parent = nullptr);

    // The chosen device; null when none is.
    const CaptureDeviceInfo* chosenDevice() const;
    // The second line of a device's row: size and sound.
    static QString describe(const CaptureDeviceInfo& device);

signals:
    void deviceChosen(const CaptureDeviceInfo& device);

protected:
    void confirm() override;

private:
    std::vector<CaptureDeviceInfo> m_devices;
    QListWidget* m_list = nullptr;
};
