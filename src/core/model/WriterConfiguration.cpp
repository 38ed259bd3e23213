#include "core/model/WriterConfiguration.h"

std::string rawValue(WriterConfiguration::AudioFormat format) {
    switch (format) {
    case WriterConfiguration::AudioFormat::aac:
        return "aac";
    case WriterConfiguration::AudioFormat::alac:
        return "alac";
    case WriterConfiguration::AudioFormat::flac:
        return "flac";
    case WriterConfiguration::AudioFormat::opus:
        return "opus";
    }
    return {};
}
