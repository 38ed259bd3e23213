#pragma once

#include "core/time/MediaTimeRange.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

// Copies the packets of a movie's video and audio tracks for the given ranges, end to end, into
// a new file without decoding anything. Each range starts at the key frame at or before its
// start, since a picture cannot be shown without the key frame it depends on. Blocking; stops
// when `cancelled` is set, and then, as on failure, removes what it wrote. `progress` gets the
// copied fraction of the ranges. Thread: any.
bool copyPacketRanges(const std::filesystem::path& input, const std::vector<MediaTimeRange>& ranges,
                      const std::filesystem::path& output, bool mpeg4, bool fastStart,
                      const std::atomic<bool>& cancelled,
                      const std::function<void(double)>& progress, std::string& error);
