#include "media/RecordingSalvage.h"

#include "core/metadata/MetadataFile.h"
#include "core/support/Log.h"
#include "media/FFmpegHandles.h"
#include "media/UnfinishedRecordingMarker.h"
#include "media/encoding/FileOutput.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <tuple>

namespace {

// The metadata recorder's spill file: records of three little-endian doubles (time, x, y).
constexpr std::size_t spillRecordSize = 24;
constexpr std::string_view spillPrefix = "cursor_positions_";
// How far a spill file's last change may lie outside the movie's life and still be its own.
constexpr double spillTimeSlack = 2.0;

[[noreturn]] void fail(const std::filesystem::path& movie, const std::string& reason) {
    throw RecordingSalvageError(movie.string() + ": " + reason);
}

// The copy could not be written (most often: the disk is full, which is also why many a
// recording had to be salvaged in the first place).
class CopyWriteError final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

std::filesystem::path recoveredName(const std::filesystem::path& movie) {
    std::filesystem::path named = movie;
    named.replace_filename(movie.stem().string() + " (Recovered)" + movie.extension().string());
    return named;
}

// Hidden beside the movie, as a finished recording's metadata is.
std::filesystem::path metadataPathFor(const std::filesystem::path& movie) {
    return movie.parent_path() / ("." + movie.stem().string() + ".metadata.json");
}

double modificationTime(const std::filesystem::path& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0)
        return 0;
    return double(info.st_mtim.tv_sec) + double(info.st_mtim.tv_nsec) / 1e9;
}

// The one spill file whose last change falls within the recording's life; none when there is
// none or more than one (two recordings killed together), since a wrong one would be worse.
std::optional<std::filesystem::path> spillFileFor(const std::filesystem::path& folder,
                                                  double startedAt, double lastWritten) {
    std::vector<std::filesystem::path> found;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        const std::string name = entry.path().filename().string();
        if (!name.starts_with(spillPrefix) || !name.ends_with(".bin") || !entry.is_regular_file())
            continue;
        const double changed = modificationTime(entry.path());
        if (changed >= startedAt - spillTimeSlack && changed <= lastWritten + spillTimeSlack)
            found.push_back(entry.path());
    }
    if (found.size() == 1)
        return found.front();
    if (found.size() > 1)
        logLine("⚠️ {} cursor spill files fit the recording; its cursor samples are left out",
                found.size());
    return std::nullopt;
}

std::vector<CursorPosition> readSpillFile(const std::filesystem::path& path) {
    std::vector<CursorPosition> positions;
    std::ifstream in(path, std::ios::binary);
    char record[spillRecordSize];
    // A partial last record, from a write cut short, is left out.
    while (in.read(record, spillRecordSize)) {
        double values[3];
        std::memcpy(values, record, sizeof values);
        positions.push_back(
            CursorPosition{.timestamp = values[0], .position = {values[1], values[2]}});
    }
    return positions;
}

template <typename T, typename Time>
void keepUntil(std::vector<T>& items, double end, Time time) {
    std::erase_if(items, [&](const T& item) { return time(item) > end; });
}

// Nothing after the end of the salvaged movie: no click or zoom pointing past its last frame.
RecordingMetadata cutTo(RecordingMetadata metadata, double duration) {
    metadata.duration = duration;
    keepUntil(metadata.zoomEvents, duration, [](const ZoomEvent& e) { return e.timestamp; });
    keepUntil(metadata.zoomKeyframes, duration, [](const ZoomKeyframe& k) { return k.time; });
    keepUntil(metadata.cameraPositions, duration,
              [](const CameraKeyframe& k) { return k.timestamp; });
    keepUntil(metadata.cursorClicks, duration, [](const CursorClick& c) { return c.timestamp; });
    keepUntil(metadata.cursorPositions, duration,
              [](const CursorPosition& p) { return p.timestamp; });
    keepUntil(metadata.zoomSegments, duration, [](const ZoomSegment& s) { return s.startTime; });
    for (ZoomSegment& segment : metadata.zoomSegments)
        segment.endTime = std::min(segment.endTime, duration);
    return metadata;
}

