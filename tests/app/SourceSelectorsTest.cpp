#include "TestArtifacts.h"
#include "core/recording/FakeRecordingEngines.h"

#include "app/ApplicationSelector.h"
#include "app/AreaSelector.h"
#include "app/ScreenSelector.h"
#include "app/SettingsWindow.h"
#include "app/WindowSelector.h"
#include "core/settings/RecordingConfigurationBuilder.h"
#include "core/settings/UserDefaults.h"

#include <QApplication>
#include <QComboBox>
#include <QListWidget>
#include <QMouseEvent>
#include <QPushButton>
#include <QScreen>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QToolButton>

#include <gtest/gtest.h>

namespace {
SCDisplay display(uint32_t id, double x) {
    return SCDisplay{id, Rect(x, 0, 1920, 1080), 1.0};
}

SCWindow window(uint32_t id, const QString& title, const QString& app) {
    return SCWindow{id, title, Rect(100, 100, 800, 600),
                    SCRunningApplication{app.toLower(), app, 4242}, true};
}

void sendMouse(QWidget& widget, QEvent::Type type, QPoint at, Qt::MouseButtons buttons) {
    QMouseEvent event(type, QPointF(at), widget.mapToGlobal(QPointF(at)), Qt::LeftButton, buttons,
                      Qt::NoModifier);
    QApplication::sendEvent(&widget, &event);
}
} // namespace

// Two displays: nothing is chosen until a thumbnail is clicked; Record then names that display
// and the time limit picked beside it.
TEST(SourceSelectorsTest, ScreenSelectorChoosesADisplayAndItsTimeLimit) {
    ScreenSelector selector({display(1, 0), display(2, 1920)});
    selector.show();
    EXPECT_EQ(selector.windowTitle(), "Select Screen");
    auto* record = selector.findChild<QPushButton*>("selectorRecordButton");
    ASSERT_NE(record, nullptr);
    EXPECT_FALSE(record->isEnabled());

    std::optional<std::pair<uint32_t, int>> chosen;
    QObject::connect(&selector, &ScreenSelector::displayChosen,
                     [&](const SCDisplay& d, int minutes) {
                         chosen = {d.displayID, minutes};
                     });
    auto* second = selector.findChild<QToolButton*>("screenThumbnail_2");
    ASSERT_NE(second, nullptr);
    second->click();
    auto* limit = selector.findChild<QComboBox*>("autoStopChoice");
    limit->setCurrentIndex(limit->findData(5));
    EXPECT_TRUE(record->isEnabled());
    EXPECT_TRUE(saveWidgetScreenshot(selector, "selector-screen.png"));
    record->click();
    ASSERT_TRUE(chosen.has_value());
    EXPECT_EQ(chosen->first, 2u);
    EXPECT_EQ(chosen->second, 5);
}

// Windows mode takes several windows; window mode one at a time. Our own windows are never
// offered.
TEST(SourceSelectorsTest, WindowSelectorTakesOneOrSeveral) {
    std::vector<SCWindow> windows = {window(11, "Notes", "Editor"), window(12, "Inbox", "Mail"),
                                     window(13, "Docs", "Browser")};
    SCWindow own = window(14, "tavelquiston", "tavelquiston");
    own.owningApplication->processID = QCoreApplication::applicationPid();
    windows.push_back(own);

    WindowSelector several(windows, true);
    several.show();
    EXPECT_EQ(several.findChild<QToolButton*>("windowThumbnail_14"), nullptr);
    several.findChild<QToolButton*>("windowThumbnail_11")->click();
    several.findChild<QToolButton*>("windowThumbnail_13")->click();
    std::vector<uint32_t> chosen;
    QObject::connect(&several, &WindowSelector::windowsChosen, [&](const auto& list) {
        for (const SCWindow& w : list)
            chosen.push_back(w.windowID);
    });
    EXPECT_TRUE(saveWidgetScreenshot(several, "selector-windows.png"));
    several.recordButton()->click();
    EXPECT_EQ(chosen, (std::vector<uint32_t>{11, 13}));

    WindowSelector one(windows, false);
    one.findChild<QToolButton*>("windowThumbnail_11")->click();
    one.findChild<QToolButton*>("windowThumbnail_12")->click();
    ASSERT_EQ(one.chosenWindows().size(), 1u);
    EXPECT_EQ(one.chosenWindows().front().windowID, 12u);
}

