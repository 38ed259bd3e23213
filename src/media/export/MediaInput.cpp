#include "media/export/MediaInput.h"

#include <algorithm>

AVInputFormatContextPtr openMediaInput(const std::filesystem::path& path, std::string& error) {
    av_log_set_level(std::min(av_log_get_level(), AV_LOG_FATAL));
    AVFormatContext* raw = nullptr;
    if (int result = avformat_open_input(&raw, path.c_str(), nullptr, nullptr); result < 0) {
        error = path.string() + ": " + ffmpegErrorText(result);
        return nullptr;
    }
    AVInputFormatContextPtr input(raw);
    if (int result = avformat_find_stream_info(raw, nullptr); result < 0) {
        error = path.string() + ": " + ffmpegErrorText(result);
        return nullptr;
    }
    return input;
}
