#pragma once

#include "core/geometry/Rect.h"

#include <QString>
#include <QUuid>

#include <array>
#include <optional>

// Raw values are the case names.
enum class ClickType { leftClick, rightClick, doubleClick };

inline constexpr std::array allClickTypes{ClickType::leftClick, ClickType::rightClick,
                                          ClickType::doubleClick};

QString rawValue(ClickType type);
std::optional<ClickType> clickTypeFromRawValue(const QString& raw);

// One mouse click. `position` is normalised to the captured frame, origin top-left.
struct CursorClick {
    QUuid id = QUuid::createUuid();
    double timestamp = 0.0;
    Point position{};
    ClickType clickType = ClickType::leftClick;
    bool operator==(const CursorClick&) const = default;
};
