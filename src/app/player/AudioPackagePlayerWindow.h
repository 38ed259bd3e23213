#pragma once

#include <QWidget>

#include <memory>

class AudioLevelMeter;
class AudioPackagePlayback;
class QAudioSink;
class QCheckBox;
class QIODevice;
class QLabel;
class QPushButton;
class QSlider;
class QTimer;

// The audio package player: plays a ".vxa" package's two sources together through the audio
// output, a volume slider and a level meter for each (the package's volumes to start, saved back
// as they change), a position slider that seeks, and "Export Mix" to one file beside the package
// in the background. Thread: main; the mix-down runs on a worker and reports back here.
class AudioPackagePlayerWindow final : public QWidget {
    Q_OBJECT
public:
    explicit AudioPackagePlayerWindow(std::shared_ptr<AudioPackagePlayback> playback,
                                      QWidget* parent = nullptr);
    ~AudioPackagePlayerWindow() override;

    AudioPackagePlayback& playback() { return *m_playback; }
    bool isPlaying() const { return m_playing; }
    void play();
    void pause();
    void exportMix();

signals:
    // After "Export Mix": the file, or an empty path and the error.
    void exportFinished(const QString& path, const QString& error);

private:
    QWidget* makeSourceRow(const QString& title, bool present, float volume, QSlider*& slider,
                           AudioLevelMeter*& meter);
    void refresh();
    void showExportResult(const QString& path, const QString& error);

    // Shared with a mix-down still running after the window closed.
    std::shared_ptr<AudioPackagePlayback> m_playback;
    std::unique_ptr<QIODevice> m_device;
    QAudioSink* m_sink = nullptr;
    QPushButton* m_playButton = nullptr;
    QLabel* m_timeLabel = nullptr;
    QSlider* m_positionSlider = nullptr;
    QSlider* m_sysSlider = nullptr;
    QSlider* m_micSlider = nullptr;
    AudioLevelMeter* m_sysMeter = nullptr;
    AudioLevelMeter* m_micMeter = nullptr;
    QCheckBox* m_normalize = nullptr;
    QPushButton* m_exportButton = nullptr;
    QLabel* m_status = nullptr;
    QTimer* m_timer = nullptr;
    bool m_playing = false;
};
