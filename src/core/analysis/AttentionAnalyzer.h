#pragma once

#include "core/analysis/AttentionAnalyzerOptions.h"
#include "core/analysis/AttentionKind.h"
#include "core/metadata/CursorClick.h"
#include "core/metadata/CursorPosition.h"
#include "core/metadata/ZoomEvent.h"
#include "core/metadata/ZoomSegment.h"

#include <QString>

#include <optional>
#include <vector>

struct AttentionAnalyzerInput {
    double duration = 0.0;
    std::vector<ZoomEvent> zoomEvents{};
    std::vector<CursorClick> cursorClicks{};
    std::vector<CursorPosition> cursorPositions{};
    // Segments the user placed: an automatic segment never overlaps a manual one.
    std::vector<ZoomSegment> manualSegments{};
};

// One instant worth a look. `supportStart`...`supportEnd` widens as dwells confirm it.
struct AttentionMoment {
    double timestamp = 0.0;
    Point focus{};
    AttentionKind kind = AttentionKind::click;
    double confidence = 0.0;
    double durationHint = 0.0;
    double supportStart = 0.0;
    double supportEnd = 0.0;
    bool isExplicit = false;
    std::vector<QString> reasons{};
    bool operator==(const AttentionMoment&) const = default;
};

// Moments close enough in time (or in time and place) to share one zoom.
struct AttentionCluster {
    std::vector<AttentionMoment> moments{};
    double startTime = 0.0;
    double endTime = 0.0;
    Point focus{};
    double confidence = 0.0;
    AttentionKind kind = AttentionKind::click;
    QString reason{};
    bool operator==(const AttentionCluster&) const = default;
};

struct AttentionAnalyzerResult {
    std::vector<AttentionMoment> moments{};
    std::vector<AttentionCluster> clusters{};
    std::vector<ZoomSegment> zoomSegments{};
};

// A cursor sample with finite, clamped values.
struct NormalizedSample {
    double timestamp = 0.0;
    Point position{};
};

// A stretch where the cursor rested, a hint that the moment beside it mattered.
struct DwellCandidate {
    double startTime = 0.0;
    double endTime = 0.0;
    double centerTime = 0.0;
    Point focus{};
    double duration = 0.0;
};

// Turns what a recording left behind (clicks, cursor samples, live zoom events) into automatic
// zoom segments. The system knows nothing of what is on screen, so it infers from the cursor's
// behaviour what the viewer should look at: it classifies each click by the path that followed,
// strengthens moments the cursor dwelled on or came back to, groups moments into clusters,
// caps the zooms per minute, and makes one `auto` segment per cluster.
//
// Thread: any. Pure and deterministic, apart from the fresh ids of the segments it makes.
// The steps are public so that each can be checked on its own.
class AttentionAnalyzer final {
public:
    static AttentionAnalyzerResult
    analyze(const AttentionAnalyzerInput& input,
            const AttentionAnalyzerOptions& options = AttentionAnalyzerOptions::balanced);

    // Samples must be sorted by time. Clamped to 0...1; none without samples.
    static std::optional<Point>
    interpolatedCursorPosition(double time, const std::vector<NormalizedSample>& samples);
    static AttentionKind classifyClick(ClickType type, double time, Point position,
                                       const std::vector<NormalizedSample>& samples);
    static std::vector<DwellCandidate>
    detectDwellCandidates(const std::vector<NormalizedSample>& samples,
                          const AttentionAnalyzerOptions& options);
    static std::vector<AttentionMoment>
    applyDwellBoosts(std::vector<AttentionMoment> moments,
                     const std::vector<DwellCandidate>& candidates,
                     const AttentionAnalyzerOptions& options);
    // Returns the moments sorted by time.
    static std::vector<AttentionMoment>
    applyRepeatedRegionBoost(std::vector<AttentionMoment> moments,
                             const AttentionAnalyzerOptions& options);
    static std::vector<AttentionCluster> buildClusters(std::vector<AttentionMoment> moments,
                                                       const AttentionAnalyzerOptions& options);
    static AttentionCluster makeCluster(std::vector<AttentionMoment> moments);
    static std::vector<AttentionCluster> applyDensityCap(std::vector<AttentionCluster> clusters,
                                                         double duration,
                                                         const AttentionAnalyzerOptions& options);
    // Index into `clusters` of the closest cluster that may merge with `clusters[index]`.
    static std::optional<std::size_t>
    nearestMergeableNeighbor(std::size_t index, const std::vector<AttentionCluster>& clusters,
                             const AttentionAnalyzerOptions& options);
    static std::optional<ZoomSegment>
    makeZoomSegment(const AttentionCluster& cluster, double duration,
                    const std::vector<ZoomSegment>& manualSegments,
                    const AttentionAnalyzerOptions& options);
    static double zoomLevel(const AttentionCluster& cluster,
                            const AttentionAnalyzerOptions& options);
};

double normalizedDistance(Point a, Point b);
