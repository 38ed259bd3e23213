#include "media/UnfinishedRecordingMarker.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {
constexpr std::string_view markerSuffix = ".unfinished";

// True when no process holds the lock on the marker at `path`.
bool isAbandoned(const std::filesystem::path& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool free = ::flock(fd, LOCK_EX | LOCK_NB) == 0;
    ::close(fd);
    return free;
}
} // namespace

std::filesystem::path UnfinishedRecordingMarker::markerPath(const std::filesystem::path& movie) {
    return movie.parent_path() / ("." + movie.filename().string() + std::string(markerSuffix));
}

std::unique_ptr<UnfinishedRecordingMarker>
UnfinishedRecordingMarker::create(const std::filesystem::path& movie, const Details& details) {
    std::unique_ptr<UnfinishedRecordingMarker> marker(new UnfinishedRecordingMarker());
    marker->m_path = markerPath(movie);
    // Made locked under a name of its own and then moved into place, so that no one ever sees
    // the marker unlocked while its writer lives. The movie's name was just taken exclusively:
    // a marker already there is a stale one whose movie is gone, and is replaced.
    std::filesystem::path building = marker->m_path;
    building += "." + std::to_string(::getpid());
    marker->m_fd = ::open(building.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (marker->m_fd < 0)
        return nullptr;
    const std::string text =
        fmt::format("width={}\nheight={}\nframeRate={}\nstartedAt={:.3f}\n", details.width,
                    details.height, details.frameRate, details.startedAt);
    // The details are best effort: without them a salvage still keeps the movie.
    if (::flock(marker->m_fd, LOCK_EX | LOCK_NB) != 0 ||
        ::write(marker->m_fd, text.data(), text.size()) < 0 ||
        ::rename(building.c_str(), marker->m_path.c_str()) != 0) {
        ::unlink(building.c_str());
        return nullptr; // the destructor closes the descriptor
    }
    marker->m_detailsSize = off_t(text.size());
    // Held past the end of the file, which still reads as the details alone.
    marker->m_reserved = ::fallocate(marker->m_fd, FALLOC_FL_KEEP_SIZE, 0,
                                     marker->m_detailsSize + reserveBytes) == 0;
    return marker;
}

std::optional<UnfinishedRecordingMarker::Details>
UnfinishedRecordingMarker::readDetails(const std::filesystem::path& movie) {
    std::ifstream in(markerPath(movie));
    if (!in)
        return std::nullopt;
    Details details;
    for (std::string line; std::getline(in, line);) {
        const size_t equals = line.find('=');
        if (equals == std::string::npos)
            continue;
        const std::string key = line.substr(0, equals);
        const char* value = line.c_str() + equals + 1;
        if (key == "width")
            details.width = std::atoi(value);
        else if (key == "height")
            details.height = std::atoi(value);
        else if (key == "frameRate")
            details.frameRate = std::atoi(value);
        else if (key == "startedAt")
            details.startedAt = std::strtod(value, nullptr);
    }
    return details;
}

UnfinishedRecordingMarker::~UnfinishedRecordingMarker() {
    if (m_fd >= 0)
        ::close(m_fd);
}

void UnfinishedRecordingMarker::releaseReserve() {
    // Cutting the file to its own length lets go of what was held past its end.
    if (m_fd >= 0 && m_reserved.exchange(false))
        (void)::ftruncate(m_fd, m_detailsSize);
}

void UnfinishedRecordingMarker::releaseReserveFor(const std::filesystem::path& movie) {
    const std::filesystem::path path = markerPath(movie);
    const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return;
    struct stat info {};
    if (::fstat(fd, &info) == 0)
        (void)::ftruncate(fd, info.st_size);
    ::close(fd);
}

void UnfinishedRecordingMarker::remove() {
    if (m_fd < 0)
        return;
    // Unlinked while still locked, so no one sees it unlocked in between.
    ::unlink(m_path.c_str());
    ::close(m_fd);
    m_fd = -1;
}

std::vector<std::filesystem::path>
UnfinishedRecordingMarker::abandonedMovies(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> movies;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        const std::string name = entry.path().filename().string();
        if (name.size() <= 1 + markerSuffix.size() || name.front() != '.' ||
            !name.ends_with(markerSuffix))
            continue;
        const std::filesystem::path movie =
            folder / name.substr(1, name.size() - 1 - markerSuffix.size());
        if (!isAbandoned(entry.path()))
            continue;
        if (std::filesystem::is_regular_file(movie, error))
            movies.push_back(movie);
        else
            std::filesystem::remove(entry.path(), error); // its movie is gone: nothing to save
    }
    std::sort(movies.begin(), movies.end());
    return movies;
}

bool UnfinishedRecordingMarker::isBeingWritten(const std::filesystem::path& movie) {
    const std::filesystem::path path = markerPath(movie);
    std::error_code error;
    return std::filesystem::exists(path, error) && !isAbandoned(path);
}

void UnfinishedRecordingMarker::removeFor(const std::filesystem::path& movie) {
    std::error_code ignored;
    std::filesystem::remove(markerPath(movie), ignored);
}
