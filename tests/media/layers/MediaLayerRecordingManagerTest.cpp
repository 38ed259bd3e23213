#include "media/layers/MediaLayerRecordingManager.h"

#include "core/recording/engines/MediaWriterEngine.h"
#include "media/layers/LayerRecordingError.h"
#include "media/layers/RecordingPackageManifest.h"

#include "support/TaskRunner.h"

#include <QCoro/QCoroTask>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

// A writer that leaves a small file where it was told to, once finished: the manager's part is
// which writers it finishes and what it then finds on disk, not the encoding.
class FileWriter final : public MediaWriterEngine {
public:
    void configure(const WriterConfiguration& configuration) override {
        m_path = QString::fromStdString(configuration.outputURL.string());
    }
    void startWriting() override { QFile(m_path).open(QIODevice::WriteOnly); }
    void startSession(MediaTime at) override { m_start = at; }
    bool isWriting() const override { return true; }
    bool hasFailed() const override { return false; }
    bool appendVideoBuffer(const VideoFrame&) override { return true; }
    bool appendVideoPixelBuffer(const VideoFrame&, MediaTime) override { return true; }
    bool appendAudioBuffer(const AudioBuffer&, int, bool) override { return true; }
    void addTimeOffset(MediaTime) override {}
    std::optional<MediaTime> sessionStartTimeValue() const override { return m_start; }
    MediaTime currentTimeOffset() const override { return MediaTime::zero(); }
    std::optional<MediaTime> lastPresentationTime() const override { return m_start; }
    QCoro::Task<QString> finishWriting() override {
        QFile file(m_path);
        file.open(QIODevice::WriteOnly);
        file.write("movie");
        co_return m_path;
    }
    void cancel() override { QFile::remove(m_path); }

private:
    QString m_path;
    std::optional<MediaTime> m_start;
};

WriterConfiguration writingTo(const std::optional<QString>& path) {
    WriterConfiguration configuration;
    configuration.outputURL = path.value_or(QString()).toStdString();
    return configuration;
}

PackageConfiguration recorded() {
    PackageConfiguration configuration;
    configuration.resolution = Size{1920, 1080};
    configuration.frameRate = 30;
    configuration.duration = 3.0;
    configuration.contentOrigin = Point{0, 0};
    return configuration;
}

// Finalizes on the test's event loop, bounded, passing on what it throws.
RecordingPackage finalize(MediaLayerRecordingManager& manager) {
    RecordingPackage result;
    auto body = [](MediaLayerRecordingManager& m, RecordingPackage& out) -> QCoro::Task<void> {
        out = co_await m.finalizeLayers(recorded());
    };
    const TaskOutcome outcome = runTask(body(manager, result));
    if (outcome.error)
        std::rethrow_exception(outcome.error);
    if (!outcome.finished)
        throw std::runtime_error("finalizeLayers did not finish");
    return result;
}

QStringList filesIn(const QString& folder) {
    return QDir(folder).entryList(QDir::Files | QDir::Hidden, QDir::Name);
}

// A finished package with both layers, made through the manager.
RecordingPackage finishedPackage(const QString& base) {
    MediaLayerRecordingManager manager([] { return std::make_unique<FileWriter>(); });
    manager.createRecordingPackage(base);
    manager.startLayerRecording(writingTo(manager.fileURL(RecordingLayer::screen)),
                                writingTo(manager.fileURL(RecordingLayer::camera)), {});
    manager.getScreenWriter()->startSession(MediaTime::make(1, 1));
    manager.getCameraWriter()->startSession(MediaTime::make(1, 1));
    return finalize(manager);
}

void writeManifest(const QString& folder, const std::string& text,
                   const char* name = RecordingPackageManifest::fileName) {
    QFile file(QDir(folder).filePath(QString::fromLatin1(name)));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text.data(), qint64(text.size()));
}

template <typename Call>
std::optional<LayerRecordingError::Kind> layerErrorOf(Call call) {
    try {
        call();
    } catch (const LayerRecordingError& error) {
        return error.kind();
    }
    return std::nullopt;
}

} // namespace

