#include "core/recording/ShareableContentCache.h"

#include "core/model/RecordingError.h"
#include "core/recording/RecordingClock.h"
#include "core/recording/RecordingStartupTrace.h"
#include "core/recording/engines/RecordingEngineFactory.h"
#include "core/support/ScreenRecordingPermission.h"

#include <QPromise>
#include <QThreadPool>

#include <QCoro/QCoroFuture>

namespace {
RecordingError cacheGone() {
    return RecordingError::unknown(QStringLiteral("The content cache was released while loading"));
}
} // namespace

ShareableContentCache::ShareableContentCache(RecordingEngineFactory& factory,
                                             const RecordingClock& clock,
                                             RecordingStartupTrace& trace)
    : m_factory(factory), m_clock(clock), m_trace(trace) {}

ShareableContentCache::~ShareableContentCache() {
    *m_alive = false;
}

void ShareableContentCache::store(SCShareableContent content) {
    m_cached = std::move(content);
    m_updatedAt = m_clock.now();
}

QCoro::Task<SCShareableContent>
ShareableContentCache::loadShareableContent(bool force, bool promptForPermission) {
    const auto alive = m_alive;
    if (promptForPermission) {
        co_await ScreenRecordingPermission::ensureAuthorized(true);
        if (!*alive)
            throw cacheGone();
        m_trace.mark(QStringLiteral("shareableContent.permission.end"));
    }

    // Results are returned as copies on purpose: g++ 12 moves from the operand of co_return
    // even when it is a member that must keep its value.
    if (!force && m_cached && m_updatedAt.isValid() &&
        double(m_updatedAt.msecsTo(m_clock.now())) < shareableContentCacheTTL * 1000.0) {
        m_trace.mark(QStringLiteral("shareableContent.cacheHit"));
        co_return SCShareableContent(*m_cached);
    }

    if (const auto inFlight = m_loadTask) {
        m_trace.mark(QStringLiteral("shareableContent.awaitInFlight.begin"));
        co_await inFlight->future;
        if (!*alive)
            throw cacheGone();
        if (!inFlight->error) {
            m_trace.mark(QStringLiteral("shareableContent.awaitInFlight.end"));
            co_return SCShareableContent(*inFlight->content);
        }
        // Someone else's failed fetch is no answer for this caller: it tries on its own.
        m_trace.mark(QStringLiteral("shareableContent.awaitInFlight.failed"));
    }

    m_trace.mark(QStringLiteral("shareableContent.load.begin"));
    m_trace.incrementShareableContentLoads();
    auto task = std::make_shared<LoadTask>();
    auto promise = std::make_shared<QPromise<void>>();
    task->future = promise->future();
    promise->start();
    // The task is written on the pool thread before finish() and read here only after it.
    QThreadPool::globalInstance()->start([factory = &m_factory, task, promise] {
        try {
            task->content = factory->fetchShareableContent();
        } catch (...) {
            task->error = std::current_exception();
        }
        promise->finish();
    });
    m_loadTask = task;
    co_await task->future;
    if (!*alive)
        throw cacheGone();
    if (m_loadTask == task)
        m_loadTask.reset();
    if (task->error) {
        m_trace.mark(QStringLiteral("shareableContent.load.failed"));
        std::rethrow_exception(task->error);
    }
    store(*task->content);
    m_trace.mark(QStringLiteral("shareableContent.load.end"));
    co_return SCShareableContent(*task->content);
}

QCoro::Task<std::optional<SCDisplay>> ShareableContentCache::resolvePrimaryDisplay() {
    const SCShareableContent content = co_await loadShareableContent(false, true);
    if (content.displays.empty())
        co_return std::nullopt;
    co_return content.displays.front();
}

void ShareableContentCache::prewarmShareableContent() {
    [](ShareableContentCache* self) -> QCoro::Task<void> {
        const auto alive = self->m_alive;
        try {
            co_await ScreenRecordingPermission::ensureAuthorized(false);
        } catch (const RecordingError&) {
            co_return; // not granted yet: asking belongs to the click on Record
        }
        if (!*alive)
            co_return;
        try {
            co_await self->loadShareableContent(false, false);
        } catch (const std::exception&) {
            // A warm-up that fails costs nothing; the real load will try again.
        }
    }(this);
}
