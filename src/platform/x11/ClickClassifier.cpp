#include "platform/x11/ClickClassifier.h"

#include <cmath>

int ClickClassifier::countPress(Button button, Point location, double now) {
    const bool continues = m_lastPressButton == button &&
                           now - m_lastPressTime <= m_rules.interval &&
                           std::abs(location.x - m_lastPressLocation.x) <= m_rules.distance &&
                           std::abs(location.y - m_lastPressLocation.y) <= m_rules.distance;
    m_pressCount = continues ? m_pressCount + 1 : 1;
    m_lastPressButton = button;
    m_lastPressTime = now;
    m_lastPressLocation = location;
    return m_pressCount;
}

ClickClassifier::Outcome ClickClassifier::classify(Button button, int clickCount, double now) {
    Outcome outcome;
    switch (button) {
    case Button::left:
        // Only the second press of a series is a double click; a third is a plain click again.
        outcome.type = clickCount == 2 ? ClickType::doubleClick : ClickType::leftClick;
        break;
    case Button::right:
        outcome.type = ClickType::rightClick;
        break;
    case Button::other:
        return outcome;
    }
    if (m_lastClickTime && now - *m_lastClickTime < m_clickThreshold) {
        // A filtered click does not restart the interval.
        outcome.filtered = true;
        outcome.elapsed = now - *m_lastClickTime;
        return outcome;
    }
    m_lastClickTime = now;
    return outcome;
}
