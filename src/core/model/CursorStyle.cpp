#include "core/model/CursorStyle.h"

QString rawValue(CursorStyle style) {
    switch (style) {
    case CursorStyle::circle:
        return QStringLiteral("circle");
    case CursorStyle::arrow:
        return QStringLiteral("arrow");
    case CursorStyle::pointer:
        return QStringLiteral("pointer");
    case CursorStyle::custom:
        return QStringLiteral("custom");
    }
    return {};
}

QString displayName(CursorStyle style) {
    const QString raw = rawValue(style);
    return raw.left(1).toUpper() + raw.mid(1);
}

std::optional<CursorStyle> cursorStyleFromRawValue(const QString& raw) {
    for (CursorStyle style : allCursorStyles) {
        if (rawValue(style) == raw)
            return style;
    }
    return std::nullopt;
}
