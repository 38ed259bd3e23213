#include "app/player/AudioPackagePlayerWindow.h"

#include "app/player/AudioLevelMeter.h"
#include "core/async/DetachedTask.h"
#include "media/AudioPackagePlayback.h"

#include <QAudioDevice>
#include <QAudioFormat>
#include <QAudioSink>
#include <QCheckBox>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QIODevice>
#include <QLabel>
#include <QMediaDevices>
#include <QPointer>
#include <QPushButton>
#include <QSlider>
#include <QTimer>
#include <QVBoxLayout>

#include <cmath>

namespace {

// What the audio output pulls from: the playback's mix as interleaved 32-bit float stereo.
// Thread: the audio output's (read only); the playback guards itself.
class PlaybackDevice final : public QIODevice {
public:
    explicit PlaybackDevice(AudioPackagePlayback& playback) : m_playback(playback) {
        open(QIODevice::ReadOnly);
    }
    bool isSequential() const override { return true; }

protected:
    qint64 readData(char* data, qint64 size) override {
        const int frames = int(size / qint64(2 * sizeof(float)));
        return qint64(m_playback.read(reinterpret_cast<float*>(data), frames)) * 2 *
               qint64(sizeof(float));
    }
    qint64 writeData(const char*, qint64) override { return -1; }

private:
    AudioPackagePlayback& m_playback;
};

QString clockText(double seconds) {
    const int whole = int(seconds);
    return QStringLiteral("%1:%2").arg(whole / 60).arg(whole % 60, 2, 10, QLatin1Char('0'));
}

constexpr auto playerStyleSheet = R"(
AudioPackagePlayerWindow { background: #1c1d21; }
QLabel { color: #ecedf0; font-size: 13px; }
QLabel#secondary { color: #9a9ca5; font-size: 11px; }
QWidget#card { background: #26272d; border: 1px solid #34353c; border-radius: 10px; }
QPushButton { color: #ecedf0; background: #26272d; border: 1px solid #34353c; border-radius: 6px;
              padding: 6px 16px; }
QPushButton#primary { background: #5b8cff; border: none; }
QPushButton:disabled { color: #9a9ca5; }
QCheckBox { color: #ecedf0; }
QSlider::groove:horizontal { height: 4px; background: #34353c; border-radius: 2px; }
QSlider::sub-page:horizontal { background: #5b8cff; border-radius: 2px; }
QSlider::handle:horizontal { width: 14px; margin: -5px 0; border-radius: 7px; background: #ecedf0; }
)";

} // namespace

AudioPackagePlayerWindow::AudioPackagePlayerWindow(std::shared_ptr<AudioPackagePlayback> playback,
                                                   QWidget* parent)
    : QWidget(parent), m_playback(std::move(playback)) {
    setWindowTitle(QString::fromStdString(m_playback->package().filename().string()));
    setStyleSheet(QString::fromLatin1(playerStyleSheet));
    setMinimumWidth(420);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(16);

    auto* transport = new QHBoxLayout();
    m_playButton = new QPushButton(tr("Play"), this);
    m_playButton->setObjectName(QStringLiteral("primary"));
    m_playButton->setToolTip(tr("Play or pause (Space)"));
    m_playButton->setShortcut(Qt::Key_Space);
    connect(m_playButton, &QPushButton::clicked, this, [this] { m_playing ? pause() : play(); });
    m_positionSlider = new QSlider(Qt::Horizontal, this);
    m_positionSlider->setObjectName(QStringLiteral("position"));
    m_positionSlider->setRange(0, int(std::lround(m_playback->duration() * 1000)));
    connect(m_positionSlider, &QSlider::valueChanged, this, [this](int milliseconds) {
        // Only a move by the person seeks; the timer's own updates are under blockSignals.
        m_playback->seek(milliseconds / 1000.0);
    });
    m_timeLabel = new QLabel(this);
    // Figures of one width, so the running time does not jitter (Qt 6.4 has no "tnum").
    m_timeLabel->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    transport->addWidget(m_playButton);
    transport->addWidget(m_positionSlider, 1);
    transport->addWidget(m_timeLabel);
    layout->addLayout(transport);

    auto* sources = new QWidget(this);
    sources->setObjectName(QStringLiteral("card"));
    auto* sourcesLayout = new QVBoxLayout(sources);
    sourcesLayout->setContentsMargins(16, 8, 16, 8);
    sourcesLayout->addWidget(makeSourceRow(tr("System audio"), m_playback->hasSystemAudio(),
                                           m_playback->sysVolume(), m_sysSlider, m_sysMeter));
    sourcesLayout->addWidget(makeSourceRow(tr("Microphone"), m_playback->hasMicrophone(),
                                           m_playback->micVolume(), m_micSlider, m_micMeter));
    m_sysSlider->setObjectName(QStringLiteral("sysVolume"));
    m_micSlider->setObjectName(QStringLiteral("micVolume"));
    auto saveVolume = [this](bool saved) {
        if (!saved)
            m_status->setText(tr("⚠️ The volumes could not be saved to info.json"));
    };
    connect(m_sysSlider, &QSlider::valueChanged, this, [this, saveVolume](int percent) {
        saveVolume(m_playback->setSysVolume(percent / 100.f));
    });
    connect(m_micSlider, &QSlider::valueChanged, this, [this, saveVolume](int percent) {
        saveVolume(m_playback->setMicVolume(percent / 100.f));
    });
    layout->addWidget(sources);

    auto* exportRow = new QHBoxLayout();
    m_normalize = new QCheckBox(tr("Normalize loudness (-16 LUFS)"), this);
    m_exportButton = new QPushButton(tr("Export Mix"), this);
    m_exportButton->setToolTip(tr("Mix both sources into one file beside the package (Ctrl+E)"));
    m_exportButton->setShortcut(QKeySequence(QStringLiteral("Ctrl+E")));
    connect(m_exportButton, &QPushButton::clicked, this, &AudioPackagePlayerWindow::exportMix);
    exportRow->addWidget(m_normalize);
    exportRow->addStretch(1);
    exportRow->addWidget(m_exportButton);
    layout->addLayout(exportRow);
    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("secondary"));
    m_status->setWordWrap(true);
    layout->addWidget(m_status);

    m_timer = new QTimer(this);
    m_timer->setInterval(33);
    connect(m_timer, &QTimer::timeout, this, &AudioPackagePlayerWindow::refresh);
    m_timer->start();
    refresh();
}

AudioPackagePlayerWindow::~AudioPackagePlayerWindow() {
    // The output reads through m_device from the playback: stop it before either goes.
    if (m_sink) {
        m_sink->stop();
        delete m_sink;
        m_sink = nullptr;
    }
}

QWidget* AudioPackagePlayerWindow::makeSourceRow(const QString& title, bool present, float volume,
                                                 QSlider*& slider, AudioLevelMeter*& meter) {
    auto* row = new QWidget(this);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 8, 0, 8);
    auto* label = new QLabel(present ? title : tr("%1 (not recorded)").arg(title), row);
    label->setMinimumWidth(120);
    slider = new QSlider(Qt::Horizontal, row);
    slider->setRange(0, 200);
    slider->setValue(int(std::lround(volume * 100)));
    slider->setToolTip(tr("Volume of the %1").arg(title.toLower()));
    meter = new AudioLevelMeter(row);
    layout->addWidget(label);
    layout->addWidget(slider, 2);
    layout->addWidget(meter, 1);
    row->setEnabled(present);
    return row;
}

void AudioPackagePlayerWindow::play() {
    if (m_playing)
        return;
    if (m_playback->position() >= m_playback->duration())
        m_playback->seek(0);
    m_playing = true;
    m_playButton->setText(tr("Pause"));
    if (!m_sink) {
        const QAudioDevice output = QMediaDevices::defaultAudioOutput();
        if (output.isNull()) {
            m_status->setText(tr("⚠️ No audio output to play through"));
            return;
        }
        QAudioFormat format;
        format.setSampleRate(48000);
        format.setChannelCount(2);
        format.setSampleFormat(QAudioFormat::Float);
        m_sink = new QAudioSink(output, format, this);
        m_device = std::make_unique<PlaybackDevice>(*m_playback);
        m_sink->start(m_device.get());
    } else {
        m_sink->resume();
    }
}

void AudioPackagePlayerWindow::pause() {
    m_playing = false;
    m_playButton->setText(tr("Play"));
    if (m_sink)
        m_sink->suspend();
}

void AudioPackagePlayerWindow::refresh() {
    const double position = m_playback->position();
    if (!m_positionSlider->isSliderDown()) {
        const QSignalBlocker blocker(m_positionSlider);
        m_positionSlider->setValue(int(std::lround(position * 1000)));
    }
    m_timeLabel->setText(clockText(position) + QStringLiteral(" / ") +
                         clockText(m_playback->duration()));
    const auto levels = m_playback->levels();
    m_sysMeter->setLevel(m_playing ? levels.system : 0);
    m_micMeter->setLevel(m_playing ? levels.microphone : 0);
    if (m_playing && position >= m_playback->duration())
        pause();
}

void AudioPackagePlayerWindow::exportMix() {
    m_exportButton->setEnabled(false);
    m_status->setText(tr("Exporting the mix…"));
    AudioMixOptions options;
    options.normalize = m_normalize->isChecked();
    [](QPointer<AudioPackagePlayerWindow> self, std::shared_ptr<AudioPackagePlayback> playback,
       AudioMixOptions options) -> QCoro::Task<void> {
        QString path;
        QString error;
        try {
            QCoro::Task<AudioMixResult> mixing = runDetached<AudioMixResult>(
                [playback, options] { return playback->exportMix(options); });
            const AudioMixResult result = co_await mixing;
            path = QString::fromStdString(result.output.string());
            error = result.note ? QString::fromStdString(*result.note) : QString();
        } catch (const std::exception& failure) {
            error = QString::fromUtf8(failure.what());
        }
        if (self)
            self->showExportResult(path, error);
    }(this, m_playback, options);
}

void AudioPackagePlayerWindow::showExportResult(const QString& path, const QString& error) {
    m_exportButton->setEnabled(true);
    if (error.isEmpty() || !path.isEmpty())
        m_status->setText(
            (error.isEmpty() ? QString() : QStringLiteral("⚠️ ") + error + QLatin1Char('\n')) +
            tr("✅ Exported to %1").arg(path));
    else
        m_status->setText(QStringLiteral("❌ ") + error);
    emit exportFinished(path, path.isEmpty() ? error : QString());
}
