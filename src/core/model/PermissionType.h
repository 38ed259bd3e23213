#pragma once

#include <QString>

enum class PermissionType { screenRecording, microphone, camera };

QString displayName(PermissionType type);
// The name of the privacy page that grants the permission; the same words as the display name.
QString settingsPath(PermissionType type);
