#include "core/metadata/MetadataJson.h"
#include "core/metadata/GradientSettings.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using nlohmann::json;

namespace {

// Every field of every object set to a value other than its default, with awkward numbers, so
// that a field the writer or the reader leaves out cannot survive the round trip.
RecordingMetadata fullDocument() {
    RecordingMetadata m;
    m.duration = 61.123456789012345;
    m.resolution = {2880, 1800};
    m.frameRate = 60;
    m.zoomEvents = {ZoomEvent{.timestamp = 0.1,
                              .position = {0.25, 0.75},
                              .level = 2,
                              .duration = 0.3,
                              .easing = EasingFunction::easeOut}};
    m.zoomKeyframes = {ZoomKeyframe{.time = 1.0 / 3.0,
                                    .center = {1e-300, 0.9999999999999999},
                                    .level = 1.5,
                                    .easeIn = 1.1,
                                    .easeOut = 0.4,
                                    .easing = EasingFunction::linear}};
    m.zoomSegments = {ZoomSegment({.startTime = 2,
                                   .endTime = 4,
                                   .easeOut = 1.2,
                                   .panSmoothing = 0.5,
                                   .deadZone = 0.1,
                                   .followCursor = true}),
                      ZoomSegment({.startTime = 5,
                                   .endTime = 9,
                                   .zoomLevel = 1.65,
                                   .easeIn = 1,
                                   .easing = EasingFunction::easeOut,
                                   .mode = ZoomSegmentMode::auto_,
                                   .focusPoint = Point{0.3, 0.4},
                                   .autoReason = QStringLiteral("text field click + dwell ✓"),
                                   .attentionKind = QStringLiteral("textFieldClick")})};
    m.cameraPositions = {CameraKeyframe{
        .timestamp = 3, .frame = Rect(10, 20, 320, 180), .easing = EasingFunction::easeIn}};
    m.cursorClicks = {
        CursorClick{.timestamp = 0.5, .position = {0.1, 0.2}, .clickType = ClickType::doubleClick},
        CursorClick{.timestamp = 0.7, .position = {0.1, 0.2}, .clickType = ClickType::rightClick}};
    m.cursorPositions = {CursorPosition{.timestamp = 0, .position = {0, 0}},
                         CursorPosition{.timestamp = 0.1 + 0.2, .position = {-0.0, 1}}};
    m.backgroundSettings = BackgroundSettings{
        .type = StudioBackgroundType::image,
        .gradient = gradientSettings(GradientPreset::aurora),
        .color = CodableColor{0.1, 0.2, 0.3, 0.4},
        .imageURL = QUrl(QStringLiteral("file:///home/me/Pictures/back%20drop.png")),
        .opacity = 0.85};
    return m;
}

std::string minimalDocument(const std::string& zoomSegments = "[]") {
    return R"({"cameraPositions":[],"cursorClicks":[],"cursorPositions":[],"duration":12.5,"frameRate":30,)"
           R"("resolution":[1920,1080],"version":"0.9","zoomEvents":[],"zoomKeyframes":[],"zoomSegments":)" +
           zoomSegments + "}";
}

std::string decodeError(const std::string& text) {
    try {
        decodeMetadata(text);
    } catch (const MetadataDecodingError& error) {
        return error.what();
    }
    return "decoded";
}

} // namespace

// Every field goes through the writer and back through the reader unchanged, and the text is
// stable: written again, it is the same text.
TEST(MetadataJsonTest, EveryFieldRoundTripsExactly) {
    const RecordingMetadata original = fullDocument();
    const std::string text = encodeMetadata(original);
    const RecordingMetadata decoded = decodeMetadata(text);
    EXPECT_EQ(decoded, original);
    EXPECT_EQ(encodeMetadata(decoded), text);
}

