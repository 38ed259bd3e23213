#pragma once

#include "core/model/SCShareableContent.h"

#include <QDateTime>
#include <QFuture>

#include <QCoro/QCoroTask>

#include <exception>
#include <memory>
#include <optional>

class RecordingClock;
class RecordingEngineFactory;
class RecordingStartupTrace;

// The desktop's content, fetched at most once at a time and kept for a while, because asking
// the capture service is the slowest step between the click and the first frame.
// Thread: main; the fetch itself runs on the thread pool.
class ShareableContentCache {
public:
    ShareableContentCache(RecordingEngineFactory& factory, const RecordingClock& clock,
                          RecordingStartupTrace& trace);
    ~ShareableContentCache();

    // Throws RecordingError when the permission is missing or the fetch fails.
    QCoro::Task<SCShareableContent> loadShareableContent(bool force, bool promptForPermission);
    // The platform lists the primary display first; absent when the desktop shows none.
    QCoro::Task<std::optional<SCDisplay>> resolvePrimaryDisplay();
    // Warms the cache in the background when the permission is already granted.
    void prewarmShareableContent();

    void store(SCShareableContent content);
    const std::optional<SCShareableContent>& cachedShareableContent() const { return m_cached; }
    const QDateTime& cachedShareableContentUpdatedAt() const { return m_updatedAt; }
    bool isLoading() const { return m_loadTask != nullptr; }

    double shareableContentCacheTTL = 300.0;

private:
    struct LoadTask {
        QFuture<void> future;
        std::optional<SCShareableContent> content;
        std::exception_ptr error;
    };

    RecordingEngineFactory& m_factory;
    const RecordingClock& m_clock;
    RecordingStartupTrace& m_trace;
    std::optional<SCShareableContent> m_cached;
    QDateTime m_updatedAt;
    std::shared_ptr<LoadTask> m_loadTask;
    // Coroutines check this after each wait: the cache may be gone by then.
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
};
