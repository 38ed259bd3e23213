#pragma once

#include "core/model/RecordingConfiguration.h"

class UserDefaults;

// Builds a recording's configuration from the persisted defaults, as each source selector does.
// The screen selector differs: it has no highlight, no countdown, its own auto-stop choice and
// always keeps the machine awake.
class RecordingConfigurationBuilder {
public:
    enum class Selector { modeSelection, window, area, screen };

    explicit RecordingConfigurationBuilder(const UserDefaults& defaults) : m_defaults(defaults) {}

    // `screenAutoStopMinutes` is the screen selector's own popover choice; others ignore it.
    RecordingConfiguration build(RecordingMode mode, Selector selector,
                                 int screenAutoStopMinutes = 0) const;

    // The stored output folder, or "Recordings" in the user's documents folder when none is
    // stored (created if needed), or the temporary folder when that cannot be made.
    static QString resolveOutputDirectory(const QString& stored);

private:
    const UserDefaults& m_defaults;
};
