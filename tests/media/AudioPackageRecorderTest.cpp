#include "media/AudioPackageRecorder.h"

#include "media/DecodedAudio.h"
#include "media/MovieProbe.h"
#include "media/SyntheticMedia.h"
#include "support/EventLoop.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

struct Finished {
    bool done = false;
    QString url;
    std::exception_ptr error;
};

// Prepares a package, feeds one second of tone to each recorded source, finishes it.
Finished recordPackage(RecordingConfiguration configuration) {
    AudioPackageRecorder recorder(std::move(configuration));
    recorder.prepareRecording();
    recorder.startRecording();
    const MediaTime start = MediaTime::hostTimeNow();
    for (int i = 0; i < 50; ++i) {
        const AudioBuffer block = tone(960, i * 960, start + MediaTime::make(i * 960, 48000));
        recorder.appendSystemAudioBuffer(block);
        recorder.appendMicrophoneBuffer(block);
    }
    Finished finished;
    recorder.finishRecording([&](QString url, std::exception_ptr error) {
        finished = {true, std::move(url), std::move(error)};
    });
    EXPECT_TRUE(waitUntil([&] { return finished.done; }, 20s));
    return finished;
}

} // namespace

// Every encoder writes both sources into their files, 48 kHz stereo and a second long, with
// "info.json" naming the encoder and the volumes.
TEST(AudioPackageRecorder, EveryEncoderWritesBothFiles) {
    ScratchFolder folder;
    for (const char* encoder : {"aac", "alac", "flac", "opus"}) {
        RecordingConfiguration configuration(RecordingMode::systemAudio(),
                                             QString::fromStdString(folder.path().string()));
        configuration.recordSystemAudio = true;
        configuration.recordMicrophone = true;
        configuration.audioEncoder = encoder;
        configuration.microphoneVolume = 0.5f;
        const Finished finished = recordPackage(configuration);
        ASSERT_FALSE(finished.error) << encoder;
        ASSERT_TRUE(finished.url.endsWith(".vxa")) << finished.url.toStdString();
        for (const char* file : {"/sys.m4a", "/mic.m4a"}) {
            const std::string path = (finished.url + file).toStdString();
            const auto probed = probeMovie(path);
            ASSERT_TRUE(probed.has_value()) << path;
            const ProbedStream* audio = probed->first(AVMEDIA_TYPE_AUDIO);
            ASSERT_NE(audio, nullptr);
            EXPECT_EQ(audio->codec, encoder);
            EXPECT_EQ(audio->sampleRate, 48000);
            EXPECT_EQ(audio->channels, 2);
            const auto decoded = decodeAudio(path);
            ASSERT_TRUE(decoded.has_value());
            EXPECT_NEAR(decoded->seconds(), 1.0, 0.06) << encoder;
            EXPECT_NEAR(decoded->toneFrequency(0, 0.1, 0.9), 440.0, 2.0) << encoder;
        }
        QFile info(finished.url + "/info.json");
        ASSERT_TRUE(info.open(QIODevice::ReadOnly));
        const QJsonObject json = QJsonDocument::fromJson(info.readAll()).object();
        EXPECT_EQ(json.value("encoder").toString(), encoder);
        EXPECT_DOUBLE_EQ(json.value("micVol").toDouble(), 0.5);
        QDir(finished.url).removeRecursively(); // the next encoder's package has the same second
    }
}

// Without the microphone there is no "mic." file, and finishing still reports the package.
TEST(AudioPackageRecorder, WithoutMicrophoneThePackageIsStillReported) {
    ScratchFolder folder;
    RecordingConfiguration configuration(RecordingMode::systemAudio(),
                                         QString::fromStdString(folder.path().string()));
    configuration.recordSystemAudio = true;
    configuration.recordMicrophone = false;
    const Finished finished = recordPackage(configuration);
    ASSERT_FALSE(finished.error);
    EXPECT_TRUE(QFileInfo::exists(finished.url + "/sys.m4a"));
    EXPECT_FALSE(QFileInfo::exists(finished.url + "/mic.m4a"));
    EXPECT_TRUE(QFileInfo::exists(finished.url + "/info.json"));
}

// The folder's name carries the date as the locale writes it, but never a "/" or a ":".
TEST(AudioPackageRecorder, PackageNameHasNoSlashOrColonInAnyLocale) {
    const QDateTime date(QDate(2026, 11, 25), QTime(14, 3, 9));
    for (const char* name : {"en_US", "de_DE", "fr_FR", "ja_JP", "C"}) {
        const QString folder = AudioPackageRecorder::packageName(date, QLocale(name));
        EXPECT_TRUE(folder.startsWith("Audio Recording ")) << folder.toStdString();
        EXPECT_TRUE(folder.endsWith(".vxa")) << folder.toStdString();
        EXPECT_FALSE(folder.contains('/')) << folder.toStdString();
        EXPECT_FALSE(folder.contains(':')) << folder.toStdString();
        EXPECT_TRUE(folder.contains("09")) << folder.toStdString(); // the seconds are there
    }
}
