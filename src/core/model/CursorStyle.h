#pragma once

#include <QString>

#include <array>
#include <optional>

// How the drawn cursor of a recording looks. Raw values are the case names.
enum class CursorStyle { circle, arrow, pointer, custom };

inline constexpr std::array allCursorStyles{CursorStyle::circle, CursorStyle::arrow,
                                            CursorStyle::pointer, CursorStyle::custom};

QString rawValue(CursorStyle style);
QString displayName(CursorStyle style);
std::optional<CursorStyle> cursorStyleFromRawValue(const QString& raw);
