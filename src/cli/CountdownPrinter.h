#pragma once

#include "core/recording/surfaces/FloatingRecordingPanelController.h"

#include <fmt/format.h>

#include <cstdio>

// The command line's stand-in for the recording panel: it has no controls, so it only says how
// many seconds remain before the coordinator starts recording. Thread: main.
class CountdownPrinter final : public FloatingRecordingPanelController {
public:
    explicit CountdownPrinter(FILE* err) : m_err(err) {}

    void show(RecordingCoordinator&) override {}
    void hide() override {}
    void setPaused(bool) override {}
    void updateStartingCountdown(int seconds) override {
        if (seconds <= 0)
            return;
        fmt::print(m_err, "⏳ Recording starts in {}\n", seconds);
        std::fflush(m_err);
    }

private:
    FILE* m_err;
};
