#pragma once

#include <filesystem>
#include <memory>
#include <string>

// Writes float planar audio to one audio file: AAC in an MPEG-4 audio file (".m4a") or MP3
// through libmp3lame. Blocks may have any length; they are cut into the codec's frames here.
// Thread: one at a time.
class AudioFileEncoder final {
public:
    enum class Codec { aac, mp3 };

    // Whether this FFmpeg build has the codec's encoder (libmp3lame is optional).
    static bool isAvailable(Codec codec);
    // Creates or replaces the file. Nothing and an error naming the file on failure.
    static std::unique_ptr<AudioFileEncoder> create(const std::filesystem::path& path, Codec codec,
                                                    int sampleRate, int channelCount,
                                                    std::string& error);
    ~AudioFileEncoder();
    AudioFileEncoder(const AudioFileEncoder&) = delete;
    AudioFileEncoder& operator=(const AudioFileEncoder&) = delete;

    // `channels` holds channelCount pointers to `count` samples each. False after a failure,
    // with error() set; nothing more is written then.
    bool write(const float* const* channels, int count);
    // Encodes what is left and closes the file; false with error() set on failure.
    bool finish();
    const std::string& error() const { return m_error; }

private:
    struct Encoder;
    AudioFileEncoder();
    bool sendFrames(bool final);
    bool drain();
    bool fail(const std::string& what, int code);

    std::unique_ptr<Encoder> m_encoder;
    std::filesystem::path m_path;
    std::string m_error;
};
