#include "app/DeviceSelector.h"

#include "app/AppIcons.h"
#include "app/AppStyle.h"

#include <QLabel>
#include <QListWidget>
#include <QVBoxLayout>

DeviceSelector::DeviceSelector(std::vector<CaptureDeviceInfo> devices, QWidget* parent)
    : SelectorWindow(tr("Select Device"),
                     tr("Choose the capture card or camera to record; its own sound comes "
                        "with it."),
                     parent),
      m_devices(std::move(devices)) {
    setObjectName(QStringLiteral("deviceSelector"));
    m_list = new QListWidget(this);
    m_list->setObjectName(QStringLiteral("deviceList"));
    m_list->setIconSize(QSize(20, 20));
    m_list->setMinimumSize(420, 200);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    const QIcon icon = AppIcons::icon(QStringLiteral("device"), AppStyle::secondaryText);
    for (const CaptureDeviceInfo& device : m_devices)
        new QListWidgetItem(icon, device.device.name + QStringLiteral("\n") + describe(device),
                            m_list);
    connect(m_list, &QListWidget::itemSelectionChanged, this,
            [this] { setRecordEnabled(chosenDevice() != nullptr); });
    connect(m_list, &QListWidget::itemDoubleClicked, this, [this] { confirm(); });
    content()->addWidget(m_list);
    if (m_devices.empty()) {
        // Said in the window itself: an empty list alone would look broken.
        auto* empty = new QLabel(
            tr("No capture device is attached. Connect a capture card or a phone in webcam mode, "
               "then open this again."),
            this);
        empty->setObjectName(QStringLiteral("noDevicesLabel"));
        empty->setWordWrap(true);
        empty->setProperty("role", QStringLiteral("secondary"));
        content()->addWidget(empty);
        m_list->hide();
    } else {
        m_list->setCurrentRow(0);
    }
}

QString DeviceSelector::describe(const CaptureDeviceInfo& device) {
    QStringList parts;
    parts << (device.isCaptureCard ? tr("Capture card") : tr("Camera"));
    if (device.size)
        parts << QStringLiteral("%1 × %2").arg(device.size->width).arg(device.size->height);
    parts << (device.sound ? tr("Sound: %1").arg(device.sound->description) : tr("No sound"));
    return parts.join(QStringLiteral("  ·  "));
}

const CaptureDeviceInfo* DeviceSelector::chosenDevice() const {
    const int row = m_list->currentRow();
    if (row < 0 || size_t(row) >= m_devices.size() || m_list->selectedItems().isEmpty())
        return nullptr;
    return &m_devices[size_t(row)];
}

void DeviceSelector::confirm() {
    if (const CaptureDeviceInfo* device = chosenDevice())
        emit deviceChosen(*device);
}
