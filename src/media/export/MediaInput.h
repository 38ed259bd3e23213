#pragma once

#include "media/FFmpegHandles.h"

#include <filesystem>
#include <string>

// Opens a movie or audio file for reading and reads its stream information. Damaged input is
// reported once, in our own words (FFmpeg's own lines would only repeat it): on failure the
// result is null and `error` names the file and the reason. Thread: any.
AVInputFormatContextPtr openMediaInput(const std::filesystem::path& path, std::string& error);
