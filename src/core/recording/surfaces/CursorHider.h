#pragma once

// Hides and shows the system pointer on the whole desktop. Thread: main.
class CursorHider {
public:
    virtual ~CursorHider() = default;
    virtual void hideCursor() = 0;
    virtual void showCursor() = 0;
};
