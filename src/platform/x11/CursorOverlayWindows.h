#pragma once

#include "core/geometry/Rect.h"
#include "core/metadata/CodableColor.h"
#include "core/metadata/CursorClick.h"
#include "core/model/CursorStyle.h"

#include <QElapsedTimer>
#include <QImage>
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
// that follows the pointer ("Mouse Pointer"), a magnifier centred on the pointer that shows
// the screen around it three times as large ("Screen Magnifier"), and a ripple at each click
// ("Ripple Effect").
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

    // The magnifier: `crop` (magnifierCrop pixels of the screen around the pointer) drawn
    // magnifierZoom times as large in a window centred on (x, y), below the pointer window.
    void showMagnifier(int x, int y, const QImage& crop);
    void hideMagnifier();

    bool isPointerVisible() const;
    bool isMagnifierVisible() const;

    static constexpr int magnifierZoom = 3;
    static constexpr int magnifierCropWidth = 134;
    static constexpr int magnifierCropHeight = 116;

private:
    class PointerWindow;
    class RippleWindow;
    class MagnifierWindow;
    std::unique_ptr<MagnifierWindow> m_magnifier; // made first, so it starts out lowest
    std::unique_ptr<PointerWindow> m_pointer;
    std::unique_ptr<RippleWindow> m_ripple;
};
