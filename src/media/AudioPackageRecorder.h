#pragma once

#include "core/model/RecordingConfiguration.h"
#include "core/recording/engines/AudioOnlyRecorder.h"
#include "media/AudioPackageInfo.h"
#include "media/MediaWriter.h"

#include <QDateTime>
#include <QLocale>

#include <atomic>
#include <memory>
#include <optional>

// Records system audio and the microphone without a picture into an audio package: the folder
// "Audio Recording <date>.vxa" with "sys.<ext>", "mic.<ext>" (each only when its source is
// recorded) and "info.json". Each file starts at its own first sample.
// Thread: prepared on a worker thread; system audio and microphone each from their own thread,
// each touching only its own file; the rest on the main thread.
class AudioPackageRecorder final : public AudioOnlyRecorder {
public:
    explicit AudioPackageRecorder(RecordingConfiguration configuration);
    ~AudioPackageRecorder() override;

    void prepareRecording() override;
    void startRecording() override;
    void startSession(MediaTime at) override;
    void appendSystemAudioBuffer(const AudioBuffer& buffer) override;
    void appendMicrophoneBuffer(const AudioBuffer& buffer) override;
    void finishRecording(FinishCompletion completion) override;

    // "Audio Recording " + the date in the locale's short date and medium time + ".vxa", with
    // no "/" and no ":" left in it.
    static QString packageName(const QDateTime& date, const QLocale& locale);

    const std::optional<QString>& packageURL() const { return m_packageURL; }
    const std::optional<QString>& systemAudioURL() const { return m_systemAudioURL; }
    const std::optional<QString>& microphoneAudioURL() const { return m_microphoneAudioURL; }

private:
    std::unique_ptr<MediaWriter> makeWriter(const QString& path) const;
    void append(MediaWriter& writer, const AudioBuffer& buffer);
    // Blocks until both files are complete; the package's path, or throws.
    QString finish();

    const RecordingConfiguration m_configuration;
    const AudioFormatInfo m_format;
    std::unique_ptr<MediaWriter> m_systemAudioWriter;
    std::unique_ptr<MediaWriter> m_microphoneWriter;
    std::optional<QString> m_packageURL;
    std::optional<QString> m_systemAudioURL;
    std::optional<QString> m_microphoneAudioURL;
    std::optional<QDateTime> m_startTime;
    std::atomic<bool> m_started{false}; // the writers accept audio
};
