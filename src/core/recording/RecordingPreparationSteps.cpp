#include "core/recording/RecordingPreparationSteps.h"

#include "core/model/RecordingError.h"
#include "core/recording/CameraPrewarmer.h"
#include "core/recording/RecordingStartupTrace.h"
#include "core/recording/RecordingValidator.h"
#include "core/recording/ShareableContentCache.h"
#include "core/recording/engines/AudioCaptureEngine.h"
#include "core/recording/engines/AudioOnlyRecorder.h"
#include "core/recording/engines/CameraCaptureEngine.h"
#include "core/recording/engines/LayerRecordingManager.h"
#include "core/recording/engines/MediaWriterEngine.h"
#include "core/recording/engines/RecordingEngineFactory.h"
#include "core/support/ScreenRecordingPermission.h"

#include <fmt/format.h>

RecordingPreparationSteps::RecordingPreparationSteps(RecordingEngineFactory& factory,
                                                     const RecordingValidator& validator,
                                                     ShareableContentCache& contentCache,
                                                     RecordingStartupTrace& trace,
                                                     const RecordingPreparation& preparation)
    : m_factory(factory), m_validator(validator), m_contentCache(contentCache), m_trace(trace),
      m_preparation(preparation) {}

QCoro::Task<std::optional<RecordingPreparation::Result>>
RecordingPreparationSteps::run(RecordingMode mode, RecordingConfiguration configuration,
                               const CameraPrewarmer& camera, std::function<bool()> isAlive) {
    m_trace.phase(QStringLiteral("validateConfiguration"),
                  [&] { m_validator.validateConfiguration(configuration); });
    m_trace.phase(QStringLiteral("storageValidation"), [&] {
        m_validator.checkDiskSpace(configuration.outputDirectory);
        m_validator.validateOutputDirectory(configuration.outputDirectory);
    });

    if (mode.hasVideo()) {
        m_trace.mark(QStringLiteral("shareableContent.resolve.begin"));
        co_await m_contentCache.loadShareableContent(false, true);
        if (!isAlive())
            co_return std::nullopt;
        m_trace.mark(QStringLiteral("shareableContent.resolve.end"));
    }

    // A successful content load has proven the screen permission already.
    m_trace.mark(QStringLiteral("checkPermissions.begin"));
    // Calls whose arguments need destroying are made before the co_await: g++ 12 destroys such
    // temporaries of an awaited expression twice.
    QCoro::Task<void> permissions = checkPermissions(mode, configuration, mode.hasVideo());
    co_await permissions;
    if (!isAlive())
        co_return std::nullopt;
    m_trace.mark(QStringLiteral("checkPermissions.end"));

    m_trace.mark(QStringLiteral("prepareEngines.begin"));
    QCoro::Task<RecordingPreparation::Result> preparation =
        m_preparation.prepareEngines(mode, configuration, m_contentCache.cachedShareableContent(),
                                     camera.engine(), camera.deviceName());
    RecordingPreparation::Result result = co_await preparation;
    if (!isAlive())
        co_return std::nullopt;
    m_trace.mark(QStringLiteral("prepareEngines.end"));
    for (const RecordingPreparationTiming& timing : result.preparationTimings)
        m_trace.mark(QString::fromStdString(fmt::format("prepare.{} {:.1f}ms total {:.1f}ms",
                                                        timing.name.toStdString(), timing.deltaMs,
                                                        timing.totalMs)));
    if (result.shareableContent)
        m_contentCache.store(*result.shareableContent);
    co_return std::optional<RecordingPreparation::Result>(std::move(result));
}

QCoro::Task<void>
RecordingPreparationSteps::checkPermissions(RecordingMode mode,
                                            RecordingConfiguration configuration,
                                            bool screenPermissionAlreadyResolved) {
    if (mode.hasVideo() && !screenPermissionAlreadyResolved)
        co_await ScreenRecordingPermission::ensureAuthorized(true);
    // The camera is asked for by its own engine when it opens.
    if (configuration.recordMicrophone && !m_factory.requestMicrophoneAccess())
        throw RecordingError::permissionDenied(PermissionType::microphone);
}
