#pragma once

#include <sys/types.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

// A hidden file ".<movie file name>.unfinished" beside a movie while it is being written, removed
// once the movie is complete. One left behind means its writer died: the movie holds what its
// fragments got to disk and can be salvaged. The writer keeps an exclusive lock on the marker
// for as long as it lives (the system drops it when the process dies, however it dies), so a
// movie still being written by any process is never taken for an abandoned one.
//
// Thread: any; one object per marker.
class UnfinishedRecordingMarker final {
public:
    // What a salvage needs to know that the movie itself does not say.
    struct Details {
        int width = 0;
        int height = 0;
        int frameRate = 0;
        double startedAt = 0; // seconds since the epoch
    };

    // Nothing when the marker cannot be made (the movie is still written, only not salvageable
    // by recover after a crash).
    static std::unique_ptr<UnfinishedRecordingMarker> create(const std::filesystem::path& movie,
                                                             const Details& details);
    static std::optional<Details> readDetails(const std::filesystem::path& movie);
    // Closes without removing: the marker stays, as a crash would leave it.
    ~UnfinishedRecordingMarker();
    UnfinishedRecordingMarker(const UnfinishedRecordingMarker&) = delete;
    UnfinishedRecordingMarker& operator=(const UnfinishedRecordingMarker&) = delete;

    // The movie is complete (or gone): the marker goes.
    void remove();
    // Gives the disk back the room the marker holds for the salvage (see reserveBytes): called
    // when the writer fails, so that the metadata and the salvage find room on a full disk.
    // Thread: any; once is enough, more do nothing.
    void releaseReserve();

    // Room a marker takes on the disk beyond its few bytes of details, for as long as the
    // recording runs: when the disk fills up, giving it back makes room for the metadata and
    // for closing the movie. Best effort (a file system without preallocation holds none).
    static constexpr off_t reserveBytes = off_t(4) << 20;
    // The same for a marker left behind, before its movie is salvaged.
    static void releaseReserveFor(const std::filesystem::path& movie);

    static std::filesystem::path markerPath(const std::filesystem::path& movie);
    // The movies in `folder` whose marker is left and whose writer is no longer alive.
    static std::vector<std::filesystem::path> abandonedMovies(const std::filesystem::path& folder);
    // True when a living writer holds the movie's marker.
    static bool isBeingWritten(const std::filesystem::path& movie);
    // Removes a left marker; call once the movie was salvaged.
    static void removeFor(const std::filesystem::path& movie);

private:
    UnfinishedRecordingMarker() = default;

    std::filesystem::path m_path;
    int m_fd = -1;
    off_t m_detailsSize = 0;
    std::atomic<bool> m_reserved{false};
};