// A camera that never delivered leaves no camera file and no camera key; the manifest is the
// last file written and reads back as what was finalized. Finalizing again is refused.
TEST(MediaLayerRecordingManagerTest, ManifestListsOnlyWhatExists) {
    QTemporaryDir base;
    MediaLayerRecordingManager manager([] { return std::make_unique<FileWriter>(); });
    const RecordingPackage created = manager.createRecordingPackage(base.path());
    EXPECT_TRUE(QFileInfo(created.packageURL).fileName().startsWith("Recording-"));
    EXPECT_FALSE(QFileInfo::exists(created.packageURL + "/.package.json"));
    manager.startLayerRecording(writingTo(manager.fileURL(RecordingLayer::screen)),
                                writingTo(manager.fileURL(RecordingLayer::camera)), {});
    EXPECT_EQ(layerErrorOf([&] {
                  manager.startLayerRecording(writingTo(created.screenVideoURL), std::nullopt, {});
              }),
              LayerRecordingError::Kind::alreadyRecording);
    manager.getScreenWriter()->startSession(MediaTime::make(5, 1));

    const RecordingPackage finished = finalize(manager);
    EXPECT_FALSE(finished.cameraVideoURL.has_value());
    EXPECT_EQ(filesIn(created.packageURL), QStringList({".package.json", ".screen.mov"}));
    QFile manifest(created.packageURL + "/.package.json");
    ASSERT_TRUE(manifest.open(QIODevice::ReadOnly));
    const QJsonObject json = QJsonDocument::fromJson(manifest.readAll()).object();
    EXPECT_FALSE(json.contains("cameraVideoURL"));
    EXPECT_TRUE(json.value("screenVideoURL").toString().startsWith("file:///"));

    const RecordingPackage loaded = MediaLayerRecordingManager::loadPackage(created.packageURL);
    EXPECT_EQ(loaded.configuration, recorded());
    EXPECT_EQ(loaded.screenVideoURL, finished.screenVideoURL);
    EXPECT_EQ(loaded.createdAt.toMSecsSinceEpoch(), finished.createdAt.toMSecsSinceEpoch());
    EXPECT_EQ(layerErrorOf([&] { finalize(manager); }), LayerRecordingError::Kind::notRecording);
}

// Cancel takes the whole folder away; without a package it only logs.
TEST(MediaLayerRecordingManagerTest, CancelRemovesThePackage) {
    QTemporaryDir base;
    MediaLayerRecordingManager idle([] { return std::make_unique<FileWriter>(); });
    idle.cancel();
    EXPECT_EQ(layerErrorOf([&] { idle.startLayerRecording({}, std::nullopt, {}); }),
              LayerRecordingError::Kind::packageNotCreated);

    MediaLayerRecordingManager manager([] { return std::make_unique<FileWriter>(); });
    const RecordingPackage created = manager.createRecordingPackage(base.path());
    manager.startLayerRecording(writingTo(created.screenVideoURL), std::nullopt, {});
    manager.cancel();
    EXPECT_FALSE(QFileInfo::exists(created.packageURL));
    EXPECT_FALSE(manager.recordingPackage().has_value());
}

// Reading a package: no manifest, a missing layer, a damaged manifest and a manifest that points
// out of the folder each give their error; the older manifest name still loads; a moved package
// opens where it now is.
TEST(MediaLayerRecordingManagerTest, LoadPackageStaysInsideTheFolder) {
    QTemporaryDir base;
    QDir().mkpath(base.filePath("empty"));
    EXPECT_EQ(
        layerErrorOf([&] { MediaLayerRecordingManager::loadPackage(base.filePath("empty")); }),
        LayerRecordingError::Kind::packageNotFound);

    const RecordingPackage package = finishedPackage(base.filePath("a"));
    const QString folder = package.packageURL;
    const std::string good = RecordingPackageManifest::encode(package);

    // Moved: the manifest still names the old place, the files are found in the new one.
    const QString moved = base.filePath("moved");
    ASSERT_TRUE(QDir().rename(folder, moved));
    const RecordingPackage reopened = MediaLayerRecordingManager::loadPackage(moved);
    EXPECT_EQ(reopened.cameraVideoURL, moved + "/.camera.mov");

    QFile::remove(moved + "/.camera.mov");
    EXPECT_EQ(layerErrorOf([&] { MediaLayerRecordingManager::loadPackage(moved); }),
              LayerRecordingError::Kind::missingFile);

    writeManifest(moved, good.substr(0, good.size() / 2));
    EXPECT_THROW(MediaLayerRecordingManager::loadPackage(moved), ManifestError);

    // A manifest naming a file beside the package, or a layer that is a link leading out.
    const QString outside = base.filePath("outside.mov");
    QFile(outside).open(QIODevice::WriteOnly);
    RecordingPackage escaping = package;
    escaping.cameraVideoURL.reset();
    escaping.screenVideoURL = folder + "/../../outside.mov";
    writeManifest(moved, RecordingPackageManifest::encode(escaping));
    EXPECT_EQ(layerErrorOf([&] { MediaLayerRecordingManager::loadPackage(moved); }),
              LayerRecordingError::Kind::missingFile);
    escaping.screenVideoURL = package.screenVideoURL;
    writeManifest(moved, RecordingPackageManifest::encode(escaping));
    QFile::remove(moved + "/.screen.mov");
    ASSERT_TRUE(QFile::link(outside, moved + "/.screen.mov"));
    EXPECT_EQ(layerErrorOf([&] { MediaLayerRecordingManager::loadPackage(moved); }),
              LayerRecordingError::Kind::missingFile);

    // The older, visible manifest name; the hidden one wins when both are there.
    QFile::remove(moved + "/.screen.mov");
    QFile(moved + "/.screen.mov").open(QIODevice::WriteOnly);
    QFile::remove(moved + "/.package.json");
    writeManifest(moved, RecordingPackageManifest::encode(escaping),
                  RecordingPackageManifest::legacyFileName);
    EXPECT_NO_THROW(MediaLayerRecordingManager::loadPackage(moved));
    writeManifest(moved, "{}");
    EXPECT_THROW(MediaLayerRecordingManager::loadPackage(moved), ManifestError);
}
