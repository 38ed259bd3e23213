#pragma once

#include "core/model/AlphaVideoCodec.h"

#include <exception>
#include <string>

// Why a recording with transparency cannot be set up, with what the user can do about it.
class AlphaRecordingError final : public std::exception {
public:
    enum class Kind {
        codecNotSupported,
        invalidResolution,
        resolutionTooLarge,
        invalidAlignment,
        alphaChannelNotSupported
    };

    static AlphaRecordingError codecNotSupported(AlphaVideoCodec codec);
    static AlphaRecordingError invalidResolution(int width, int height);
    static AlphaRecordingError resolutionTooLarge(int width, int height, int max);
    static AlphaRecordingError invalidAlignment(int width, int height, int required);
    static AlphaRecordingError alphaChannelNotSupported();

    Kind kind() const { return m_kind; }
    const std::string& errorDescription() const { return m_description; }
    const std::string& recoverySuggestion() const { return m_suggestion; }
    const char* what() const noexcept override { return m_description.c_str(); }

private:
    AlphaRecordingError(Kind kind, std::string description, std::string suggestion)
        : m_kind(kind), m_description(std::move(description)), m_suggestion(std::move(suggestion)) {
    }
    Kind m_kind;
    std::string m_description;
    std::string m_suggestion;
};
