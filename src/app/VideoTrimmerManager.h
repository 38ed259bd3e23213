#pragma once

#include <QObject>
#include <QPointer>
#include <QString>

#include <map>

class QWidget;
class TrimmerWindow;

// Keeps one trimmer per recording: opening a file that already has a window brings that window
// forward instead of making a second one. A recording is known by its canonical path, so a
// relative path, a link, or a package and its screen movie all find the same window. Windows
// close and delete themselves; the manager only forgets them.
//
// Main thread.
class VideoTrimmerManager final : public QObject {
    Q_OBJECT
public:
    static VideoTrimmerManager& shared();

    // The window on `path`, opened or brought forward; nothing when the file cannot be opened,
    // which a dialog over `dialogParent` explains.
    TrimmerWindow* openTrimmer(const QString& path, QWidget* dialogParent = nullptr);
    TrimmerWindow* trimmerFor(const QString& path) const;
    int openTrimmerCount() const;

    // The name under which a recording's window is kept; empty for a path that does not exist.
    static QString canonicalKey(const QString& path);

signals:
    void trimmerOpened(TrimmerWindow* window);

private:
    std::map<QString, QPointer<TrimmerWindow>> m_windows;
};
