#pragma once

#include "core/model/RecordingError.h"

#include <exception>
#include <string>

// The text a log line shows for an error: a recording error's localized description, else
// what() of any other exception.
inline std::string describeError(const std::exception& error) {
    if (const auto* recordingError = dynamic_cast<const RecordingError*>(&error))
        return recordingError->localizedDescription().toStdString();
    return error.what();
}

inline std::string describeError(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& e) {
        return describeError(e);
    } catch (...) {
        return "unknown error";
    }
}
