#include "app/VideoTrimmerManager.h"

#include "app/trimmer/TrimmerWindow.h"
#include "core/support/Log.h"

#include <QDir>
#include <QFileInfo>

VideoTrimmerManager& VideoTrimmerManager::shared() {
    static VideoTrimmerManager manager;
    return manager;
}

QString VideoTrimmerManager::canonicalKey(const QString& path) {
    const QFileInfo info(path);
    // A package opens through its screen movie; the movie inside names the package.
    if (info.isDir())
        return QFileInfo(QDir(path).filePath(QStringLiteral(".screen.mov"))).canonicalFilePath();
    return info.canonicalFilePath();
}

TrimmerWindow* VideoTrimmerManager::trimmerFor(const QString& path) const {
    const QString key = canonicalKey(path);
    if (key.isEmpty())
        return nullptr;
    const auto found = m_windows.find(key);
    return found == m_windows.end() ? nullptr : found->second.data();
}

int VideoTrimmerManager::openTrimmerCount() const {
    int count = 0;
    for (const auto& [key, window] : m_windows)
        count += window ? 1 : 0;
    return count;
}

TrimmerWindow* VideoTrimmerManager::openTrimmer(const QString& path, QWidget* dialogParent) {
    // A window already closed waits only for its deletion: it does not count.
    if (TrimmerWindow* open = trimmerFor(path); open && open->isVisible()) {
        logLine("🔍 {} is already open; bringing its trimmer forward",
                QFileInfo(path).fileName().toStdString());
        if (open->isMinimized())
            open->showNormal();
        open->show();
        open->raise();
        open->activateWindow();
        return open;
    }
    TrimmerWindow* window = TrimmerWindow::openOrExplain(path, dialogParent);
    if (!window)
        return nullptr;
    const QString key = canonicalKey(path);
    m_windows[key] = window;
    connect(window, &QObject::destroyed, this, [this, key] {
        const auto found = m_windows.find(key);
        if (found != m_windows.end() && !found->second)
            m_windows.erase(found);
    });
    window->raise();
    window->activateWindow();
    emit trimmerOpened(window);
    return window;
}
