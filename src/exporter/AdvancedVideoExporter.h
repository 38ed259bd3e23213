#pragma once

#include "render/RoundedCameraCompositorSettings.h"

#include "core/cursor/CursorOverlaySettings.h"
#include "core/metadata/BackgroundSettings.h"
#include "core/metadata/CameraExportSettings.h"
#include "core/metadata/RecordingMetadata.h"
#include "core/model/OutputAspectRatio.h"
#include "core/time/MediaTimeRange.h"
#include "media/export/ExportWriter.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

class ExportSession;
class VideoCompositing;

// Everything one styled export is made from, in the order the exporter takes it, plus what the
// command line adds: which source ranges to keep, the encoding, the output frame duration.
struct AdvancedExportArguments {
    std::filesystem::path screenAsset;
    std::optional<std::filesystem::path> cameraAsset;
    std::optional<RecordingMetadata> metadata;
    CameraExportSettings cameraSettings;
    CursorOverlaySettings cursorOverlaySettings;
    std::optional<BackgroundSettings> backgroundSettings;
    bool backgroundEnabled = false;
    double videoPadding = 120.0;
    double videoCornerRadius = 28.0;
    OutputAspectRatio outputAspectRatio = OutputAspectRatio::original;
    bool verticalStack = false;
    double screenShadowOpacity = 0.4;
    double screenShadowRadius = 30.0;
    double cameraShadowOpacity = 0.4;
    double cameraShadowRadius = 12.0;
    std::filesystem::path outputURL;

    // Source ranges laid end to end; empty: the whole screen movie.
    std::vector<MediaTimeRange> timeRanges;
    // Compose even when nothing is styled (a merged export always composes).
    bool alwaysCompose = false;
    // Copy packets when nothing is composed and the size stays; off when an encoding was asked.
    bool allowPassthrough = true;
    ExportEncoding encoding;
    MediaTime frameDuration = MediaTime::make(1, 60);
};

// Joins the screen movie and an optional camera movie on one time line, chooses between the
// styled compositor and the plain path, fills the compositor's shared settings, and runs the
// export session. One export at a time, since the settings are shared.
class AdvancedVideoExporter final {
public:
    struct ExportError {
        enum class Kind { exportFailed, invalidAssets, compositionFailed, cancelled };
        Kind kind = Kind::exportFailed;
        std::optional<std::string> underlying;
        std::string description() const;
    };
    struct Result {
        std::optional<std::filesystem::path> url;
        std::optional<ExportError> error;
    };
    using ProgressHandler = std::function<void(double)>;
    using Completion = std::function<void(Result)>;

    // A running export: the way to cancel it, and to wait for it. Destroying it cancels and
    // waits; the completion has then run.
    class Export final {
    public:
        ~Export();
        void cancel();
        // True once the completion has run.
        bool wait(std::chrono::milliseconds timeout);

    private:
        friend class AdvancedVideoExporter;
        Export() = default;
        void run(AdvancedExportArguments arguments, ProgressHandler progress,
                 Completion completion);
        Result compose(const AdvancedExportArguments& arguments, const ProgressHandler& progress);

        std::atomic<bool> m_cancelled{false};
        std::mutex m_mutex;
        std::condition_variable m_done;
        bool m_finished = false;
        ExportSession* m_session = nullptr; // guarded by m_mutex while it exists
        std::thread m_thread;
    };

    // Returns at once; the work runs on threads of its own, and both callbacks arrive there.
    // ("export" itself is a reserved word here.)
    static std::unique_ptr<Export> exportVideo(AdvancedExportArguments arguments,
                                               ProgressHandler progressHandler,
                                               Completion completion);

    // Whether the styled compositor is needed: a camera, zoom segments, a drawn cursor or a
    // background.
    static bool needsCustomCompositor(const AdvancedExportArguments& arguments);
    // The styled compositor's settings for these arguments and movie sizes: the export and the
    // editor's preview both draw from this, so what the editor shows is what gets exported.
    static RoundedCameraCompositorSettings
    compositorSettings(const AdvancedExportArguments& arguments, Size naturalSize,
                       Size cameraNaturalSize);
};
