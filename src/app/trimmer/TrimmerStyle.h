#pragma once

#include <QColor>
#include <QString>

// The trimmer's palette and measures, from the application's dark theme.
namespace trimmer {
inline const QColor background{0x1c, 0x1d, 0x21};
inline const QColor raised{0x26, 0x27, 0x2d};
inline const QColor hairline{0x34, 0x35, 0x3c};
inline const QColor text{0xec, 0xed, 0xf0};
inline const QColor secondaryText{0x9a, 0x9c, 0xa5};
inline const QColor accent{0x5b, 0x8c, 0xff};
inline const QColor destructive{0xff, 0x4d, 0x5e};
constexpr int grid = 8;
constexpr int controlRadius = 6;

// The window's one style sheet.
QString styleSheet();
} // namespace trimmer
