#pragma once

#include "media/export/AudioTrackReader.h"
#include "media/export/ExportWriter.h"
#include "media/export/VideoTrackReader.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <string>

// A recording whose every frame says where it came from: the lower half has one colour per
// second, the upper half a white bar whose position is the frame's number within its second.
// With a 440 Hz tone, written by the program's own export writer, so no tool is needed.
namespace synthetic {

inline constexpr std::array<uint32_t, 8> palette = {0xffd02020, 0xff20d020, 0xff2020d0, 0xffd0d020,
                                                    0xffd020d0, 0xff20d0d0, 0xff808080, 0xffd08020};

struct Layout {
    int width = 320;
    int height = 240;
    int fps = 20;
    double seconds = 3.0;
    bool audio = true;
    uint32_t solidColour = 0; // not 0: every pixel this colour, no counter
    double splitAt = 0;       // not 0: red left of this fraction of the width, blue right of it
    bool louderEachSecond = false; // the tone's amplitude is 0.05 * (second + 1)
};

inline bool writeRecording(const std::filesystem::path& path, const Layout& layout) {
    ExportEncoding encoding;
    encoding.video.width = layout.width;
    encoding.video.height = layout.height;
    encoding.video.expectedSourceFrameRate = layout.fps;
    encoding.tuning.allowHardware = false;
    encoding.tuning.constantRateFactor = 12;
    if (layout.audio)
        encoding.audio = WriterConfiguration::AudioSettings{};
    if (path.extension() == ".mov")
        encoding.fileType = ExportEncoding::FileType::mov;
    std::string error;
    auto writer = ExportWriter::create(path, encoding, error);
    if (!writer)
        return false;
    const int frames = int(std::lround(layout.seconds * layout.fps));
    const int bar = layout.width / layout.fps;
    int64_t sample = 0;
    for (int k = 0; k < frames; ++k) {
        const MediaTime time = MediaTime::make(k, layout.fps);
        VideoFrame frame =
            VideoFrame::allocate(layout.width, layout.height, time, MediaTime::make(1, layout.fps));
        const uint32_t colour = palette[size_t(k / layout.fps) % palette.size()];
        const int barStart = (k % layout.fps) * bar;
        for (int y = 0; y < layout.height; ++y) {
            auto* row = reinterpret_cast<uint32_t*>(frame.mutableBytes() +
                                                    size_t(y) * size_t(frame.bytesPerRow()));
            for (int x = 0; x < layout.width; ++x) {
                const bool white = y < layout.height / 2 && x >= barStart && x < barStart + bar;
                if (layout.splitAt > 0) {
                    row[x] = x < layout.splitAt * layout.width ? palette[0] : palette[2];
                    continue;
                }
                row[x] = layout.solidColour      ? layout.solidColour
                         : white                 ? 0xffffffffu
                         : y < layout.height / 2 ? 0xff000000u
                                                 : colour;
            }
        }
        if (!writer->appendVideo(frame, int64_t(k) * 90000 / layout.fps))
            return false;
        if (layout.audio) {
            const int count = 48000 / layout.fps;
            AudioBuffer tone = AudioBuffer::allocate(2, 48000, count, time);
            for (int c = 0; c < 2; ++c) {
                for (int i = 0; i < count; ++i)
                    tone.mutableChannelData(c)[i] =
                        (layout.louderEachSecond ? 0.05f * float(k / layout.fps + 1) : 0.3f) *
                        float(std::sin(2 * M_PI * 440.0 * double(sample + i) / 48000.0));
            }
            sample += count;
            if (!writer->appendAudio(tone, double(k) / layout.fps))
                return false;
        }
    }
    return writer->finish();
}

// Which source frame a decoded picture shows: second * fps + frame within the second, or -1.
inline int frameNumber(const VideoFrame& frame, const Layout& layout, int left = 0, int top = 0) {
    auto pixel = [&](int x, int y) {
        return *reinterpret_cast<const uint32_t*>(
            frame.bytes() + size_t(top + y) * size_t(frame.bytesPerRow()) + size_t(left + x) * 4);
    };
    auto distance = [](uint32_t a, uint32_t b) {
        int d = 0;
        for (int shift = 0; shift < 24; shift += 8)
            d += std::abs(int((a >> shift) & 0xff) - int((b >> shift) & 0xff));
        return d;
    };
    const uint32_t lower = pixel(layout.width / 2, layout.height * 3 / 4);
    int second = -1, best = 1 << 30;
    for (size_t i = 0; i < palette.size(); ++i) {
        if (distance(lower, palette[i]) < best) {
            best = distance(lower, palette[i]);
            second = int(i);
        }
    }
    const int bar = layout.width / layout.fps;
    int index = -1;
    for (int slot = 0; slot < layout.fps; ++slot) {
        if (((pixel(slot * bar + bar / 2, layout.height / 4) >> 8) & 0xff) > 200) {
            index = slot;
            break;
        }
    }
    if (best > 90 || index < 0)
        return -1;
    return second * layout.fps + index;
}

// The tone's amplitude over [from, to) seconds of a movie's audio (the peak of the first channel).
inline double amplitude(const std::filesystem::path& path, double from, double to) {
    std::string error;
    auto reader = AudioTrackReader::open(path, {}, error);
    if (!reader)
        return -1;
    double peak = 0;
    while (true) {
        const AudioBuffer block = reader->nextBuffer();
        if (block.isNull())
            break;
        const double start = block.presentationTime.seconds();
        for (int i = 0; i < block.sampleCount(); ++i) {
            const double t = start + double(i) / block.sampleRate();
            if (t >= from && t < to)
                peak = std::max(peak, double(std::abs(block.channelData(0)[i])));
        }
    }
    return peak;
}

} // namespace synthetic
