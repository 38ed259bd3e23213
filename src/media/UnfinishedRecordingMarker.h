#pragma once

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
};
