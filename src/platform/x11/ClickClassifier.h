#pragma once

#include "core/geometry/Rect.h"
#include "core/metadata/CursorClick.h"

#include <optional>

// Turns button presses into the click vocabulary: a click count from the desktop's
// double-click time and distance, the type from button and count, and the rapid-click filter.
// Times are seconds of a monotonic clock, passed in so the rules can be driven exactly.
// Thread: the cursor monitor's (main).
class ClickClassifier {
public:
    enum class Button { left, right, other };

    struct DoubleClickRules {
        double interval = 0.4; // seconds between presses
        double distance = 4.0; // pixels in either direction
    };

    // A press that passed the filter, or why it did not.
    struct Outcome {
        std::optional<ClickType> type; // absent: the button makes no clicks
        bool filtered = false;         // closer than the threshold to the last accepted click
        double elapsed = 0.0;          // since the last accepted click, when filtered
    };

    ClickClassifier() = default;
    explicit ClickClassifier(DoubleClickRules rules) : m_rules(rules) {}

    void setClickThreshold(double seconds) { m_clickThreshold = seconds; }
    double clickThreshold() const { return m_clickThreshold; }
    std::optional<double> lastClickTime() const { return m_lastClickTime; }

    // How many presses of the same button in quick succession this one makes.
    int countPress(Button button, Point location, double now);
    // The press's type and whether it is filtered; an accepted click renews lastClickTime.
    Outcome classify(Button button, int clickCount, double now);

private:
    DoubleClickRules m_rules;
    double m_clickThreshold = 0.5;
    std::optional<double> m_lastClickTime;

    std::optional<Button> m_lastPressButton;
    double m_lastPressTime = 0.0;
    Point m_lastPressLocation;
    int m_pressCount = 0;
};
