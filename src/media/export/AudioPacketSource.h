#pragma once

#include <filesystem>
#include <memory>
#include <string>

struct AVCodecParameters;
struct AVPacket;

// The compressed packets of a movie's first audio track, in order, with their times moved so
// that the file's first sample is at zero: for an export that carries the sound over unchanged
// because no cut touches it.
//
// Thread: one at a time (the export's reader thread).
class AudioPacketSource final {
public:
    // Nothing with an empty error when the movie has no audio; with an error naming the file
    // when it cannot be read.
    static std::unique_ptr<AudioPacketSource> open(const std::filesystem::path& path,
                                                   std::string& error);
    ~AudioPacketSource();
    AudioPacketSource(const AudioPacketSource&) = delete;
    AudioPacketSource& operator=(const AudioPacketSource&) = delete;

    const AVCodecParameters* parameters() const;
    int timeBaseNum() const;
    int timeBaseDen() const;
    // Whether an MPEG-4 file can hold the track as it is.
    bool fitsMpeg4() const;

    // The next packet and its time in seconds; null at the end.
    std::shared_ptr<AVPacket> next(double& seconds);

private:
    struct Demuxer;
    AudioPacketSource();
    std::unique_ptr<Demuxer> m_demuxer;
};
