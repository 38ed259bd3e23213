#include "media/AudioPackageRecorder.h"

#include "core/async/DetachedTask.h"
#include "core/model/Constants.h"
#include "core/model/RecordingError.h"
#include "core/support/Log.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QMetaObject>

namespace {
QString text(std::string_view value) {
    return QString::fromUtf8(value.data(), qsizetype(value.size()));
}
} // namespace

AudioPackageRecorder::AudioPackageRecorder(RecordingConfiguration configuration)
    : m_configuration(std::move(configuration)),
      m_format(getAudioFormatInfo(m_configuration.audioEncoder)) {}

AudioPackageRecorder::~AudioPackageRecorder() = default;

QString AudioPackageRecorder::packageName(const QDateTime& date, const QLocale& locale) {
    // A medium time is the long one without its zone: hours, minutes and seconds.
    QString timeFormat = locale.timeFormat(QLocale::LongFormat);
    timeFormat.remove(QLatin1Char('t')).replace(QStringLiteral("  "), QStringLiteral(" "));
    const QString stamp = locale.toString(date.date(), QLocale::ShortFormat) +
                          QStringLiteral(" at ") +
                          locale.toString(date.time(), timeFormat.trimmed());
    QString name = QStringLiteral("Audio Recording ") + stamp + QLatin1Char('.') +
                   text(Constants::audioPackageExtension);
    name.replace(QLatin1Char('/'), QLatin1Char('-')).replace(QLatin1Char(':'), QLatin1Char('.'));
    return name;
}

std::unique_ptr<MediaWriter> AudioPackageRecorder::makeWriter(const QString& path) const {
    WriterConfiguration configuration;
    configuration.outputURL = path.toStdString();
    configuration.outputFormat = OutputFormat::mp4;
    configuration.audioSettings = m_format.settings;
    auto writer = std::make_unique<MediaWriter>();
    writer->configure(configuration);
    return writer;
}

void AudioPackageRecorder::prepareRecording() {
    const QDir folder(m_configuration.outputDirectory);
    const QString package =
        folder.filePath(packageName(QDateTime::currentDateTime(), QLocale::system()));
    if (!QDir().mkpath(package))
        throw RecordingError::fileWriteError(QStringLiteral("Cannot create %1").arg(package));
    m_packageURL = package;
    const QString extension = QString::fromStdString(m_format.fileExtension);
    try {
        if (m_configuration.recordSystemAudio) {
            m_systemAudioURL = QDir(package).filePath(text(Constants::audioPackageSystemFile) +
                                                      QLatin1Char('.') + extension);
            m_systemAudioWriter = makeWriter(*m_systemAudioURL);
        }
        if (m_configuration.recordMicrophone) {
            m_microphoneAudioURL = QDir(package).filePath(text(Constants::audioPackageMicFile) +
                                                          QLatin1Char('.') + extension);
            m_microphoneWriter = makeWriter(*m_microphoneAudioURL);
        }
    } catch (const std::exception& error) {
        throw RecordingError::fileWriteError(QString::fromUtf8(error.what()));
    }
    const AudioPackageInfo info{m_format.fileExtension, m_format.encoder, false,
                                m_configuration.systemAudioVolume,
                                m_configuration.microphoneVolume};
    QFile file(QDir(package).filePath(text(Constants::audioPackageInfoFile)));
    const std::string json = info.toJson();
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        file.write(json.data(), qint64(json.size())) != qint64(json.size()))
        throw RecordingError::fileWriteError(file.fileName() + QStringLiteral(": ") +
                                             file.errorString());
    logLine("🎵 Audio package prepared: {}", package.toStdString());
}

void AudioPackageRecorder::startRecording() {
    m_startTime = QDateTime::currentDateTime();
    for (MediaWriter* writer : {m_systemAudioWriter.get(), m_microphoneWriter.get()})
        if (writer)
            writer->startWriting();
    m_started = true;
}

void AudioPackageRecorder::startSession(MediaTime at) {
    if (m_microphoneWriter && !m_microphoneWriter->isWriting())
        m_microphoneWriter->startSession(at);
}

void AudioPackageRecorder::append(MediaWriter& writer, const AudioBuffer& buffer) {
    if (!m_started)
        return; // audio heard before the recording started is not part of it
    // Each file begins with its own first sample.
    if (!writer.isWriting())
        writer.startSession(buffer.presentationTime);
    writer.appendAudioBuffer(buffer, 0, false);
}

void AudioPackageRecorder::appendSystemAudioBuffer(const AudioBuffer& buffer) {
    if (m_systemAudioWriter)
        append(*m_systemAudioWriter, buffer);
}

void AudioPackageRecorder::appendMicrophoneBuffer(const AudioBuffer& buffer) {
    if (m_microphoneWriter)
        append(*m_microphoneWriter, buffer);
}

QString AudioPackageRecorder::finish() {
    for (MediaWriter* writer : {m_systemAudioWriter.get(), m_microphoneWriter.get()}) {
        if (!writer)
            continue;
        if (writer->isWriting()) {
            writer->finishWriting();
        } else {
            // Nothing was heard: no file rather than an empty one that players refuse.
            writer->cancel();
        }
    }
    if (!m_packageURL)
        throw RecordingError::invalidConfiguration(
            QStringLiteral("The audio package was not prepared"));
    return *m_packageURL;
}

void AudioPackageRecorder::finishRecording(FinishCompletion completion) {
    // The writers wait for their encoders to drain; the main thread must not. The completion
    // runs back on the calling thread.
    [](AudioPackageRecorder* recorder, FinishCompletion completion) -> QCoro::Task<void> {
        QString url;
        std::exception_ptr error;
        try {
            QCoro::Task<QString> finishing =
                runDetached<QString>([recorder] { return recorder->finish(); });
            url = co_await finishing;
        } catch (...) {
            error = std::current_exception();
        }
        completion(std::move(url), error);
    }(this, std::move(completion));
}
