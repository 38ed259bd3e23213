#include "core/metadata/CursorClick.h"

QString rawValue(ClickType type) {
    switch (type) {
    case ClickType::leftClick:
        return QStringLiteral("leftClick");
    case ClickType::rightClick:
        return QStringLiteral("rightClick");
    case ClickType::doubleClick:
        return QStringLiteral("doubleClick");
    }
    return {};
}

std::optional<ClickType> clickTypeFromRawValue(const QString& raw) {
    for (ClickType type : allClickTypes) {
        if (rawValue(type) == raw)
            return type;
    }
    return std::nullopt;
}
