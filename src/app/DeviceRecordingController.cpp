#include "app/DeviceRecordingController.h"

#include "app/DeviceRecordingWindow.h"
#include "app/camera/CameraPreviewWidget.h"
#include "core/recording/RecordingCoordinator.h"
#include "core/recording/RecordingPreparation.h"
#include "core/recording/surfaces/RecordingResultOpener.h"
#include "core/settings/RecordingConfigurationBuilder.h"
#include "core/support/ErrorReporter.h"
#include "platform/v4l2/V4L2DeviceCaptureEngine.h"

#include <QDateTime>
#include <QGuiApplication>
#include <QScreen>

DeviceRecordingController::DeviceRecordingController(RecordingCoordinator& coordinator,
                                                     RecordingResultOpener& opener,
                                                     const UserDefaults& defaults, QObject* parent)
    : QObject(parent), m_coordinator(coordinator), m_opener(opener), m_defaults(defaults) {
    m_clock.setInterval(250);
    connect(&m_clock, &QTimer::timeout, this, [this] {
        if (m_window)
            m_window->setElapsedSeconds(double(m_elapsed.elapsed()) / 1000.0);
    });
}

DeviceRecordingController::~DeviceRecordingController() {
    // The engine's capture thread paints into the window: the engine goes first.
    if (m_engine)
        m_coordinator.setIOSDeviceEngine(nullptr);
}

bool DeviceRecordingController::start(const CaptureDeviceInfo& device) {
    m_coordinator.acknowledgeFailure();
    if (m_engine || !m_coordinator.recordingState().is<RecordingState::Idle>())
        return false;
    RecordingConfiguration configuration =
        RecordingConfigurationBuilder(m_defaults)
            .build(RecordingMode::iOSDevice(device.device.captureDevice()),
                   RecordingConfigurationBuilder::Selector::modeSelection);
    const QString outputURL =
        RecordingPreparation::generateOutputURL(&configuration, QDateTime::currentDateTime());

    auto engine = std::make_unique<V4L2DeviceCaptureEngine>(device.device, CameraInput::Options{},
                                                            device.sound);
    auto window = std::make_unique<DeviceRecordingWindow>(
        device.device.name, device.sound ? device.sound->description : QString());
    engine->previewHandler = [preview = window->preview()](const VideoFrame& frame) {
        preview->offerFrame(frame);
    };
    try {
        engine->startRecording(
            outputURL, [this](const QString& fileURL) { onFinished(fileURL); },
            [this](const std::exception& error, const QString& partialFileURL) {
                onFailed(error, partialFileURL);
            });
    } catch (const std::exception& error) {
        ErrorReporter::shared().reportAndAlert(error, QStringLiteral("iOS device recording failed"),
                                               tr("Cannot Record %1").arg(device.device.name));
        return false;
    }
    m_engine = engine.get();
    m_coordinator.setIOSDeviceEngine(std::move(engine));
    m_window = std::move(window);
    connect(m_window.get(), &DeviceRecordingWindow::stopRequested, this,
            &DeviceRecordingController::stop);
    m_window->adjustSize();
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        m_window->move(screen->availableGeometry().center() - m_window->rect().center());
    m_window->show();
    m_window->raise();
    m_elapsed.start();
    m_clock.start();
    return true;
}

void DeviceRecordingController::stop() {
    if (!m_engine)
        return;
    m_engine->stopRecording();
    if (m_window)
        m_window->showFinishing();
}

void DeviceRecordingController::closeWindow() {
    m_clock.stop();
    m_window.reset();
}

void DeviceRecordingController::onFinished(const QString& fileURL) {
    // The coordinator destroys the engine in its report.
    m_engine = nullptr;
    closeWindow();
    m_coordinator.deviceRecordingDidFinish(fileURL);
    m_opener.openTrimmer(fileURL);
    emit recordingEnded(true, fileURL);
}

void DeviceRecordingController::onFailed(const std::exception& error,
                                         const QString& partialFileURL) {
    m_engine = nullptr;
    closeWindow();
    m_coordinator.deviceRecordingDidFail(error);
    // What was recorded before the device went is a finished movie: it is worth editing.
    if (!partialFileURL.isEmpty())
        m_opener.openTrimmer(partialFileURL);
    emit recordingEnded(false, partialFileURL);
}
