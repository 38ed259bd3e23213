#pragma once

#include "core/model/AlphaVideoCodec.h"

#include <exception>
#include <optional>
#include <string>

// What setting up or finishing a movie file can fail with; frame paths never throw it.
class MediaWriterError final : public std::exception {
public:
    enum class Kind {
        writerInitializationFailed,
        cannotAddInput,
        invalidState,
        writingFailed,
        alphaCodecNotSupported,
        writerNotConfigured,
        notWriting,
        outputURLMissing,
    };

    static MediaWriterError writerInitializationFailed(std::optional<std::string> underlying = {});
    static MediaWriterError cannotAddInput(const std::string& type);
    static MediaWriterError invalidState(const std::string& current);
    static MediaWriterError writingFailed(std::optional<std::string> underlying = {});
    static MediaWriterError alphaCodecNotSupported(AlphaVideoCodec codec);
    static MediaWriterError writerNotConfigured();
    static MediaWriterError notWriting();
    static MediaWriterError outputURLMissing();

    Kind kind() const { return m_kind; }
    const std::string& errorDescription() const { return m_description; }
    const char* what() const noexcept override { return m_description.c_str(); }

private:
    MediaWriterError(Kind kind, std::string description)
        : m_kind(kind), m_description(std::move(description)) {}
    Kind m_kind;
    std::string m_description;
};
