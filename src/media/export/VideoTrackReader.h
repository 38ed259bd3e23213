#pragma once

#include "core/time/MediaTime.h"
#include "media/VideoFrame.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

// Decodes the first video track of a movie file into BGRA frames and answers which frame is on
// screen at a time, exactly: the last frame that starts at or before it. Times are on the
// file's own time line with its first sample at zero. Going forward decodes on; going back, or
// far ahead, seeks to the key frame before the time and decodes up to it.
//
// Thread: one at a time (the export's reader thread).
class VideoTrackReader final {
public:
    // Nothing, with an error naming the file, when it cannot be opened or holds no video.
    static std::unique_ptr<VideoTrackReader> open(const std::filesystem::path& path,
                                                  std::string& error);
    ~VideoTrackReader();
    VideoTrackReader(const VideoTrackReader&) = delete;
    VideoTrackReader& operator=(const VideoTrackReader&) = delete;

    int width() const { return m_width; }
    int height() const { return m_height; }
    // Of the whole file, as its container tells it.
    MediaTime duration() const { return m_duration; }
    // FFmpeg's short name of the track's codec ("h264", "hevc", "prores").
    const std::string& codecName() const { return m_codecName; }

    // Whether the end of the track can be read: a movie whose index promises more than the file
    // holds (a copy cut short) fails here, with a reason, before any work is done on it.
    bool checkComplete(std::string& error);

    // The frame shown at `time` (the first frame for earlier times, the last one after the end);
    // null only when nothing could be decoded. A decoding error is latched in `error`.
    VideoFrame frameAt(MediaTime time);
    // For a dragged scrubber, where a frame now matters more than the exact one: the frame at
    // `time` when it is within `tolerance` of where decoding stands, else the key frame before
    // `time`, which costs one decoded frame instead of a run from that key frame.
    VideoFrame frameNear(MediaTime time, MediaTime tolerance);
    const std::optional<std::string>& error() const { return m_error; }

private:
    struct Decoder;
    VideoTrackReader();
    void seekTo(MediaTime time);
    VideoFrame decodeNext();

    std::unique_ptr<Decoder> m_decoder;
    int m_width = 0;
    int m_height = 0;
    MediaTime m_duration = MediaTime::zero();
    std::string m_codecName;
    VideoFrame m_current;
    VideoFrame m_next;
    bool m_positioned = false;
    bool m_endOfStream = false;
    std::optional<std::string> m_error;
};