// The container the original used, unless a codec in it lives only in the other one.
const AVOutputFormat* containerFor(const std::filesystem::path& movie,
                                   const AVFormatContext& input) {
    const bool mp4 = movie.extension() == ".mp4";
    const std::array<const char*, 2> order = {mp4 ? "mp4" : "mov", mp4 ? "mov" : "mp4"};
    for (const char* name : order) {
        const AVOutputFormat* format = av_guess_format(name, nullptr, nullptr);
        bool fits = format != nullptr;
        for (unsigned i = 0; fits && i < input.nb_streams; ++i)
            fits = avformat_query_codec(format, input.streams[i]->codecpar->codec_id,
                                        FF_COMPLIANCE_EXPERIMENTAL) == 1;
        if (fits)
            return format;
    }
    return av_guess_format("mov", nullptr, nullptr);
}

struct CopyResult {
    std::filesystem::path path;
    double duration = 0;
    int64_t packets = 0;
};

// Copies every complete sample of `movie` into a new file; the new file's path and length.
CopyResult copyCompleteSamples(const std::filesystem::path& movie) {
    // FFmpeg's notes on what it reads and writes are not the program's log.
    av_log_set_level(AV_LOG_ERROR);
    AVFormatContext* rawInput = avformat_alloc_context();
    // The samples are copied as they are stored; parsing would only trip over the damaged end.
    if (rawInput)
        rawInput->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
    if (int result = avformat_open_input(&rawInput, movie.c_str(), nullptr, nullptr); result < 0)
        fail(movie, ffmpegErrorText(result));
    AVInputFormatContextPtr input(rawInput);
    // The movie's header describes every track fully; probing would decode the damaged end.

    std::string error;
    std::unique_ptr<FileOutput> output = FileOutput::create(recoveredName(movie), error);
    if (!output)
        throw CopyWriteError(recoveredName(movie).string() + ": " + error);
    CopyResult copied{output->path()};
    auto discard = [&](const std::string& reason, bool writing = false) {
        output.reset();
        std::error_code ignored;
        std::filesystem::remove(copied.path, ignored);
        if (writing)
            throw CopyWriteError(copied.path.string() + ": " + reason);
        fail(movie, reason);
    };

    AVFormatContext* rawMuxer = nullptr;
    avformat_alloc_output_context2(&rawMuxer, containerFor(movie, *input), nullptr,
                                   copied.path.c_str());
    AVOutputFormatContextPtr muxer(rawMuxer);
    if (!muxer)
        discard("no muxer");
    muxer->pb = output->context();
    muxer->flags |= AVFMT_FLAG_CUSTOM_IO;
    muxer->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        AVStream* stream = avformat_new_stream(muxer.get(), nullptr);
        if (!stream || avcodec_parameters_copy(stream->codecpar, input->streams[i]->codecpar) < 0)
            discard("out of memory");
        stream->time_base = input->streams[i]->time_base;
        stream->avg_frame_rate = input->streams[i]->avg_frame_rate;
    }
    if (int result = avformat_write_header(muxer.get(), nullptr); result < 0)
        discard(output->systemError().value_or(ffmpegErrorText(result)), true);

    // Each track's newest sample waits for the next one: a fragmented file gives no sample a
    // duration of its own, the distance to the next sample is its duration.
    std::vector<AVPacketPtr> pending(input->nb_streams);
    // The length is the video's; a file of sound alone has the length of its sound.
    double videoEnd = -1;
    double otherEnd = 0;
    auto write = [&](unsigned index, int64_t nextDts) {
        AVPacket* held = pending[index].get();
        const AVStream* stream = input->streams[index];
        if (nextDts != AV_NOPTS_VALUE && nextDts > held->dts)
            held->duration = nextDts - held->dts;
        const double end =
            double(held->pts + std::max<int64_t>(held->duration, 0)) * av_q2d(stream->time_base);
        double& trackEnd = stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO ? videoEnd : otherEnd;
        trackEnd = std::max(trackEnd, end);
        ++copied.packets;
        if (int result = av_interleaved_write_frame(muxer.get(), held); result < 0)
            discard(output->systemError().value_or(ffmpegErrorText(result)), true);
        pending[index].reset();
    };
    AVPacketPtr packet(av_packet_alloc());
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        const unsigned index = unsigned(packet->stream_index);
        // A sample cut short by the crash ends the usable part of its track.
        const bool usable = !(packet->flags & AV_PKT_FLAG_CORRUPT) &&
                            packet->pts != AV_NOPTS_VALUE &&
                            (!pending[index] || packet->dts > pending[index]->dts);
        if (usable) {
            if (pending[index])
                write(index, packet->dts);
            pending[index].reset(av_packet_alloc());
            av_packet_move_ref(pending[index].get(), packet.get());
        }
        av_packet_unref(packet.get());
    }
    for (unsigned index = 0; index < input->nb_streams; ++index) {
        if (!pending[index])
            continue;
        // The last complete sample lasts until the next one the file's index knows of (the
        // first of a fragment the crash cut short), else to the end of the track's last
        // fragment, which the fragment's own table of durations gives.
        AVStream* stream = input->streams[index];
        const AVIndexEntry* next = avformat_index_get_entry_from_timestamp(
            stream, pending[index]->dts + 1, AVSEEK_FLAG_ANY);
        int64_t end = AV_NOPTS_VALUE;
        if (next && next->timestamp > pending[index]->dts)
            end = next->timestamp;
        else if (stream->duration > 0)
            end =
                (stream->start_time != AV_NOPTS_VALUE ? stream->start_time : 0) + stream->duration;
        write(index, end);
    }
    if (copied.packets == 0) {
        // Nothing will ever come of it: not worth another try, but the file is the user's.
        UnfinishedRecordingMarker::removeFor(movie);
        discard("no complete frame");
    }
    copied.duration = videoEnd >= 0 ? videoEnd : otherEnd;
    if (int result = av_write_trailer(muxer.get()); result < 0)
        discard(output->systemError().value_or(ffmpegErrorText(result)), true);
    if (!output->close())
        discard(output->systemError().value_or("cannot write"), true);
    return copied;
}

