#pragma once

#include "core/recording/engines/CursorOverlayController.h"

// The pointer monitor where the desktop offers none: the recording goes on without highlight,
// magnifier or click events, and its metadata holds no clicks. Thread: main.
class NullCursorOverlayController final : public CursorOverlayController {
public:
    void setClickThreshold(double) override {}
    void setClickHandler(ClickHandler) override {}
    void setCursorMoveHandler(MoveHandler) override {}
    void configureCustomCursor(std::optional<CursorStyle>, double, bool, bool, bool,
                               std::optional<CodableColor>) override {}
    void setHighlightEnabled(bool) override {}
    bool isHighlightEnabled() const override { return false; }
    void setMagnifierEnabled(bool) override {}
    bool isMagnifierEnabled() const override { return false; }
    std::optional<Point> mouseLocation() const override { return std::nullopt; }
    void startMonitoring() override {}
    void stopMonitoring() override {}
};
