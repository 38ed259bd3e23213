#pragma once

#include <QColor>
#include <QIcon>
#include <QString>

// The program's icons: one outline set ("display", "area", "window", "windows", "application",
// "audio", "device", "camera", "microphone", "speaker", "speaker-off", "gear", "close", "pause",
// "stop"), tinted from the palette and drawn from vectors at any scale.
namespace AppIcons {
QIcon icon(const QString& name, const QColor& color);
// The program's own mark, for windows and the tray between recordings.
QIcon applicationIcon();
// The tray's icon while recording: a red dot, grey while paused.
QIcon recordingIcon(bool paused);
} // namespace AppIcons
