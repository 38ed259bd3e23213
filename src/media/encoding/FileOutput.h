#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

struct AVIOContext;

// The byte sink of a movie file: an FFmpeg I/O context over a plain file descriptor, so that
// every write error keeps the system's own text ("No space left on device") and written data is
// pushed to the disk about once a second, which is what keeps a recording after a power loss.
// Used on the writer's worker thread only.
class FileOutput final {
public:
    // Creates a new file, never opening one that exists: when the name is taken (by an earlier
    // recording, or by another process that asked for the same name in the same second) the
    // next free of "name (2).ext", "name (3).ext"... is created instead, atomically (O_EXCL).
    // path() says which. Nothing and an error text on failure.
    static std::unique_ptr<FileOutput> create(const std::filesystem::path& path,
                                              std::string& error);
    ~FileOutput();
    FileOutput(const FileOutput&) = delete;
    FileOutput& operator=(const FileOutput&) = delete;

    AVIOContext* context() const { return m_context; }
    const std::filesystem::path& path() const { return m_path; }
    // The system's text for the first failed write or seek, if any.
    const std::optional<std::string>& systemError() const { return m_systemError; }
    // Flushes, syncs and closes; false with systemError set when that fails.
    bool close();

private:
    FileOutput() = default;
    static int writePacket(void* opaque, uint8_t* data, int size);
    static int64_t seek(void* opaque, int64_t offset, int whence);
    int fail(int errorNumber);

    std::filesystem::path m_path;
    int m_fd = -1;
    AVIOContext* m_context = nullptr; // owned; freed with its buffer in the destructor
    std::optional<std::string> m_systemError;
    std::chrono::steady_clock::time_point m_lastSync;
};

// "name.ext" for 1, "name (2).ext", "name (3).ext"... for the numbers after it.
std::filesystem::path numberedName(const std::filesystem::path& path, int number);
