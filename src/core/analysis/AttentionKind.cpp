#include "core/analysis/AttentionKind.h"

QString rawValue(AttentionKind kind) {
    switch (kind) {
    case AttentionKind::click:
        return QStringLiteral("click");
    case AttentionKind::doubleClick:
        return QStringLiteral("doubleClick");
    case AttentionKind::rightClick:
        return QStringLiteral("rightClick");
    case AttentionKind::textFieldClick:
        return QStringLiteral("textFieldClick");
    case AttentionKind::dropdownOpen:
        return QStringLiteral("dropdownOpen");
    case AttentionKind::textSelection:
        return QStringLiteral("textSelection");
    case AttentionKind::dwell:
        return QStringLiteral("dwell");
    case AttentionKind::repeatedActivity:
        return QStringLiteral("repeatedActivity");
    case AttentionKind::legacyZoomEvent:
        return QStringLiteral("legacyZoomEvent");
    }
    return {};
}

QString displayName(AttentionKind kind) {
    switch (kind) {
    case AttentionKind::click:
        return QStringLiteral("click");
    case AttentionKind::doubleClick:
        return QStringLiteral("double click");
    case AttentionKind::rightClick:
        return QStringLiteral("right click");
    case AttentionKind::textFieldClick:
        return QStringLiteral("text field click");
    case AttentionKind::dropdownOpen:
        return QStringLiteral("dropdown open");
    case AttentionKind::textSelection:
        return QStringLiteral("text selection");
    case AttentionKind::dwell:
        return QStringLiteral("dwell");
    case AttentionKind::repeatedActivity:
        return QStringLiteral("repeated activity");
    case AttentionKind::legacyZoomEvent:
        return QStringLiteral("legacy zoom");
    }
    return {};
}

// A typed field or a selection is worth more than a plain click; a recorded live zoom was asked
// for by the user and is worth most.
double baseConfidence(AttentionKind kind) {
    switch (kind) {
    case AttentionKind::click:
        return 1.0;
    case AttentionKind::doubleClick:
        return 1.45;
    case AttentionKind::rightClick:
        return 1.15;
    case AttentionKind::textFieldClick:
        return 1.35;
    case AttentionKind::dropdownOpen:
        return 1.25;
    case AttentionKind::textSelection:
        return 1.4;
    case AttentionKind::dwell:
    case AttentionKind::repeatedActivity:
        return 0.0;
    case AttentionKind::legacyZoomEvent:
        return 1.6;
    }
    return 0.0;
}

std::optional<AttentionKind> attentionKindFromRawValue(const QString& raw) {
    for (AttentionKind kind : allAttentionKinds) {
        if (rawValue(kind) == raw)
            return kind;
    }
    return std::nullopt;
}
