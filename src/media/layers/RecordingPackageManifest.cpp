#include "media/layers/RecordingPackageManifest.h"

#include <QDir>
#include <QSaveFile>
#include <QTimeZone>
#include <QUrl>

#include <nlohmann/json.hpp>

#include <cmath>

namespace {

using nlohmann::json;

// The reference date of the manifest's times.
const QDateTime& referenceDate() {
    static const QDateTime date(QDate(2001, 1, 1), QTime(0, 0), QTimeZone::utc());
    return date;
}

std::string toURL(const QString& path) {
    return QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded).toStdString();
}

QString fromURL(const json& value, const char* key) {
    const QUrl url(QString::fromStdString(value.get<std::string>()), QUrl::StrictMode);
    if (!url.isValid() || !url.isLocalFile())
        throw ManifestError(std::string(key) + " is not a local file URL");
    return QDir::cleanPath(url.toLocalFile());
}

json pair(double a, double b) {
    return json::array({a, b});
}

double member(const json& array, size_t index, const char* key) {
    if (!array.is_array() || array.size() != 2 || !array[index].is_number())
        throw ManifestError(std::string(key) + " needs two numbers");
    return array[index].get<double>();
}

} // namespace

std::string RecordingPackageManifest::encode(const RecordingPackage& package) {
    const PackageConfiguration& c = package.configuration;
    json configuration = {
        {"hasAlphaChannel", c.hasAlphaChannel},
        {"hasSeparateLayers", c.hasSeparateLayers},
        {"resolution", pair(c.resolution.width, c.resolution.height)},
        {"frameRate", c.frameRate},
        {"duration", c.duration},
    };
    if (c.contentOrigin)
        configuration["contentOrigin"] = pair(c.contentOrigin->x, c.contentOrigin->y);
    json manifest = {
        {"version", package.version.toStdString()},
        {"packageURL", toURL(package.packageURL)},
        {"screenVideoURL", toURL(package.screenVideoURL)},
        {"audioURL", toURL(package.audioURL)},
        {"metadataURL", toURL(package.metadataURL)},
        {"createdAt", double(referenceDate().msecsTo(package.createdAt)) / 1000.0},
        {"configuration", configuration},
    };
    if (package.cameraVideoURL)
        manifest["cameraVideoURL"] = toURL(*package.cameraVideoURL);
    // nlohmann's objects keep their keys sorted.
    return manifest.dump(2);
}

RecordingPackage RecordingPackageManifest::decode(const std::string& text) {
    try {
        const json manifest = json::parse(text);
        RecordingPackage package;
        package.version = QString::fromStdString(manifest.at("version").get<std::string>());
        package.packageURL = fromURL(manifest.at("packageURL"), "packageURL");
        package.screenVideoURL = fromURL(manifest.at("screenVideoURL"), "screenVideoURL");
        if (const auto camera = manifest.find("cameraVideoURL"); camera != manifest.end())
            package.cameraVideoURL = fromURL(*camera, "cameraVideoURL");
        package.audioURL = fromURL(manifest.at("audioURL"), "audioURL");
        package.metadataURL = fromURL(manifest.at("metadataURL"), "metadataURL");
        const double created = manifest.at("createdAt").get<double>();
        if (!std::isfinite(created))
            throw ManifestError("createdAt is not a time");
        package.createdAt = referenceDate().addMSecs(qint64(std::llround(created * 1000.0)));

        const json& c = manifest.at("configuration");
        PackageConfiguration& configuration = package.configuration;
        configuration.hasAlphaChannel = c.at("hasAlphaChannel").get<bool>();
        configuration.hasSeparateLayers = c.at("hasSeparateLayers").get<bool>();
        configuration.resolution = Size{member(c.at("resolution"), 0, "resolution"),
                                        member(c.at("resolution"), 1, "resolution")};
        configuration.frameRate = c.at("frameRate").get<int>();
        configuration.duration = c.at("duration").get<double>();
        if (const auto origin = c.find("contentOrigin"); origin != c.end())
            configuration.contentOrigin =
                Point{member(*origin, 0, "contentOrigin"), member(*origin, 1, "contentOrigin")};
        return package;
    } catch (const json::exception& error) {
        throw ManifestError(error.what());
    }
}

void RecordingPackageManifest::save(const RecordingPackage& package) {
    const QString path = QDir(package.packageURL).filePath(QString::fromLatin1(fileName));
    QSaveFile file(path);
    const std::string text = encode(package);
    if (!file.open(QIODevice::WriteOnly) ||
        file.write(text.data(), qint64(text.size())) != qint64(text.size()) || !file.commit())
        throw std::runtime_error("Could not write " + path.toStdString() + ": " +
                                 file.errorString().toStdString());
}