// Reads the header of the top-level box at `offset`: its size (0 when it is cut short or
// unreadable) and its type.
std::pair<uint64_t, std::string> boxAt(int fd, uint64_t offset, uint64_t fileSize) {
    unsigned char header[16];
    if (offset + 8 > fileSize || ::pread(fd, header, 8, off_t(offset)) != 8)
        return {0, {}};
    auto big = [&](int at, int bytes) {
        uint64_t value = 0;
        for (int i = 0; i < bytes; ++i)
            value = value << 8 | header[at + i];
        return value;
    };
    uint64_t size = big(0, 4);
    const std::string type(reinterpret_cast<const char*>(header + 4), 4);
    if (size == 1) {
        if (offset + 16 > fileSize || ::pread(fd, header + 8, 8, off_t(offset + 8)) != 8)
            return {0, type};
        size = big(8, 8);
    } else if (size == 0) {
        size = fileSize - offset; // to the end of the file
    }
    if (size < 8 || offset + size > fileSize)
        return {0, type};
    return {size, type};
}

// With no room for a copy: the movie itself is cut after its last complete fragment and
// renamed, never over another file. Needs no space at all; the movie stays in the fragmented
// layout, which plays everywhere, without the index a finished one has.
CopyResult closeInPlace(const std::filesystem::path& movie) {
    const int fd = ::open(movie.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0)
        fail(movie, std::strerror(errno));
    struct stat info {};
    ::fstat(fd, &info);
    const uint64_t fileSize = uint64_t(info.st_size);
    uint64_t offset = 0;
    uint64_t completeEnd = 0;
    bool afterFragmentHeader = false;
    for (auto [size, type] = boxAt(fd, 0, fileSize); size > 0;
         std::tie(size, type) = boxAt(fd, offset, fileSize)) {
        offset += size;
        if (type == "moof") {
            afterFragmentHeader = true;
        } else if (type == "mdat" && afterFragmentHeader) {
            completeEnd = offset;
            afterFragmentHeader = false;
        }
    }
    const bool cut = completeEnd > 0 && ::ftruncate(fd, off_t(completeEnd)) == 0 &&
                     (::fdatasync(fd) == 0 || errno == EINVAL);
    const int error = errno;
    ::close(fd);
    if (completeEnd == 0)
        fail(movie, "no complete frame");
    if (!cut)
        fail(movie, std::strerror(error));

    CopyResult closed;
    for (int number = 1;; ++number) {
        closed.path = numberedName(recoveredName(movie), number);
        if (::link(movie.c_str(), closed.path.c_str()) == 0)
            break;
        if (errno != EEXIST)
            fail(movie, std::strerror(errno));
    }
    ::unlink(movie.c_str());

    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, closed.path.c_str(), nullptr, nullptr) >= 0) {
        AVInputFormatContextPtr input(raw);
        double videoEnd = -1, otherEnd = 0;
        for (unsigned i = 0; i < input->nb_streams; ++i) {
            const AVStream* stream = input->streams[i];
            if (stream->duration <= 0)
                continue;
            const double end =
                double((stream->start_time != AV_NOPTS_VALUE ? stream->start_time : 0) +
                       stream->duration) *
                av_q2d(stream->time_base);
            double& trackEnd =
                stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO ? videoEnd : otherEnd;
            trackEnd = std::max(trackEnd, end);
        }
        closed.duration = videoEnd >= 0 ? videoEnd : otherEnd;
    }
    return closed;
}

