#pragma once

#include <QString>

#include <array>
#include <optional>

// Raw values are the case names. Only `balanced` has values; the others are reserved.
enum class AutoZoomProfile { conservative, balanced, cinematic };

QString rawValue(AutoZoomProfile profile);

// The tuning of the attention analysis. Times in seconds, distances normalised.
struct AttentionAnalyzerOptions {
    AutoZoomProfile profile = AutoZoomProfile::balanced; // carried along, never read
    double clickMergeGap = 2.5;
    double rapidActionMergeGap = 1.0;
    double spatialMergeDistance = 0.18;
    double preRoll = 0.55;
    double postRoll = 0.75;
    double minimumSegmentDuration = 0.7;
    double maximumSegmentDuration = 6.0;
    double defaultZoomLevel = 1.5;
    double emphasisZoomLevel = 1.65;
    double zoomsPerMinute = 10;
    double dwellStepThreshold = 0.02;
    double dwellMinimumDuration = 0.45;
    double dwellMaximumDuration = 2.6;
    double dwellBoostTimeWindow = 1.2;
    double dwellBoostDistance = 0.08;
    double repeatedRegionWindow = 4.0;
    double repeatedRegionDistance = 0.08;
    double minimumConfidence = 0.9;

    static const AttentionAnalyzerOptions balanced;

    bool operator==(const AttentionAnalyzerOptions&) const = default;
};

inline const AttentionAnalyzerOptions AttentionAnalyzerOptions::balanced{};
