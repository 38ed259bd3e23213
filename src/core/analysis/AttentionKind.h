#pragma once

#include <QString>

#include <array>
#include <optional>

// What drew the viewer's attention at a moment. Raw values are the case names. `dwell` and
// `repeatedActivity` are never the kind of a moment: their display names are the reasons that
// boosts add to other moments.
enum class AttentionKind {
    click,
    doubleClick,
    rightClick,
    textFieldClick,
    dropdownOpen,
    textSelection,
    dwell,
    repeatedActivity,
    legacyZoomEvent,
};

inline constexpr std::array allAttentionKinds{
    AttentionKind::click,          AttentionKind::doubleClick,      AttentionKind::rightClick,
    AttentionKind::textFieldClick, AttentionKind::dropdownOpen,     AttentionKind::textSelection,
    AttentionKind::dwell,          AttentionKind::repeatedActivity, AttentionKind::legacyZoomEvent};

QString rawValue(AttentionKind kind);
QString displayName(AttentionKind kind);
double baseConfidence(AttentionKind kind);
std::optional<AttentionKind> attentionKindFromRawValue(const QString& raw);
