#pragma once

#include "core/time/MediaTime.h"
#include "media/AudioBuffer.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

// Decodes the first audio track of a movie file into float planar blocks stamped with their
// time on the file's time line (first sample of the file at zero), at the rate and channel
// count asked for (0: the source's own).
//
// Thread: one at a time (the export's reader thread, or the waveform's task).
class AudioTrackReader final {
public:
    struct Format {
        int sampleRate = 0;
        int channelCount = 0;
    };
    // Nothing with an empty error when the file has no audio track; nothing with an error naming
    // the file when it cannot be read.
    static std::unique_ptr<AudioTrackReader> open(const std::filesystem::path& path, Format format,
                                                  std::string& error);
    ~AudioTrackReader();
    AudioTrackReader(const AudioTrackReader&) = delete;
    AudioTrackReader& operator=(const AudioTrackReader&) = delete;

    int sampleRate() const { return m_sampleRate; }
    int channelCount() const { return m_channelCount; }

    // Goes to the packet before `time`; the next block may start somewhat earlier.
    void seek(MediaTime time);
    // The next block, null at the end or after a latched error.
    AudioBuffer nextBuffer();
    const std::optional<std::string>& error() const { return m_error; }

private:
    struct Decoder;
    AudioTrackReader();
    AudioBuffer convert();

    std::unique_ptr<Decoder> m_decoder;
    int m_sampleRate = 0;
    int m_channelCount = 0;
    bool m_endOfStream = false;
    std::optional<std::string> m_error;
};