TEST(SourceSelectorsTest, ApplicationSelectorTakesTheCheckedApplications) {
    ApplicationSelector selector({{"org.gnome.texteditor", "Text Editor", 10},
                                  {"firefox", "Firefox", 11},
                                  {"xterm", "XTerm", 12}});
    selector.show();
    auto* list = selector.findChild<QListWidget*>("applicationList");
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(list->count(), 3);
    EXPECT_FALSE(selector.recordButton()->isEnabled());
    // Sorted by name: Firefox, Text Editor, XTerm.
    list->item(2)->setCheckState(Qt::Checked);
    list->item(0)->setCheckState(Qt::Checked);
    EXPECT_TRUE(selector.recordButton()->isEnabled());
    EXPECT_TRUE(saveWidgetScreenshot(selector, "selector-application.png"));
    const auto chosen = selector.chosenApplications();
    ASSERT_EQ(chosen.size(), 2u);
    EXPECT_EQ(chosen[0].bundleIdentifier, "firefox");
    EXPECT_EQ(chosen[1].bundleIdentifier, "xterm");
}

// Dragging out a rectangle gives an area of exactly the dragged size, counted from the
// display's bottom left, and the next selector offers it again from "savedArea".
TEST(SourceSelectorsTest, AreaSelectorDragGivesTheAreaAndRemembersIt) {
    QTemporaryDir folder;
    UserDefaults defaults(folder.filePath("settings.ini"));
    const QSize screen = QGuiApplication::primaryScreen()->geometry().size();
    const SCDisplay only{1, Rect(0, 0, screen.width(), screen.height()), 1.0};

    AreaSelector selector({only}, defaults);
    selector.show();
    EXPECT_EQ(selector.windowTitle(), "Select Area");
    std::optional<Rect> chosen;
    QObject::connect(&selector, &AreaSelector::areaChosen,
                     [&](const SCDisplay&, const Rect& rect) { chosen = rect; });
    // Start well outside the offered area so the drag makes a new one.
    sendMouse(selector, QEvent::MouseButtonPress, QPoint(4, 4), Qt::LeftButton);
    sendMouse(selector, QEvent::MouseMove, QPoint(200, 150), Qt::LeftButton);
    sendMouse(selector, QEvent::MouseMove, QPoint(404, 304), Qt::LeftButton);
    sendMouse(selector, QEvent::MouseButtonRelease, QPoint(404, 304), Qt::NoButton);
    EXPECT_EQ(selector.selection(), QRect(4, 4, 400, 300));
    EXPECT_TRUE(saveWidgetScreenshot(selector, "selector-area.png"));
    selector.findChild<QPushButton*>("areaRecordButton")->click();
    ASSERT_TRUE(chosen.has_value());
    EXPECT_EQ(chosen->size.width, 400);
    EXPECT_EQ(chosen->size.height, 300);
    EXPECT_EQ(chosen->origin.x, 4);
    EXPECT_EQ(chosen->origin.y, screen.height() - 4 - 300);

    AreaSelector again({only}, defaults);
    EXPECT_EQ(again.selection(), QRect(4, 4, 400, 300));
}

// What the settings window changes is stored at once, and a recording built from the stored
// defaults (as every selector and the command line do) carries it.
TEST(SourceSelectorsTest, SettingsAreStoredForTheNextRecording) {
    QTemporaryDir folder;
    UserDefaults defaults(folder.filePath("settings.ini"));
    CallLog log;
    FakeRecordingEngineFactory engines(log);
    engines.content.applications = {{"xterm", "XTerm", 12}};
    SettingsWindow settings(defaults, engines);
    settings.show();
    auto* format = settings.findChild<QComboBox*>("setting_outputFormat");
    auto* rate = settings.findChild<QComboBox*>("setting_frameRate");
    auto* countdown = settings.findChild<QSpinBox*>("setting_countdown");
    auto* hidden = settings.findChild<QListWidget*>("setting_hiddenApps");
    ASSERT_TRUE(format && rate && countdown && hidden);
    format->setCurrentIndex(format->findData("mp4"));
    rate->setCurrentIndex(rate->findData(30));
    countdown->setValue(3);
    ASSERT_GE(hidden->count(), 1);
    hidden->item(0)->setCheckState(Qt::Checked);
    EXPECT_TRUE(saveWidgetScreenshot(settings, "settings.png"));
    defaults.sync();

    const UserDefaults reread(folder.filePath("settings.ini"));
    const RecordingConfiguration configuration = RecordingConfigurationBuilder(reread).build(
        RecordingMode::systemAudio(), RecordingConfigurationBuilder::Selector::area);
    EXPECT_EQ(configuration.outputFormat, OutputFormat::mp4);
    EXPECT_EQ(configuration.frameRate, 30);
    EXPECT_EQ(configuration.countdown, 3);
    EXPECT_EQ(reread.stringValue("hiddenApps", QString()),
              R"([{"bundleID":"xterm","name":"XTerm"}])");
}
