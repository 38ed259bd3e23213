#include "platform/x11/ClickClassifier.h"

#include <gtest/gtest.h>

using Button = ClickClassifier::Button;

// With the threshold of 0.5 s, clicks at 0.0, 0.4 and 0.6 s: the one at 0.4 is dropped and
// does not restart the interval, so 0.6 passes; exactly the threshold passes too.
TEST(ClickClassifierTest, RapidClicksAreFilteredFromTheLastAcceptedOne) {
    ClickClassifier classifier;
    EXPECT_FALSE(classifier.classify(Button::left, 1, 0.0).filtered);
    const auto dropped = classifier.classify(Button::left, 1, 0.4);
    EXPECT_TRUE(dropped.filtered);
    EXPECT_NEAR(dropped.elapsed, 0.4, 1e-12);
    EXPECT_FALSE(classifier.classify(Button::right, 1, 0.6).filtered);
    EXPECT_EQ(classifier.lastClickTime(), 0.6);
    EXPECT_FALSE(classifier.classify(Button::left, 1, 1.1).filtered);
}

// Presses of one button close in time and place count up; another button, a later press or
// one further away start again. Only the second left press is a double click.
TEST(ClickClassifierTest, CountsMakeTheClickVocabulary) {
    ClickClassifier classifier(ClickClassifier::DoubleClickRules{0.4, 4.0});
    classifier.setClickThreshold(0.0);
    EXPECT_EQ(classifier.countPress(Button::left, {10, 10}, 0.0), 1);
    EXPECT_EQ(classifier.countPress(Button::left, {12, 13}, 0.3), 2);
    EXPECT_EQ(classifier.countPress(Button::left, {12, 13}, 0.6), 3);
    EXPECT_EQ(classifier.countPress(Button::left, {12, 13}, 1.1), 1);
    EXPECT_EQ(classifier.countPress(Button::left, {20, 13}, 1.2), 1);
    EXPECT_EQ(classifier.countPress(Button::right, {20, 13}, 1.3), 1);

    EXPECT_EQ(classifier.classify(Button::left, 1, 0).type, ClickType::leftClick);
    EXPECT_EQ(classifier.classify(Button::left, 2, 0).type, ClickType::doubleClick);
    EXPECT_EQ(classifier.classify(Button::left, 3, 0).type, ClickType::leftClick);
    EXPECT_EQ(classifier.classify(Button::right, 2, 0).type, ClickType::rightClick);
    EXPECT_FALSE(classifier.classify(Button::other, 1, 0).type);
}
