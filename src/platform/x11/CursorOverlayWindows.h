#pragma once

#include "core/geometry/Rect.h"
#include "core/metadata/CodableColor.h"
#include "core/metadata/CursorClick.h"
#include "core/model/CursorStyle.h"

#include <QElapsedTimer>
#include <QRasterWindow>
#include <QTimer>

#include <memory>
#include <optional>

// What the pointer window shows: the highlight, or a drawn cursor of a style and size.
struct PointerLook {
    bool highlight = false;
    std::optional<CursorStyle> customStyle; // drawn instead of the highlight when present
    double customSize = 24.0;
    bool scaleAnimation = true;
};

// The live overlays that appear in the captured picture: a pointer highlight or drawn cursor
// that follows the pointer ("Mouse Pointer"), and a ripple at each click ("Ripple Effect").
// Frameless, click-through, always-on-top tool windows with a clear background; without a
// compositing manager the shapes are cut out with the X shape extension instead, so nothing
// but the shape covers the screen.
//
// Positions are root-window pixels with the origin at the top left. Thread: main; needs a
// QGuiApplication.
class CursorOverlayWindows {
public:
    CursorOverlayWindows();
    ~CursorOverlayWindows();
    CursorOverlayWindows(const CursorOverlayWindows&) = delete;
    CursorOverlayWindows& operator=(const CursorOverlayWindows&) = delete;

    // Whether a GUI runs in this process, so overlays can be shown at all.
    static bool isAvailable();

    void setLook(const PointerLook& look);
    // Places the pointer window centred on the pointer and shows it, or hides it when neither
    // the highlight nor a drawn cursor is wanted.
    void movePointer(int x, int y);
    void hidePointer();
    // The click animation: the drawn cursor shrinks for 0.3 s; with a colour, a ripple of
    // 200 by 200 pixels spreads around the click for 0.6 s.
    void click(int x, int y, ClickType type, std::optional<CodableColor> rippleColor);
    void hideAll();

    bool isPointerVisible() const;

private:
    class PointerWindow;
    class RippleWindow;
    std::unique_ptr<PointerWindow> m_pointer;
    std::unique_ptr<RippleWindow> m_ripple;
};
