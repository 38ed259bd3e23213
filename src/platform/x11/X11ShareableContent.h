#pragma once

#include "core/model/SCShareableContent.h"

#include <string>

class X11Connection;

// What the X server and its window manager offer for capture: RandR monitors (the primary one
// first), the managed windows from EWMH in stacking order (bottom first), and the applications
// that own them. Frames are in global points with the origin at the bottom left; X11 pixels
// are points here (pixel scale 1), since X has no separate logical size.
namespace X11ShareableContent {

SCShareableContent fetch(const X11Connection& connection);

// The application a window belongs to: its desktop-file id when the toolkit names it
// (without ".desktop"), otherwise the lower-case class of WM_CLASS; the program's own windows
// carry its bundle identifier. `wmClass` is the raw property, "instance\0class\0".
SCRunningApplication applicationFor(const std::string& wmClass, const std::string& desktopFileID,
                                    int64_t processID);

} // namespace X11ShareableContent
