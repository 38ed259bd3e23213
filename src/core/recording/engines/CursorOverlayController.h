#pragma once

#include "core/geometry/Rect.h"
#include "core/metadata/CodableColor.h"
#include "core/model/CursorStyle.h"

#include <functional>
#include <optional>

// Left, right, double and the like; the metadata format defines the cases.
enum class ClickType;

// Watches the pointer for the whole desktop and draws the highlight and magnifier.
// Thread: main; handlers are called on the main thread with global points, origin bottom left.
class CursorOverlayController {
public:
    using ClickHandler = std::function<void(Point location, ClickType type)>;
    using MoveHandler = std::function<void(Point location)>;

    virtual ~CursorOverlayController() = default;

    virtual void setClickThreshold(double seconds) = 0;
    virtual void setClickHandler(ClickHandler handler) = 0;
    virtual void setCursorMoveHandler(MoveHandler handler) = 0;
    virtual void configureCustomCursor(std::optional<CursorStyle> style, double size, bool enabled,
                                       bool scaleAnimation, bool rippleEffect,
                                       std::optional<CodableColor> rippleColor) = 0;
    virtual void setHighlightEnabled(bool enabled) = 0;
    virtual bool isHighlightEnabled() const = 0;
    virtual void setMagnifierEnabled(bool enabled) = 0;
    virtual bool isMagnifierEnabled() const = 0;
    // Where the pointer is now, global points with the origin at the bottom left; absent when
    // the desktop cannot tell.
    virtual std::optional<Point> mouseLocation() const = 0;
    virtual void startMonitoring() = 0;
    virtual void stopMonitoring() = 0;
};
