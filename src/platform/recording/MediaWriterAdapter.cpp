#include "platform/recording/MediaWriterAdapter.h"

#include <QtConcurrent/QtConcurrentRun>

#include <QCoro/QCoroFuture>

WriterConfiguration MediaWriterAdapter::translate(const WriterEngineConfiguration& configuration) {
    WriterConfiguration result;
    result.outputURL = configuration.outputURL.toStdString();
    result.outputFormat = configuration.outputFormat;
    if (const auto& video = configuration.videoSettings) {
        WriterConfiguration::VideoSettings settings;
        settings.width = video->width;
        settings.height = video->height;
        settings.frameRate = video->frameRate;
        settings.codec = video->codec;
        settings.quality = video->quality;
        if (video->colorSpace)
            settings.colorSpace = WriterConfiguration::VideoSettings::ColorSpaceSettings{
                video->colorSpace->transferFunction.toStdString(),
                video->colorSpace->colorPrimaries.toStdString(),
                video->colorSpace->yCbCrMatrix.toStdString()};
        settings.hasAlphaChannel = video->hasAlphaChannel;
        if (video->alphaCodec)
            settings.alphaCodec = alphaVideoCodecFromRawValue(video->alphaCodec->toStdString());
        result.videoSettings = settings;
    }
    const auto& audio = configuration.audioSettings;
    result.audioSettings.sampleRate = audio.sampleRate;
    result.audioSettings.channelCount = audio.channelCount;
    result.audioSettings.bitRate = audio.bitRate;
    switch (audio.format) {
    case WriterEngineConfiguration::AudioFormat::aac:
        result.audioSettings.format = WriterConfiguration::AudioFormat::aac;
        break;
    case WriterEngineConfiguration::AudioFormat::alac:
        result.audioSettings.format = WriterConfiguration::AudioFormat::alac;
        break;
    case WriterEngineConfiguration::AudioFormat::flac:
        result.audioSettings.format = WriterConfiguration::AudioFormat::flac;
        break;
    case WriterEngineConfiguration::AudioFormat::opus:
        result.audioSettings.format = WriterConfiguration::AudioFormat::opus;
        break;
    }
    result.separateAudioTracks = configuration.separateAudioTracks;
    return result;
}

void MediaWriterAdapter::configure(const WriterEngineConfiguration& configuration) {
    m_writer.configure(translate(configuration));
}

QCoro::Task<QString> MediaWriterAdapter::finishWriting() {
    MediaWriter* writer = &m_writer;
    // The writer waits for its encoder to drain; the main thread must not.
    QFuture<QString> finishing = QtConcurrent::run(
        [writer] { return QString::fromStdString(writer->finishWriting().string()); });
    QString path = co_await finishing;
    co_return path;
}
