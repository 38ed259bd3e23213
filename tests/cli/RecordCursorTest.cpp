#include "cli/RecordCommand.h"

#include "media/MovieProbe.h"
#include "support/ChildProcess.h"
#include "support/CliRun.h"
#include "support/EventLoop.h"
#include "support/ScreenAnimation.h"
#include "support/XvfbSession.h"

#include <QJsonArray>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <functional>
#include <poll.h>
#include <thread>

using namespace std::chrono_literals;

namespace {

// One `record` run at 30 frames a second with click-to-zoom on (which turns the pointer
// monitor on) and the smart decision off, so the picture is never zoomed; clicks pass a 0.1 s
// threshold. A plain run has only the options it is given.
struct CursorRecording : RecordRun {
    explicit CursorRecording(const std::vector<std::string>& extra, Environment environment = {},
                             bool plain = false)
        : RecordRun(joined(plain ? std::vector<std::string>{"--fps", "30"}
                                 : std::vector<std::string>{"--fps", "30", "--click-to-zoom",
                                                            "--smart-zoom", "off",
                                                            "--click-threshold", "0.1"},
                           extra),
                    std::move(environment)) {}
};

struct Click {
    QString type;
    double x = 0, y = 0, t = 0;
};

std::vector<Click> clicksOf(const QJsonObject& metadata) {
    std::vector<Click> clicks;
    for (const QJsonValue& value : metadata.value("cursorClicks").toArray()) {
        const QJsonObject click = value.toObject();
        const QJsonArray at = click.value("position").toArray();
        clicks.push_back({click.value("clickType").toString(), at[0].toDouble(), at[1].toDouble(),
                          click.value("timestamp").toDouble()});
    }
    return clicks;
}

XvfbSession::Options screen() {
    XvfbSession::Options options;
    options.width = 640;
    options.height = 480;
    return options;
}

bool xdotool(const std::vector<std::string>& arguments) {
    std::vector<std::string> argv = {"xdotool"};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    return runCommand(argv, 5s) == 0;
}

// The widest run of red in any row of a 4:2:0 picture, in pixels (red has a high Cr).
int widestRed(const AVFrame& picture) {
    int widest = 0;
    for (int y = 0; y < picture.height / 2; ++y) {
        int run = 0;
        for (int x = 0; x < picture.width / 2; ++x) {
            run = picture.data[2][y * picture.linesize[2] + x] > 190 ? run + 1 : 0;
            widest = std::max(widest, run * 2);
        }
    }
    return widest;
}

// The middle of the red in a 4:2:0 picture, normalised with the origin at the top left.
std::pair<double, double> redCentre(const AVFrame& picture) {
    double sumX = 0, sumY = 0;
    int count = 0;
    for (int y = 0; y < picture.height / 2; ++y)
        for (int x = 0; x < picture.width / 2; ++x)
            if (picture.data[2][y * picture.linesize[2] + x] > 190) {
                sumX += 2 * x + 1;
                sumY += 2 * y + 1;
                ++count;
            }
    if (count == 0)
        return {-1, -1};
    return {sumX / count / picture.width, sumY / count / picture.height};
}

// A grey window with a red square of 20 pixels in its middle and a small corner that changes
// colour every 20 ms, so that window capture always has a new picture.
class PatternWindow {
public:
    PatternWindow(int x, int y) : m_connection(xcb_connect(nullptr, nullptr)) {
        xcb_connection_t* c = m_connection;
        xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
        m_window = makeWindow(screen->root, x, y, 320, 240, 0x808080);
        const std::string title = "pattern";
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, m_window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING,
                            8, uint32_t(title.size()), title.data());
        m_square = makeWindow(m_window, 150, 110, 20, 20, 0xff0000);
        m_blinker = makeWindow(m_window, 0, 0, 8, 8, 0x000000);
        xcb_map_subwindows(c, m_window);
        xcb_map_window(c, m_window);
        xcb_flush(c);
        m_thread = std::thread([this] {
            for (uint32_t i = 0; !m_stop; ++i) {
                const uint32_t colour = i % 2 ? 0x000000 : 0xffffff;
                xcb_change_window_attributes(m_connection, m_blinker, XCB_CW_BACK_PIXEL, &colour);
                xcb_clear_area(m_connection, 0, m_blinker, 0, 0, 0, 0);
                xcb_flush(m_connection);
                std::this_thread::sleep_for(20ms);
            }
        });
    }
    ~PatternWindow() {
        m_stop = true;
        m_thread.join();
        xcb_disconnect(m_connection);
    }
    xcb_window_t id() const { return m_window; }
    xcb_window_t square() const { return m_square; }
    void moveTo(int x, int y) {
        const uint32_t values[] = {uint32_t(x), uint32_t(y)};
        xcb_configure_window(m_connection, m_window, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y,
                             values);
        xcb_flush(m_connection);
    }

private:
    xcb_window_t makeWindow(xcb_window_t parent, int x, int y, int w, int h, uint32_t rgb) {
        const xcb_window_t window = xcb_generate_id(m_connection);
        xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, window, parent, int16_t(x),
                          int16_t(y), uint16_t(w), uint16_t(h), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                          XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXEL, &rgb);
        return window;
    }

    xcb_connection_t* m_connection;
    xcb_window_t m_window = 0;
    xcb_window_t m_square = 0;
    xcb_window_t m_blinker = 0;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// A window over the whole screen that turns from blue to green and back at each press on it,
