#pragma once

#include "core/model/RecordingConfiguration.h"
#include "core/recording/RecordingPreparation.h"

#include <QCoro/QCoroTask>

#include <functional>
#include <optional>

class CameraPrewarmer;
class RecordingEngineFactory;
class RecordingStartupTrace;
class RecordingValidator;
class ShareableContentCache;

// The steps of preparing a recording between the coordinator's `preparing` and `ready`: the
// configuration and storage checks, the desktop's content, the permissions and the engines,
// each marked in the start-up trace. Thread: main; the engines are built on the thread pool.
class RecordingPreparationSteps {
public:
    // Nothing here is owned; everything outlives this object.
    RecordingPreparationSteps(RecordingEngineFactory& factory, const RecordingValidator& validator,
                              ShareableContentCache& contentCache, RecordingStartupTrace& trace,
                              const RecordingPreparation& preparation);

    // Engines that nobody else has seen yet, made for `camera`'s prewarmed device where it
    // matches. Throws the RecordingError of the first step that fails. `isAlive` is asked after
    // every wait: when it says no, the owner and this object are gone, and so is the result.
    QCoro::Task<std::optional<RecordingPreparation::Result>>
    run(RecordingMode mode, RecordingConfiguration configuration, const CameraPrewarmer& camera,
        std::function<bool()> isAlive);

    // Throws RecordingError permissionDenied for the screen or the microphone.
    QCoro::Task<void> checkPermissions(RecordingMode mode, RecordingConfiguration configuration,
                                       bool screenPermissionAlreadyResolved);

private:
    RecordingEngineFactory& m_factory;
    const RecordingValidator& m_validator;
    ShareableContentCache& m_contentCache;
    RecordingStartupTrace& m_trace;
    const RecordingPreparation& m_preparation;
};
