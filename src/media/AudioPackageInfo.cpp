#include "media/AudioPackageInfo.h"

#include "core/model/Constants.h"

#include <nlohmann/json.hpp>

#include <stdexcept>

std::string AudioPackageInfo::toJson() const {
    const nlohmann::json json = {{"format", format},
                                 {"encoder", encoder},
                                 {"exportMP3", exportMP3},
                                 {"sysVol", sysVol},
                                 {"micVol", micVol}};
    return json.dump(2);
}

AudioPackageInfo AudioPackageInfo::fromJson(const std::string& text) {
    try {
        const nlohmann::json json = nlohmann::json::parse(text);
        AudioPackageInfo info;
        info.format = json.at("format").get<std::string>();
        info.encoder = json.at("encoder").get<std::string>();
        info.exportMP3 = json.at("exportMP3").get<bool>();
        info.sysVol = json.at("sysVol").get<float>();
        info.micVol = json.at("micVol").get<float>();
        return info;
    } catch (const nlohmann::json::exception& error) {
        throw std::invalid_argument(std::string("audio package info: ") + error.what());
    }
}

AudioFormatInfo getAudioFormatInfo(const QString& encoder) {
    AudioFormatInfo info{"aac", "m4a",
                         WriterConfiguration::AudioSettings{Constants::defaultSampleRate,
                                                            Constants::defaultChannelCount, 128'000,
                                                            WriterConfiguration::AudioFormat::aac}};
    for (auto format :
         {WriterConfiguration::AudioFormat::alac, WriterConfiguration::AudioFormat::flac,
          WriterConfiguration::AudioFormat::opus}) {
        if (encoder.toStdString() == rawValue(format)) {
            info.encoder = rawValue(format);
            info.settings.format = format;
        }
    }
    if (info.settings.format == WriterConfiguration::AudioFormat::opus)
        info.settings.bitRate = 96'000;
    return info;
}
