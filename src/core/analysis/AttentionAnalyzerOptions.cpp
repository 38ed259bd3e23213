#include "core/analysis/AttentionAnalyzerOptions.h"

QString rawValue(AutoZoomProfile profile) {
    switch (profile) {
    case AutoZoomProfile::conservative:
        return QStringLiteral("conservative");
    case AutoZoomProfile::balanced:
        return QStringLiteral("balanced");
    case AutoZoomProfile::cinematic:
        return QStringLiteral("cinematic");
    }
    return {};
}