// The layout that other readers rely on: the JSON library's own pretty print of the same value
// (sorted keys, two-space indent), arrays for geometry, upper-case ids, raw values, the version.
TEST(MetadataJsonTest, WritesTheDescribedLayout) {
    RecordingMetadata m = fullDocument();
    m.cursorPositions[0].id = QUuid(QStringLiteral("{e621e1f8-c36c-495a-93fc-0c247a3e6e5f}"));
    const std::string text = encodeMetadata(m);
    const json j = json::parse(text);
    EXPECT_EQ(j.dump(2), text);

    EXPECT_TRUE(j["frameRate"].is_number_integer());
    EXPECT_EQ(j["resolution"], json::parse("[2880.0, 1800.0]"));
    EXPECT_EQ(j["cameraPositions"][0]["frame"], json::parse("[[10.0, 20.0], [320.0, 180.0]]"));
    EXPECT_EQ(j["cursorPositions"][0]["id"], "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(j["cursorClicks"][0]["clickType"], "doubleClick");
    EXPECT_EQ(j["zoomSegments"][1]["mode"], "auto");
    EXPECT_EQ(j["backgroundSettings"]["imageURL"], "file:///home/me/Pictures/back%20drop.png");

    // Absent optionals leave no key and never a null.
    m.zoomSegments[1] = ZoomSegment({.startTime = 5, .endTime = 9});
    m.backgroundSettings.reset();
    const std::string sparse = encodeMetadata(m);
    EXPECT_EQ(sparse.find("null"), std::string::npos);
    EXPECT_EQ(sparse.find("backgroundSettings"), std::string::npos);
    EXPECT_EQ(sparse.find("focusPoint"), std::string::npos);
    EXPECT_EQ(sparse.find("autoReason"), std::string::npos);
    EXPECT_EQ(decodeMetadata(sparse), m);
}

TEST(MetadataJsonTest, OtherVersionsDecodeAndAreRewrittenAsCurrent) {
    const RecordingMetadata m = decodeMetadata(minimalDocument());
    EXPECT_EQ(m.duration, 12.5);
    EXPECT_EQ(m.resolution, (Size{1920, 1080}));
    EXPECT_EQ(json::parse(encodeMetadata(m))["version"], "1.0");
    // A missing version is no problem either.
    std::string text = minimalDocument();
    text.replace(text.find(R"("version":"0.9",)"), 16, "");
    EXPECT_NO_THROW(decodeMetadata(text));
}

// Keys added to segments over time have defaults; the initialiser's limits do not apply.
TEST(MetadataJsonTest, SegmentDecodingFillsDefaultsWithoutClamping) {
    const std::string old =
        R"([{"id":"6a3e7d7c-0c8e-4b61-a1b2-1234567890ab","startTime":10,"endTime":10.2,)"
        R"("zoomLevel":5,"easeIn":3,"easeOut":0.8,"easing":"easeIn"}])";
    const ZoomSegment s = decodeMetadata(minimalDocument(old)).zoomSegments.at(0);
    EXPECT_EQ(s.id, QUuid(QStringLiteral("6A3E7D7C-0C8E-4B61-A1B2-1234567890AB")));
    EXPECT_EQ(s.endTime, 10.2);
    EXPECT_EQ(s.zoomLevel, 5.0);
    EXPECT_EQ(s.easeIn, 3.0);
    EXPECT_EQ(s.mode, ZoomSegmentMode::manual);
    EXPECT_FALSE(s.focusPoint.has_value());
}

TEST(MetadataJsonTest, SegmentDecodingForcesFollowForAutoAndClampsFocus) {
    const std::string text =
        R"([{"id":"6A3E7D7C-0C8E-4B61-A1B2-1234567890AB","startTime":1,"endTime":2,"zoomLevel":2,"easeIn":0.8,)"
        R"("easeOut":0.8,"easing":"linear","mode":"auto","followCursor":false,"focusPoint":[1.5,-0.2],)"
        R"("panSmoothing":2,"deadZone":-1,"attentionKind":"click","extra":{"deep":[1,2,3]}}])";
    const ZoomSegment s = decodeMetadata(minimalDocument(text)).zoomSegments.at(0);
    EXPECT_TRUE(s.followCursor);
    EXPECT_EQ(s.focusPoint, (Point{1, 0}));
    EXPECT_EQ(s.panSmoothing, 2.0);
    EXPECT_EQ(s.deadZone, -1.0);
    EXPECT_EQ(s.attentionKind, QStringLiteral("click"));
}

// Each failure names the key path and the problem, so a user can find it in the file.
TEST(MetadataJsonTest, DecodingErrorsNameTheKeyPath) {
    std::string missingSegments = minimalDocument();
    missingSegments.replace(missingSegments.find(R"(,"zoomSegments":[])"), 18, "");
    EXPECT_EQ(decodeError(missingSegments), "zoomSegments: required key is missing");

    EXPECT_EQ(decodeError(minimalDocument(
                  R"([{"id":"6A3E7D7C-0C8E-4B61-A1B2-1234567890AB","startTime":1}])")),
              "zoomSegments[0].easeIn: required key is missing");

    std::string badPosition = minimalDocument();
    badPosition.replace(
        badPosition.find(R"("cursorPositions":[])"), 20,
        R"("cursorPositions":[{"id":"6A3E7D7C-0C8E-4B61-A1B2-1234567890AB","timestamp":1,)"
        R"("position":[0.5,"NaN"]}])");
    EXPECT_EQ(decodeError(badPosition),
              "cursorPositions[0].position[1]: expected a number, found string");

    std::string fractionalRate = minimalDocument();
    fractionalRate.replace(fractionalRate.find("30"), 2, "29.97");
    EXPECT_EQ(decodeError(fractionalRate), "frameRate: expected an integer, found 29.97");

    std::string wrongType = minimalDocument();
    wrongType.replace(
        wrongType.find(R"("cursorClicks":[])"), 17,
        R"("cursorClicks":[{"id":"6A3E7D7C-0C8E-4B61-A1B2-1234567890AB","timestamp":1,)"
        R"("position":[0.5,0.5],"clickType":"middleClick"}])");
    EXPECT_EQ(decodeError(wrongType),
              "cursorClicks[0].clickType: \"middleClick\" is not a ClickType");

    std::string badId = minimalDocument();
    badId.replace(badId.find(R"("zoomEvents":[])"), 15,
                  R"("zoomEvents":[{"id":"{6A3E7D7C-0C8E-4B61-A1B2-1234567890AB}","timestamp":1,)"
                  R"("position":[0.5,0.5],"level":2,"duration":1,"easing":"linear"}])");
    EXPECT_EQ(decodeError(badId).substr(0, 32), "zoomEvents[0].id: invalid UUID s");

    // A key missing two objects deep is named by its whole path.
    std::string noAlpha = minimalDocument();
    noAlpha.insert(1, R"("backgroundSettings":{"type":"solidColor","opacity":1,)"
                      R"("color":{"red":1,"green":0.5,"blue":0}},)");
    EXPECT_EQ(decodeError(noAlpha), "backgroundSettings.color.alpha: required key is missing");

    EXPECT_EQ(decodeError("[]"), "expected an object, found array");
    EXPECT_EQ(decodeError(minimalDocument().substr(0, 40)).substr(0, 15), "not valid JSON:");
    EXPECT_EQ(decodeError(R"({"duration":null})").substr(0, 17), "cameraPositions: ");
}

// A null for an optional key is read as absent, as for any optional; for a required key it fails.
TEST(MetadataJsonTest, NullOptionalIsAbsentButNullRequiredFails) {
    std::string text = minimalDocument();
    text.insert(1, R"("backgroundSettings":null,)");
    EXPECT_FALSE(decodeMetadata(text).backgroundSettings.has_value());
    std::string required = minimalDocument();
    required.replace(required.find("12.5"), 4, "null");
    EXPECT_EQ(decodeError(required), "duration: expected a number, found null");
}

TEST(MetadataJsonTest, NonFiniteNumbersAreRefusedWhenWriting) {
    RecordingMetadata m = fullDocument();
    m.cursorPositions[1].timestamp = std::numeric_limits<double>::quiet_NaN();
    EXPECT_THROW(encodeMetadata(m), MetadataEncodingError);
    m = fullDocument();
    m.resolution.width = std::numeric_limits<double>::infinity();
    EXPECT_THROW(encodeMetadata(m), MetadataEncodingError);
}

// Found by fuzzing: a URL the parser spells differently on a second reading must still come
// back equal after writing; an empty one is refused.
TEST(MetadataJsonTest, ImageUrlsReadBackEqual) {
    auto withImage = [](const std::string& url) {
        std::string text = minimalDocument();
        text.insert(1, R"("backgroundSettings":{"type":"image","opacity":1,"imageURL":)" +
                           json(url).dump() + "},");
        return text;
    };
    for (const char* url :
         {"fil###e/t/m:/p/a.png", "file:///home/me/My Pictures/a.png", "https://x.org/a?b=c d#e"}) {
        const RecordingMetadata once = decodeMetadata(withImage(url));
        EXPECT_EQ(decodeMetadata(encodeMetadata(once)), once) << url;
    }
    EXPECT_EQ(decodeError(withImage("")), "backgroundSettings.imageURL: invalid URL \"\"");
}