RecordingMetadata metadataFromDisk(const std::filesystem::path& movie,
                                   const SalvageOptions& options,
                                   std::optional<std::filesystem::path>& spillUsed) {
    const std::filesystem::path beside = metadataPathFor(movie);
    std::error_code error;
    if (std::filesystem::exists(beside, error)) {
        try {
            return readMetadataFile(QString::fromStdString(beside.string()));
        } catch (const std::exception& unreadable) {
            logLine("⚠️ Metadata beside {} unreadable: {}", movie.filename().string(),
                    unreadable.what());
        }
    }
    RecordingMetadata metadata;
    const auto details = UnfinishedRecordingMarker::readDetails(movie);
    if (!details)
        return metadata;
    metadata.resolution = Size{double(details->width), double(details->height)};
    metadata.frameRate = details->frameRate;
    spillUsed = spillFileFor(options.spillFolder, details->startedAt, modificationTime(movie));
    if (spillUsed)
        metadata.cursorPositions = readSpillFile(*spillUsed);
    return metadata;
}

} // namespace

SalvagedRecording salvageRecording(const std::filesystem::path& movie,
                                   const SalvageOptions& options) {
    // On a full disk the room the marker holds is what the copy, or else the metadata, needs.
    UnfinishedRecordingMarker::releaseReserveFor(movie);
    // Read before the movie moves: the marker and the movie's own times lead to the spill file.
    std::optional<std::filesystem::path> spillUsed;
    RecordingMetadata metadata =
        options.metadata ? *options.metadata : metadataFromDisk(movie, options, spillUsed);

    CopyResult copied;
    try {
        copied = copyCompleteSamples(movie);
    } catch (const CopyWriteError& error) {
        logLine("⚠️ No room for a copy ({}); closing the recording where it is", error.what());
        copied = closeInPlace(movie);
    }
    SalvagedRecording salvaged{copied.path, metadataPathFor(copied.path), copied.duration};
    try {
        writeMetadataFile(cutTo(std::move(metadata), copied.duration),
                          QString::fromStdString(salvaged.metadata.string()));
    } catch (const std::exception& unwritable) {
        // The movie is the recording; it is kept even when its metadata cannot be.
        logLine("⚠️ Failed to save metadata: {}", unwritable.what());
        salvaged.metadata.clear();
    }

    std::error_code ignored;
    std::filesystem::remove(movie, ignored);
    std::filesystem::remove(metadataPathFor(movie), ignored);
    UnfinishedRecordingMarker::removeFor(movie);
    // Where the mouse went is nobody's business once it is in the metadata.
    if (spillUsed && !salvaged.metadata.empty())
        std::filesystem::remove(*spillUsed, ignored);
    logLine("✅ Recovered {} ({:.1f} s)", salvaged.movie.string(), copied.duration);
    return salvaged;
}

RecordingMetadata cutMetadataTo(RecordingMetadata metadata, double duration) {
    return cutTo(std::move(metadata), duration);
}

std::vector<std::filesystem::path> findUnfinishedRecordings(const std::filesystem::path& folder) {
    return UnfinishedRecordingMarker::abandonedMovies(folder);
}
