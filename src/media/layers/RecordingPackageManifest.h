#pragma once

#include "core/model/RecordingPackage.h"

#include <QString>

#include <stdexcept>
#include <string>

// The manifest ".package.json" of a separate-layers recording: written last, so its presence
// marks a finished package. Keys equal the field names, sorted, pretty-printed; file locations
// are absolute file URLs; createdAt counts seconds from 2001-01-01 00:00:00 UTC; an absent camera
// layer has no key. Stateless; thread-safe.
class RecordingPackageManifest final {
public:
    static constexpr const char* fileName = ".package.json";
    // Where packages made before the name was hidden keep their manifest.
    static constexpr const char* legacyFileName = "package.json";

    static std::string encode(const RecordingPackage& package);
    // Throws ManifestError when the text is not a manifest.
    static RecordingPackage decode(const std::string& text);
    // Writes the manifest into the package's folder in one step (a temporary file renamed), so
    // a reader never sees half of it. Throws std::runtime_error naming the file.
    static void save(const RecordingPackage& package);
};

// A manifest that cannot be read or understood.
class ManifestError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