// at once (it waits on its socket, not on a timer), with a small corner that changes colour
// every 20 ms so that frames keep coming.
class ClickTarget {
public:
    ClickTarget() : m_connection(xcb_connect(nullptr, nullptr)) {
        xcb_connection_t* c = m_connection;
        xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
        m_window = xcb_generate_id(c);
        const uint32_t values[] = {blue, 1, XCB_EVENT_MASK_BUTTON_PRESS};
        xcb_create_window(c, XCB_COPY_FROM_PARENT, m_window, screen->root, 0, 0,
                          screen->width_in_pixels, screen->height_in_pixels, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
        m_blinker = xcb_generate_id(c);
        const uint32_t black = 0;
        xcb_create_window(c, XCB_COPY_FROM_PARENT, m_blinker, m_window, 0, 0, 8, 8, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXEL,
                          &black);
        xcb_map_subwindows(c, m_window);
        xcb_map_window(c, m_window);
        xcb_flush(c);
        m_thread = std::thread([this] { run(); });
    }
    ~ClickTarget() {
        m_stop = true;
        m_thread.join();
        xcb_disconnect(m_connection);
    }
    int presses() const { return m_presses; }

    static constexpr uint32_t blue = 0x0000ff;
    static constexpr uint32_t green = 0x00ff00;

private:
    void run() {
        xcb_connection_t* c = m_connection;
        auto lastBlink = std::chrono::steady_clock::now();
        for (uint32_t blink = 0; !m_stop;) {
            pollfd socket{xcb_get_file_descriptor(c), POLLIN, 0};
            ::poll(&socket, 1, 5);
            while (xcb_generic_event_t* event = xcb_poll_for_event(c)) {
                if ((event->response_type & 0x7f) == XCB_BUTTON_PRESS) {
                    const uint32_t colour = ++m_presses % 2 ? green : blue;
                    xcb_change_window_attributes(c, m_window, XCB_CW_BACK_PIXEL, &colour);
                    xcb_clear_area(c, 0, m_window, 0, 0, 0, 0);
                    xcb_flush(c);
                }
                std::free(event);
            }
            if (std::chrono::steady_clock::now() - lastBlink >= 20ms) {
                lastBlink = std::chrono::steady_clock::now();
                const uint32_t colour = ++blink % 2 ? 0xffffff : 0x000000;
                xcb_change_window_attributes(c, m_blinker, XCB_CW_BACK_PIXEL, &colour);
                xcb_clear_area(c, 0, m_blinker, 0, 0, 0, 0);
                xcb_flush(c);
            }
        }
    }

    xcb_connection_t* m_connection;
    xcb_window_t m_window = 0;
    xcb_window_t m_blinker = 0;
    std::atomic<int> m_presses{0};
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace

// Clicks through XTEST during a display recording land with their type and their top-left
// position normalised to the display; a double click adds one click of count 2; two presses
// closer than the threshold keep only the first; positions are sampled about 30 times a second
// at rest and follow a path the pointer takes.
TEST(RecordCursorTest, DisplayRecordingCarriesClicksAndPositions) {
    START_XVFB(session, screen());
    REQUIRE_TOOL("xdotool");
    ScreenAnimation animation; // frames keep the video's time line moving
    ASSERT_TRUE(session.moveTo(10, 10));

    CursorRecording recording({"--duration", "5"});
    ASSERT_TRUE(recording.waitForFirstFrame()) << recording.errors();
    // A second at rest first, for the sampling rate.
    std::this_thread::sleep_for(1100ms);
    ASSERT_TRUE(session.moveTo(160, 120));
    ASSERT_TRUE(session.click(1));
    std::this_thread::sleep_for(300ms);
    ASSERT_TRUE(session.moveTo(480, 360));
    ASSERT_TRUE(xdotool({"click", "--repeat", "2", "--delay", "150", "1"}));
    std::this_thread::sleep_for(300ms);
    ASSERT_TRUE(session.moveTo(320, 240));
    ASSERT_TRUE(xdotool({"click", "--repeat", "2", "--delay", "30", "3"}));
    std::this_thread::sleep_for(300ms);
    // A path across the screen at one height.
    for (int x = 0; x <= 600; x += 40) {
        ASSERT_TRUE(session.moveTo(x, 60));
        std::this_thread::sleep_for(40ms);
    }
    ASSERT_EQ(recording.waitForExit(20s), 0) << recording.errors();

    const QJsonObject metadata = recording.metadata();
    const std::vector<Click> clicks = clicksOf(metadata);
    ASSERT_EQ(clicks.size(), 4u) << recording.output();
    // --smart-zoom off: clicks are recorded, none is judged to deserve a zoom.
    EXPECT_TRUE(metadata.value("zoomEvents").toArray().isEmpty());
    const double pixel = 1.0 / 480;
    EXPECT_EQ(clicks[0].type, "leftClick");
    EXPECT_NEAR(clicks[0].x, 160.0 / 640, pixel);
    EXPECT_NEAR(clicks[0].y, 120.0 / 480, pixel);
    EXPECT_EQ(clicks[1].type, "leftClick");
    EXPECT_EQ(clicks[2].type, "doubleClick");
    EXPECT_NEAR(clicks[2].x, 480.0 / 640, pixel);
    EXPECT_NEAR(clicks[2].y, 360.0 / 480, pixel);
    EXPECT_NEAR(clicks[2].t - clicks[1].t, 0.15, 0.1);
    EXPECT_EQ(clicks[3].type, "rightClick");
    EXPECT_NEAR(clicks[3].x, 0.5, pixel);
    const double duration = metadata.value("duration").toDouble();
    for (size_t i = 0; i < clicks.size(); ++i) {
        EXPECT_GT(clicks[i].t, 1.0);
        EXPECT_LT(clicks[i].t, duration);
        if (i > 0) {
            EXPECT_GT(clicks[i].t, clicks[i - 1].t);
        }
    }

    std::vector<std::pair<double, QJsonArray>> positions;
    for (const QJsonValue& value : metadata.value("cursorPositions").toArray())
        positions.emplace_back(value.toObject().value("timestamp").toDouble(),
                               value.toObject().value("position").toArray());
    ASSERT_FALSE(positions.empty());
    // At rest between 0.2 s and 1.0 s only the timer samples.
    const auto atRest = std::count_if(positions.begin(), positions.end(), [](const auto& p) {
        return p.first >= 0.2 && p.first < 1.0;
    });
    EXPECT_NEAR(double(atRest) / 0.8, 30.0, 3.0);
    // The path: samples at the path's height move right and span most of it.
    std::vector<double> pathX;
    for (const auto& [time, at] : positions)
        if (time > clicks.back().t && std::abs(at[1].toDouble() - 60.0 / 480) < pixel)
            pathX.push_back(at[0].toDouble());
    ASSERT_GT(pathX.size(), 10u);
    EXPECT_TRUE(std::is_sorted(pathX.begin(), pathX.end()));
    EXPECT_LT(pathX.front(), 0.1);
    EXPECT_GT(pathX.back(), 0.9);
}

// An area recording normalises clicks to the area; a click outside it and a click while
// paused are not recorded.
TEST(RecordCursorTest, AreaRecordingKeepsItsOwnClicks) {
    START_XVFB(session, screen());
    REQUIRE_TOOL("xdotool");
    ScreenAnimation animation;

    CursorRecording recording({"--area", "100,100,200,100", "--duration", "3"});
    ASSERT_TRUE(recording.waitForFirstFrame()) << recording.errors();
    ASSERT_TRUE(session.moveTo(150, 125));
    ASSERT_TRUE(session.click(1));
    std::this_thread::sleep_for(200ms);
    ASSERT_TRUE(session.moveTo(400, 400));
    ASSERT_TRUE(session.click(1));
    std::this_thread::sleep_for(200ms);
    recording.signal(SIGUSR1);
    ASSERT_TRUE(recording.waitForErrors("Paused"));
    ASSERT_TRUE(session.moveTo(250, 175));
    ASSERT_TRUE(session.click(3));
    std::this_thread::sleep_for(200ms);
    recording.signal(SIGUSR1);
    ASSERT_TRUE(recording.waitForErrors("Resumed"));
    ASSERT_TRUE(session.moveTo(290, 195));
    ASSERT_TRUE(session.click(1));
    ASSERT_EQ(recording.waitForExit(20s), 0) << recording.errors();

    const QJsonObject metadata = recording.metadata();
    const std::vector<Click> clicks = clicksOf(metadata);
    ASSERT_EQ(clicks.size(), 2u) << recording.output();
    // Times stay on the video's time line across the pause: in order, within the file.
    const double duration = metadata.value("duration").toDouble();
    EXPECT_LT(clicks[1].t, duration);
    double previous = -1;
    for (const QJsonValue& value : metadata.value("cursorPositions").toArray()) {
        const double t = value.toObject().value("timestamp").toDouble();
        EXPECT_GE(t, previous);
        EXPECT_LE(t, duration + 0.1); // the file's last frames may run a little past it
        previous = t;
    }
    EXPECT_NEAR(clicks[0].x, 50.0 / 200, 1.0 / 200);
    EXPECT_NEAR(clicks[0].y, 25.0 / 100, 1.0 / 100);
    EXPECT_EQ(clicks[1].type, "leftClick");
    EXPECT_NEAR(clicks[1].x, 190.0 / 200, 1.0 / 200);
    EXPECT_NEAR(clicks[1].y, 95.0 / 100, 1.0 / 100);
}

// Click-to-zoom in a window recording is burnt into the file at the configured level: after a
// click on the red square, the smart decision accepts it (the pointer rests) and the frames
// show the square magnified by --zoom-level, centred where the click was; after the zoom's
// duration they are back to normal. The click's window position is normalised to the window.
TEST(RecordCursorTest, WindowRecordingBurnsInTheClickZoom) {
    XvfbSession::Options options = screen();
    options.windowManager = true;
    START_XVFB(session, options);
    REQUIRE_TOOL("xdotool");
    PatternWindow window(100, 100);
    std::this_thread::sleep_for(700ms);

    CursorRecording recording({"--mode", "window", "--window", std::to_string(window.id()),
                               "--click-to-zoom", "--zoom-level", "2.75", "--duration", "4"},
                              {}, true);
    ASSERT_TRUE(recording.waitForOutput("MediaWriter session started")) << recording.errors();
    ASSERT_TRUE(xdotool({"mousemove", "--window", std::to_string(window.square()), "10", "10"}));
    // That put the pointer there without moving it (a warp, which no device reports); a move
    // there and back is what a hand makes, and what the zoom follows.
    ASSERT_TRUE(session.moveBy(1, 0));
    ASSERT_TRUE(session.moveBy(-1, 0));
    std::this_thread::sleep_for(500ms);
    ASSERT_TRUE(session.click(1));
    ASSERT_EQ(recording.waitForExit(20s), 0) << recording.errors();

    const QJsonObject metadata = recording.metadata();
    const std::vector<Click> clicks = clicksOf(metadata);
    ASSERT_EQ(clicks.size(), 1u);
    const QJsonArray events = metadata.value("zoomEvents").toArray();
    ASSERT_EQ(events.size(), 1) << recording.output();
    const double zoomDuration = events[0].toObject().value("duration").toDouble();
    EXPECT_EQ(events[0].toObject().value("level").toDouble(), 2.75);
    const double clicked = clicks[0].t;

    int before = 0, zoomed = 0, after = 0;
    int framesZoomed = 0, framesAfter = 0;
    // In: the decision 0.24 s after the click, then 0.45 s of easing. Out: the zoom holds for
    // its duration and 0.55 s more, then eases out over 0.45 s.
    const double zoomedFrom = clicked + 0.24 + 0.45 + 0.1;
    const double zoomedUntil = clicked + 0.24 + zoomDuration + 0.55 - 0.05;
    const double normalFrom = clicked + 0.24 + zoomDuration + 0.55 + 0.45 + 0.15;
    std::optional<std::pair<double, double>> squareAt; // normalised, top left, before the click
    std::pair<double, double> zoomedAt{0, 0};          // summed over the zoomed frames
    forEachPicture(recording.moviePath(), [&](const AVFrame& picture, double t) {
        const int red = widestRed(picture);
        if (t < clicked && !squareAt)
            squareAt = redCentre(picture);
        if (t < clicked)
            before = std::max(before, red);
        else if (t >= zoomedFrom && t <= zoomedUntil) {
            zoomed = framesZoomed++ ? std::min(zoomed, red) : red;
            const auto [x, y] = redCentre(picture);
            zoomedAt.first += x;
            zoomedAt.second += y;
        } else if (t >= normalFrom) {
            after = std::max(after, red);
            ++framesAfter;
        }
    });
    // The click lies where the square is in the picture, decorations and all.
    ASSERT_TRUE(squareAt);
    EXPECT_NEAR(clicks[0].x, squareAt->first, 2.0 / 320);
    EXPECT_NEAR(clicks[0].y, squareAt->second, 2.0 / 240);
    ASSERT_GT(framesZoomed, 5);
    ASSERT_GT(framesAfter, 5);
    EXPECT_NEAR(before, 20, 2);
    EXPECT_NEAR(zoomed, 20 * 2.75, 4);
    EXPECT_NEAR(after, 20, 2);
    // The crop is centred on the click, which then lies in the middle of the picture.
    EXPECT_NEAR(zoomedAt.first / framesZoomed, 0.5, 2.0 / 320);
    EXPECT_NEAR(zoomedAt.second / framesZoomed, 0.5, 2.0 / 240);
}

// With --highlight the pointer highlight is drawn in a window of its own that the display
// recording keeps: it shows in the frames where the pointer is, and follows it.
TEST(RecordCursorTest, TheHighlightFollowsThePointerInTheFrames) {
    START_XVFB(session, screen());
    REQUIRE_TOOL("xdotool");
    ASSERT_TRUE(session.moveTo(320, 240));

    CursorRecording recording({"--highlight", "--duration", "2"}, {}, true);
    ASSERT_TRUE(recording.waitForFirstFrame()) << recording.errors();
    std::this_thread::sleep_for(300ms);
    ASSERT_TRUE(session.moveTo(200, 150));
    ASSERT_EQ(recording.waitForExit(20s), 0) << recording.errors();
    const std::string movie = recording.moviePath();
    ASSERT_FALSE(movie.empty()) << recording.output();
    // The highlight is yellow: a low Cb where it is, neutral grey chroma elsewhere.
    // The monitor stops (and its windows go) before capture does, so the very last frame may
    // be without it.
    int atStart = 0, followed = 0, both = 0;
    forEachPicture(movie, [&](const AVFrame& picture, double) {
        const bool start = chromaAt(picture, 1, 320, 240) < 110;
        const bool moved = chromaAt(picture, 1, 200, 150) < 110;
        atStart += start;
        followed += moved;
        both += start && moved;
    });
    EXPECT_GT(atStart, 0);
    EXPECT_GT(followed, 0);
    EXPECT_EQ(both, 0);
}

// Good pointer options reach the recording's configuration.
TEST(RecordCursorTest, PointerOptionsReachTheConfiguration) {
    const RecordRequest request =
        parseRecordRequest({"--click-to-zoom", "--zoom-level", "2.5", "--zoom-duration", "0.8",
                            "--click-threshold", "0.2", "--cursor-style", "arrow"});
    const RecordingConfiguration configuration = makeRecordingConfiguration(
        request, RecordingMode::screen(SCDisplay{1, Rect(0, 0, 640, 480), 1.0}));
    ASSERT_TRUE(configuration.studioConfig);
    EXPECT_TRUE(configuration.studioConfig->enableClickToZoom);
    EXPECT_EQ(configuration.studioConfig->zoomLevel, 2.5);
    EXPECT_EQ(configuration.studioConfig->zoomDuration, 0.8);
    EXPECT_EQ(configuration.studioConfig->clickThreshold, 0.2);
    EXPECT_TRUE(configuration.highlightCursor);
    EXPECT_TRUE(request.cursor.overridesDefaults());
}

// A window recording follows its window: a click after the window moved is normalised to
// where the window is now, so it lands on the square in the picture.
TEST(RecordCursorTest, ClicksFollowAWindowThatMoved) {
    XvfbSession::Options options = screen();
    options.windowManager = true;
    START_XVFB(session, options);
    REQUIRE_TOOL("xdotool");
    PatternWindow window(60, 60);
    std::this_thread::sleep_for(700ms);

    CursorRecording recording(
        {"--mode", "window", "--window", std::to_string(window.id()), "--duration", "3"});
    ASSERT_TRUE(recording.waitForOutput("MediaWriter session started")) << recording.errors();
    window.moveTo(250, 200);
    std::this_thread::sleep_for(600ms);
    ASSERT_TRUE(xdotool({"mousemove", "--window", std::to_string(window.square()), "10", "10"}));
    std::this_thread::sleep_for(200ms);
    ASSERT_TRUE(session.click(1));
    ASSERT_EQ(recording.waitForExit(20s), 0) << recording.errors();

    const std::vector<Click> clicks = clicksOf(recording.metadata());
    ASSERT_EQ(clicks.size(), 1u) << recording.output();
    std::pair<double, double> square{-1, -1};
    forEachPicture(recording.moviePath(),
                   [&](const AVFrame& picture, double) { square = redCentre(picture); });
    EXPECT_NEAR(clicks[0].x, square.first, 2.0 / 320);
    EXPECT_NEAR(clicks[0].y, square.second, 2.0 / 240);
}

// A click lands on the video's time line where it happened: each press turns the screen from
// blue to green or back, and the first frame that shows the new colour comes after the click's
// time in the metadata, by no more than a frame.
TEST(RecordCursorTest, ClickTimesMatchTheFramesThatShowThem) {
    START_XVFB(session, screen());
    REQUIRE_TOOL("xdotool");
    ClickTarget target;
    ASSERT_TRUE(session.moveTo(320, 240));

    CursorRecording recording({"--duration", "4"});
    ASSERT_TRUE(recording.waitForFirstFrame()) << recording.errors();
    std::this_thread::sleep_for(700ms);
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(session.click(1));
        // Uneven gaps, so that no click falls at the same phase of the frame clock.
        std::this_thread::sleep_for(std::chrono::milliseconds(430 + 37 * i));
    }
    ASSERT_EQ(recording.waitForExit(20s), 0) << recording.errors();
    ASSERT_EQ(target.presses(), 4);

    const std::vector<Click> clicks = clicksOf(recording.metadata());
    ASSERT_EQ(clicks.size(), 4u) << recording.output();
    std::vector<double> changes; // times of the first frames of a new colour
    std::optional<bool> wasGreen;
    forEachPicture(recording.moviePath(), [&](const AVFrame& picture, double t) {
        const bool green = chromaAt(picture, 1, 320, 240) < 128;
        if (wasGreen && green != *wasGreen)
            changes.push_back(t);
        wasGreen = green;
    });
    ASSERT_EQ(changes.size(), 4u);
    // A click carries the time of the last frame captured before it, so the first frame that
    // shows what it did is the next one (give or take the file's rounding of times).
    constexpr double frame = 1.0 / 30;
    for (size_t i = 0; i < clicks.size(); ++i) {
        EXPECT_GT(changes[i], clicks[i].t) << "click " << i;
        EXPECT_LE(changes[i] - clicks[i].t, frame + 0.002) << "click " << i;
    }
}

// Clicks on the program's own windows are not clicks of the recording: a press on the camera
// overlay (a window of the recorder that takes input) is left out, one beside it is kept.
TEST(RecordCursorTest, ClicksOnTheProgramsOwnWindowsAreNotRecorded) {
    XvfbSession::Options options = screen();
    options.windowManager = true;
    START_XVFB(session, options);
    REQUIRE_TOOL("xdotool");

    // The overlay is 320 by 180 at (24, 24).
    CursorRecording recording(
        {"--duration", "3", "--camera", "Test Camera", "--camera-position", "top-left"},
        withTestCamera({}));
    ASSERT_TRUE(recording.waitForFirstFrame()) << recording.errors();
    ASSERT_TRUE(waitUntil(
        [] {
            return runCommand({"xdotool", "search", "--onlyvisible", "--name", "Camera Overlayer"},
                              5s) == 0;
        },
        10s));
    std::this_thread::sleep_for(300ms);
    ASSERT_TRUE(session.moveTo(180, 110));
    ASSERT_TRUE(session.click(1));
    std::this_thread::sleep_for(300ms);
    ASSERT_TRUE(session.moveTo(500, 400));
    ASSERT_TRUE(session.click(3));
    ASSERT_EQ(recording.waitForExit(20s), 0) << recording.errors();

    const std::vector<Click> clicks = clicksOf(recording.metadata());
    ASSERT_EQ(clicks.size(), 1u) << recording.output();
    EXPECT_EQ(clicks[0].type, "rightClick");
    EXPECT_NEAR(clicks[0].x, 500.0 / 640, 1.0 / 480);
    EXPECT_NEAR(clicks[0].y, 400.0 / 480, 1.0 / 480);
}

// The magnifier shows the screen around the pointer three times as large, in a window the
// display recording keeps: over the red square the frames show it 60 pixels wide around the
// pointer (not the magnifier magnifying itself, which would fill it with red); away from the
// square the magnifier goes with the pointer and the square is its own size again.
TEST(RecordCursorTest, TheMagnifierShowsTheScreenAroundThePointer) {
    START_XVFB(session, screen());
    REQUIRE_TOOL("xdotool");
    PatternWindow window(100, 100); // the square's middle is at (260, 220)
    std::this_thread::sleep_for(300ms);
    ASSERT_TRUE(session.moveTo(260, 220));

    CursorRecording recording({"--magnifier", "--duration", "3"}, {}, true);
    ASSERT_TRUE(recording.waitForFirstFrame()) << recording.errors();
    std::this_thread::sleep_for(1200ms);
    ASSERT_TRUE(session.moveTo(520, 400));
    ASSERT_EQ(recording.waitForExit(20s), 0) << recording.errors();
    const std::string movie = recording.moviePath();
    ASSERT_FALSE(movie.empty()) << recording.output();
    // Each frame is magnified at the square, or plain with the magnifier elsewhere once it
    // moved; all the first kind come before all the second, but for a frame or two on the way.
    int magnified = 0, plain = 0, other = 0, magnifiedAfterPlain = 0;
    forEachPicture(movie, [&](const AVFrame& picture, double) {
        const int red = widestRed(picture);
        const auto [x, y] = redCentre(picture);
        const bool atPointer =
            std::abs(x - 260.0 / 640) < 3.0 / 640 && std::abs(y - 220.0 / 480) < 3.0 / 480;
        if (std::abs(red - 60) <= 4 && atPointer) {
            ++magnified;
            magnifiedAfterPlain += plain > 0;
        } else if (magnified > 0 && std::abs(red - 20) <= 2) {
            ++plain;
        } else {
            ++other;
        }
    });
    EXPECT_GT(magnified, 20);
    EXPECT_GT(plain, 5);
    EXPECT_LE(other, 2);
    EXPECT_EQ(magnifiedAfterPlain, 0);
}
