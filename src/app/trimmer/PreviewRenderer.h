#pragma once

#include "core/time/MediaTime.h"
#include "media/export/VideoTrackReader.h"
#include "render/RoundedCameraCompositor.h"
#include "render/RoundedCameraCompositorSettings.h"

#include <QImage>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

// One frame of the editor's preview at a time: the recording's own picture, or the styled
// frame drawn by the export's compositor from the export's own settings, so that the preview
// shows exactly what an export would write at that time.
//
// Thread: one at a time (the player's decoding thread, or a test).
class PreviewRenderer final {
public:
    struct Frame {
        QImage image;
        // Where the shown source frame lies on the recording's time line.
        MediaTime start = MediaTime::zero();
        MediaTime duration = MediaTime::invalid();
    };

    // Nothing, with the reason naming the file, when the movie cannot be read.
    static std::unique_ptr<PreviewRenderer> open(const std::filesystem::path& screen,
                                                 const std::optional<std::filesystem::path>& camera,
                                                 std::string& error);
    ~PreviewRenderer();

    // Takes effect from the next frame; settings are copied so that the caller may go on
    // changing its own.
    void setSettings(const RoundedCameraCompositorSettings& settings);
    // Opens the movies again: a long scrub leaves the decoder's buffers fragmented.
    void rebuild();

    // The frame at `seconds`; a null image when nothing could be decoded. Not `exact`: a frame
    // near `seconds` that is quick to decode (see VideoTrackReader::frameNear), for scrubbing.
    Frame render(double seconds, bool styled, bool exact = true);

    int width() const { return m_screen->width(); }
    int height() const { return m_screen->height(); }
    Size cameraNaturalSize() const;

private:
    PreviewRenderer() = default;

    std::filesystem::path m_screenPath;
    std::optional<std::filesystem::path> m_cameraPath;
    std::unique_ptr<VideoTrackReader> m_screen;
    std::unique_ptr<VideoTrackReader> m_camera;
    RoundedCameraCompositorSettings m_settings;
    // Reads m_settings: made after it and gone before it.
    std::unique_ptr<RoundedCameraCompositor> m_compositor;
};
