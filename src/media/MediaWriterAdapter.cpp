#include "media/MediaWriterAdapter.h"

#include "core/support/Log.h"
#include "media/RecordingSalvage.h"

#include "core/async/DetachedTask.h"

void MediaWriterAdapter::configure(const WriterConfiguration& configuration) {
    m_writer.configure(configuration);
}

QCoro::Task<QString> MediaWriterAdapter::finishWriting() {
    MediaWriter* writer = &m_writer;
    // The writer waits for its encoder to drain; the main thread must not.
    QCoro::Task<QString> finishing = runDetached<QString>(
        [writer] { return QString::fromStdString(writer->finishWriting().string()); });
    QString path = co_await finishing;
    co_return path;
}

QCoro::Task<std::optional<QString>> MediaWriterAdapter::salvage() {
    MediaWriter* writer = &m_writer;
    // Closing the file and copying its fragments take time; the main thread must not wait.
    QCoro::Task<std::optional<QString>> salvaging =
        runDetached<std::optional<QString>>([writer]() -> std::optional<QString> {
            std::optional<std::filesystem::path> movie = writer->outputURL();
            if (!movie)
                return std::nullopt;
            try {
                // A writer that still works closes its file properly; a failed one (a full disk)
                // stops where it is, and its fragments are what is kept.
                if (writer->hasFailed())
                    writer->abandon();
                else
                    movie = writer->finishWriting();
                const SalvagedRecording kept = salvageRecording(*movie);
                return QString::fromStdString(kept.movie.string());
            } catch (const std::exception& error) {
                logLine("⚠️ Nothing of the recording could be kept: {}", error.what());
                return std::nullopt;
            }
        });
    std::optional<QString> kept = co_await salvaging;
    co_return kept;
}
