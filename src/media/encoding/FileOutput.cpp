#include "media/encoding/FileOutput.h"

#include "media/FFmpegHandles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {
constexpr int ioBufferSize = 256 * 1024;
constexpr auto syncInterval = std::chrono::seconds(1);

// Past this many recordings of one name something else is wrong; say so instead of looping.
constexpr int maximumNumberedNames = 10000;

std::string systemErrorText(int errorNumber) {
    return std::strerror(errorNumber);
}
} // namespace

std::filesystem::path numberedName(const std::filesystem::path& path, int number) {
    if (number <= 1)
        return path;
    std::filesystem::path named = path;
    named.replace_filename(path.stem().string() + " (" + std::to_string(number) + ")" +
                           path.extension().string());
    return named;
}

std::unique_ptr<FileOutput> FileOutput::create(const std::filesystem::path& path,
                                               std::string& error) {
    std::unique_ptr<FileOutput> output(new FileOutput());
    for (int number = 1; output->m_fd < 0; ++number) {
        if (number > maximumNumberedNames) {
            error = path.string() + ": " + systemErrorText(EEXIST);
            return nullptr;
        }
        output->m_path = numberedName(path, number);
        output->m_fd =
            ::open(output->m_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (output->m_fd < 0 && errno != EEXIST) {
            error = systemErrorText(errno);
            return nullptr;
        }
    }
    auto* buffer = static_cast<unsigned char*>(av_malloc(ioBufferSize));
    output->m_context = buffer ? avio_alloc_context(buffer, ioBufferSize, 1, output.get(), nullptr,
                                                    &FileOutput::writePacket, &FileOutput::seek)
                               : nullptr;
    if (!output->m_context) {
        av_free(buffer);
        error = systemErrorText(ENOMEM);
        return nullptr;
    }
    output->m_lastSync = std::chrono::steady_clock::now();
    return output;
}

FileOutput::~FileOutput() {
    if (m_context)
        AVIOContextPtr release(m_context);
    if (m_fd >= 0)
        ::close(m_fd);
}

int FileOutput::fail(int errorNumber) {
    if (!m_systemError)
        m_systemError = systemErrorText(errorNumber);
    return AVERROR(errorNumber);
}

int FileOutput::writePacket(void* opaque, uint8_t* data, int size) {
    auto* self = static_cast<FileOutput*>(opaque);
    int written = 0;
    while (written < size) {
        ssize_t n = ::write(self->m_fd, data + written, size_t(size - written));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return self->fail(errno);
        written += int(n);
    }
    // Syncing here, on the worker, costs the capture threads nothing; a slow disk shows up as a
    // fuller queue, never as a stalled capture.
    auto now = std::chrono::steady_clock::now();
    if (now - self->m_lastSync >= syncInterval) {
        self->m_lastSync = now;
        ::fdatasync(self->m_fd);
    }
    return size;
}

int64_t FileOutput::seek(void* opaque, int64_t offset, int whence) {
    auto* self = static_cast<FileOutput*>(opaque);
    if (whence & AVSEEK_SIZE) {
        struct stat info {};
        return ::fstat(self->m_fd, &info) == 0 ? int64_t(info.st_size) : self->fail(errno);
    }
    off_t result = ::lseek(self->m_fd, offset, whence & ~AVSEEK_FORCE);
    return result < 0 ? self->fail(errno) : int64_t(result);
}

bool FileOutput::close() {
    if (m_context)
        avio_flush(m_context);
    if (m_context && m_context->error < 0 && !m_systemError)
        m_systemError = ffmpegErrorText(m_context->error);
    if (m_fd >= 0) {
        // A file system that cannot sync (EINVAL) has nothing more to lose; other failures do.
        if (::fdatasync(m_fd) != 0 && errno != EINVAL && !m_systemError)
            m_systemError = systemErrorText(errno);
        if (::close(m_fd) != 0 && !m_systemError)
            m_systemError = systemErrorText(errno);
        m_fd = -1;
    }
    return !m_systemError;
}
