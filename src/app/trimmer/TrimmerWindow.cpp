#include "app/trimmer/TrimmerWindow.h"

#include "app/trimmer/PreviewRenderer.h"
#include "app/trimmer/PreviewWidget.h"
#include "app/trimmer/SessionEditCommand.h"
#include "app/trimmer/TimelineStrip.h"
#include "app/trimmer/TrimmerAutosave.h"
#include "app/trimmer/TrimmerInspector.h"
#include "app/trimmer/TrimmerPlayer.h"
#include "app/trimmer/TrimmerStyle.h"
#include "app/trimmer/TrimmerVolumeControl.h"
#include "core/editing/ZoomSegmentEditor.h"
#include "core/support/Log.h"
#include "exporter/AdvancedVideoExporter.h"
#include "media/WaveformGenerator.h"

#include <QApplication>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QShortcut>
#include <QSlider>
#include <QThreadPool>
#include <QUndoStack>
#include <QVBoxLayout>

#include <cmath>

namespace {
// "1:05.25": minutes, seconds and hundredths.
QString formatTime(double seconds) {
    const long long hundredths = std::llround(std::max(0.0, seconds) * 100.0);
    return QStringLiteral("%1:%2.%3")
        .arg(hundredths / 6000)
        .arg((hundredths / 100) % 60, 2, 10, QLatin1Char('0'))
        .arg(hundredths % 100, 2, 10, QLatin1Char('0'));
}

// The scrubber counts milliseconds.
constexpr double sliderScale = 1000.0;

QPushButton* makeButton(const QString& text, const QString& tip, QWidget* parent) {
    auto* button = new QPushButton(text, parent);
    button->setToolTip(tip);
    button->setFocusPolicy(Qt::NoFocus);
    button->setCursor(Qt::PointingHandCursor);
    return button;
}
} // namespace

std::unique_ptr<TrimmerWindow> TrimmerWindow::open(const QString& path, QString& error) {
    auto session = std::make_unique<VideoTrimmerViewModel>();
    if (const std::optional<QString> failure = session->loadVideo(path)) {
        error = *failure;
        return nullptr;
    }
    std::optional<std::filesystem::path> camera;
    if (session->cameraURL())
        camera = session->cameraURL()->toStdString();
    std::string reason;
    auto renderer = PreviewRenderer::open(session->fileURL()->toStdString(), camera, reason);
    if (!renderer) {
        error = QStringLiteral("Failed to load asset: ") + QString::fromStdString(reason);
        return nullptr;
    }
    // The editor shows the styled result: the background is on from the start.
    session->backgroundEnabled = true;
    const std::optional<double> playhead = TrimmerAutosave::restore(*session);
    const Size cameraSize = renderer->cameraNaturalSize();
    auto player =
        std::make_unique<TrimmerPlayer>(std::move(renderer), session->videoDuration().seconds());
    player->openAudio(session->fileURL()->toStdString());
    if (playhead)
        player->seek(*playhead);
    return std::unique_ptr<TrimmerWindow>(
        new TrimmerWindow(std::move(session), std::move(player), cameraSize));
}

TrimmerWindow* TrimmerWindow::openOrExplain(const QString& path, QWidget* dialogParent) {
    QString error;
    std::unique_ptr<TrimmerWindow> window = open(path, error);
    if (!window) {
        logLine("❌ Could not open {} in the trimmer: {}", path.toStdString(), error.toStdString());
        QMessageBox::critical(dialogParent, QObject::tr("Cannot open recording"),
                              QObject::tr("“%1” cannot be opened for editing (%2). Choose a "
                                          "finished recording: a movie file or a recording "
                                          "package.")
                                  .arg(QFileInfo(path).fileName(), error));
        return nullptr;
    }
    window->setAttribute(Qt::WA_DeleteOnClose);
    window->show();
    return window.release();
}

TrimmerWindow::TrimmerWindow(std::unique_ptr<VideoTrimmerViewModel> session,
                             std::unique_ptr<TrimmerPlayer> player, Size cameraNaturalSize)
    : m_session(std::move(session)), m_player(std::move(player)),
      m_cameraNaturalSize(cameraNaturalSize) {
    setObjectName(QStringLiteral("TrimmerWindow"));
    setStyleSheet(trimmer::styleSheet());
    setAttribute(Qt::WA_StyledBackground);
    const QString source = m_session->fileURL().value_or(QString());
    // A package's screen movie is hidden inside it: the window is named after the package.
    QString name = QFileInfo(source).fileName();
    if (name.startsWith(QLatin1Char('.')))
        name = QFileInfo(QFileInfo(source).absolutePath()).fileName();
    setWindowTitle(name + QStringLiteral(" — tavelquiston"));
    resize(1320, 780);
    m_undoStack = new QUndoStack(this);
    buildInterface();
    bindShortcuts();
    refreshSegments();
    refreshTime();
    // A restored playhead was set before the views existed.
    m_timeline->setPlayhead(m_player->position());
    m_scrubber->setValue(int(std::lround(m_player->position() * sliderScale)));
    pushStyleToPreview();
    loadWaveformInBackground();
}

TrimmerWindow::~TrimmerWindow() {
    // The playhead is kept with the edits; a recording only looked at leaves nothing behind.
    if (m_undoStack->count() > 0)
        TrimmerAutosave::save(*m_session, m_player->position());
    // The player's thread delivers into the preview: it stops before the widgets go.
    m_player.reset();
}

void TrimmerWindow::buildInterface() {
    // The editor on the left, the inspector along the right edge.
    auto* root = new QHBoxLayout(this);
    root->setContentsMargins(0, 0, 0, 0);
    root->setSpacing(0);
    auto* layout = new QVBoxLayout();
    layout->setContentsMargins(trimmer::grid * 2, trimmer::grid * 2, trimmer::grid * 2,
                               trimmer::grid * 2);
    layout->setSpacing(trimmer::grid);
    root->addLayout(layout, 1);
    m_inspector = new TrimmerInspector(
        *m_session, m_session->cameraURL().has_value(),
        [this](const QString& text, int mergeId, const std::function<void()>& edit) {
            recordLookEdit(text, mergeId, edit);
        },
        [this](const ZoomSegment& segment) {
            ZoomSegmentEditor& editor = zoomEditor();
            editor.updateZoomSegment(segment);
            m_session->zoomSegments = editor.zoomSegments();
        },
        this);
    root->addWidget(m_inspector);

    m_preview = new PreviewWidget(this);
    layout->addWidget(m_preview, 1);

    // Transport.
    auto* transport = new QHBoxLayout();
    transport->setSpacing(trimmer::grid);
    auto* back = makeButton(QStringLiteral("◀︎❙"), tr("Previous frame (Left)"), this);
    m_playButton = makeButton(QStringLiteral("▶"), tr("Play (Space)"), this);
    m_playButton->setMinimumWidth(48);
    auto* forward = makeButton(QStringLiteral("❙▶︎"), tr("Next frame (Right)"), this);
    m_timeLabel = new QLabel(this);
    // The UI font's digits are of one width, so the time does not jitter as it runs.
    QFont tabular = m_timeLabel->font();
    m_timeLabel->setFont(tabular);
    auto* speed = makeButton(QStringLiteral("1×"), tr("Playback speed (J slower, L faster)"), this);
    speed->setMinimumWidth(48);
    auto* loop = makeButton(tr("Loop"), tr("Play in a loop"), this);
    loop->setCheckable(true);
    m_styledButton =
        makeButton(tr("Styled"), tr("Show the styled result or the plain recording"), this);
    m_styledButton->setCheckable(true);
    m_styledButton->setChecked(true);
    transport->addWidget(back);
    transport->addWidget(m_playButton);
    transport->addWidget(forward);
    transport->addSpacing(trimmer::grid);
    transport->addWidget(m_timeLabel);
    transport->addStretch(1);
    transport->addWidget(new TrimmerVolumeControl(*m_player, this));
    transport->addWidget(speed);
    transport->addWidget(loop);
    transport->addWidget(m_styledButton);
    layout->addLayout(transport);

    m_scrubber = new QSlider(Qt::Horizontal, this);
    m_scrubber->setRange(0, int(std::lround(m_player->duration() * sliderScale)));
    m_scrubber->setFocusPolicy(Qt::NoFocus);
    layout->addWidget(m_scrubber);

    m_timeline = new TimelineStrip(this);
    m_timeline->setDuration(m_player->duration());
    layout->addWidget(m_timeline);

    // Edits.
    auto* actions = new QHBoxLayout();
    actions->setSpacing(trimmer::grid);
    auto* split = makeButton(tr("Split"), tr("Split at the playhead (S)"), this);
    auto* remove =
        makeButton(tr("Remove"), tr("Remove or restore the selected part (Delete)"), this);
    remove->setObjectName(QStringLiteral("destructive"));
    m_statusLabel = new QLabel(this);
    m_statusLabel->setProperty("secondary", true);
    actions->addWidget(split);
    actions->addWidget(remove);
    actions->addSpacing(trimmer::grid);
    actions->addWidget(m_statusLabel, 1);
    layout->addLayout(actions);

    connect(back, &QPushButton::clicked, this, [this] { m_player->step(-1); });
    connect(forward, &QPushButton::clicked, this, [this] { m_player->step(1); });
    connect(m_playButton, &QPushButton::clicked, this, [this] { m_player->togglePlay(); });
    connect(speed, &QPushButton::clicked, this, [this] {
        const double rate = m_player->rate();
        m_player->setRate(rate >= 2.0 ? 0.5 : rate < 1.0 ? 1.0 : rate + 0.5);
    });
    connect(m_player.get(), &TrimmerPlayer::rateChanged, speed,
            [speed](double rate) { speed->setText(QStringLiteral("%1×").arg(rate)); });
    connect(loop, &QPushButton::toggled, this, [this](bool on) { m_player->setLooping(on); });
    connect(m_styledButton, &QPushButton::toggled, this,
            [this](bool on) { m_player->setStyled(on); });
    connect(split, &QPushButton::clicked, this, [this] { splitAtPlayhead(); });
    connect(remove, &QPushButton::clicked, this, [this] { toggleSelectedSegment(); });
    connect(m_inspector, &TrimmerInspector::exportRequested, this, [this] { startExport(); });
    connect(m_inspector, &TrimmerInspector::cancelRequested, this,
            [this] { m_session->cancelExport(); });

    connect(m_scrubber, &QSlider::sliderPressed, this, [this] { m_scrubbing = true; });
    connect(m_scrubber, &QSlider::sliderMoved, this,
            [this](int value) { m_player->scrub(value / sliderScale); });
    connect(m_scrubber, &QSlider::sliderReleased, this, [this] {
        m_scrubbing = false;
        m_player->endScrub(m_scrubber->value() / sliderScale);
    });
    connect(m_timeline, &TimelineStrip::segmentSelected, this,
            [this] { m_zoomSelectedLast = false; });
    connect(m_timeline, &TimelineStrip::zoomSegmentSelected, this, [this](const QUuid& id) {
        m_zoomSelectedLast = true;
        m_inspector->setSelectedZoom(id);
    });
    connect(m_timeline, &TimelineStrip::zoomDragStarted, this,
            [this] { m_zoomBeforeDrag = m_session->zoomSegments; });
    connect(m_timeline, &TimelineStrip::zoomDragged, this,
            [this](const QUuid& id, TimelineStrip::ZoomGrip grip, double time) {
                ZoomSegmentEditor& editor = zoomEditor();
                if (grip == TimelineStrip::ZoomGrip::move)
                    editor.moveSegment(id, time);
                else if (grip == TimelineStrip::ZoomGrip::start)
                    editor.resizeSegmentStart(id, time);
                else
                    editor.resizeSegmentEnd(id, time);
                m_session->zoomSegments = editor.zoomSegments();
                refreshSegments();
            });
    connect(m_timeline, &TimelineStrip::zoomDragEnded, this, [this] {
        if (m_session->zoomSegments == m_zoomBeforeDrag)
            return;
        SessionEditCommand::Snapshot before = SessionEditCommand::take(*m_session);
        before.zoomSegments = m_zoomBeforeDrag;
        m_undoStack->push(new SessionEditCommand(tr("Move zoom"), *m_session, std::move(before),
                                                 SessionEditCommand::take(*m_session),
                                                 [this] { editsChanged(); }));
        editsChanged();
    });
    connect(m_timeline, &TimelineStrip::scrubbed, m_player.get(), &TrimmerPlayer::scrub);
    connect(m_timeline, &TimelineStrip::scrubEnded, m_player.get(), &TrimmerPlayer::endScrub);

    connect(m_player.get(), &TrimmerPlayer::positionChanged, this, [this](double seconds) {
        m_timeline->setPlayhead(seconds);
        if (!m_scrubbing) {
            const QSignalBlocker block(m_scrubber);
            m_scrubber->setValue(int(std::lround(seconds * sliderScale)));
        }
        refreshTime();
    });
    connect(m_player.get(), &TrimmerPlayer::frameShown, this,
            [this] { m_preview->setFrame(m_player->currentFrame()); });
    connect(m_player.get(), &TrimmerPlayer::playingChanged, this, [this](bool playing) {
        m_playButton->setText(playing ? QStringLiteral("❚❚") : QStringLiteral("▶"));
        m_playButton->setToolTip(playing ? tr("Pause (Space)") : tr("Play (Space)"));
    });

    connect(m_session.get(), &VideoTrimmerViewModel::exportProgressChanged, this,
            [this](double progress) { m_inspector->setExportProgress(progress); });
    connect(m_session.get(), &VideoTrimmerViewModel::isExportingChanged, m_inspector,
            &TrimmerInspector::setExporting);
}

void TrimmerWindow::bindShortcuts() {
    auto bind = [this](const QKeySequence& keys, auto action) {
        auto* shortcut = new QShortcut(keys, this);
        shortcut->setContext(Qt::WindowShortcut);
        connect(shortcut, &QShortcut::activated, this, action);
    };
    bind(QKeySequence(Qt::Key_Space), [this] { m_player->togglePlay(); });
    bind(QKeySequence(Qt::Key_K), [this] { m_player->pause(); });
    bind(QKeySequence(Qt::Key_M), [this] { m_player->setMuted(!m_player->isMuted()); });
    // L plays, and faster when pressed again while playing; J slows down, K stops.
    bind(QKeySequence(Qt::Key_L), [this] {
        if (m_player->isPlaying())
            m_player->setRate(m_player->rate() * 2.0);
        m_player->play();
    });
    bind(QKeySequence(Qt::Key_J), [this] { m_player->setRate(m_player->rate() / 2.0); });
    bind(QKeySequence(Qt::Key_Left), [this] { m_player->step(-1); });
    bind(QKeySequence(Qt::Key_Right), [this] { m_player->step(1); });
    bind(QKeySequence(Qt::Key_Home), [this] { m_player->seek(0.0); });
    bind(QKeySequence(Qt::Key_End), [this] { m_player->seek(m_player->duration()); });
    bind(QKeySequence(Qt::Key_S), [this] { splitAtPlayhead(); });
    // Delete acts on whichever kind of segment was selected last.
    const auto deleteSelected = [this] {
        m_zoomSelectedLast ? deleteSelectedZoom() : toggleSelectedSegment();
    };
    bind(QKeySequence(Qt::Key_Delete), deleteSelected);
    bind(QKeySequence(Qt::Key_Backspace), deleteSelected);
    bind(QKeySequence(Qt::Key_Z), [this] { addZoomAtPlayhead(); });
    bind(QKeySequence(Qt::CTRL | Qt::Key_E), [this] { startExport(); });
    bind(QKeySequence(Qt::CTRL | Qt::Key_Z), [this] { m_undoStack->undo(); });
    bind(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z), [this] { m_undoStack->redo(); });
}

void TrimmerWindow::refreshSegments() {
    std::vector<TimelineStrip::Bar> zooms;
    for (const ZoomSegment& segment : m_session->zoomSegments)
        zooms.push_back({segment.id, segment.startTime, segment.endTime, segment.zoomLevel, false});
    m_timeline->setZoomSegments(std::move(zooms));
    std::vector<TimelineStrip::Bar> cuts;
    for (const VideoSegment& segment : m_session->segments())
        cuts.push_back({segment.id, segment.startTimeInSeconds(), segment.endTimeInSeconds(), 1.0,
                        segment.isMarkedForDeletion});
    m_timeline->setCutSegments(std::move(cuts));
    const auto& segments = m_session->segments();
    m_inspector->setHasRemovedParts(
        std::any_of(segments.begin(), segments.end(),
                    [](const VideoSegment& segment) { return segment.isMarkedForDeletion; }));
    m_player->setCutSegments(segments);
}

void TrimmerWindow::refreshTime() {
    m_timeLabel->setText(formatTime(m_player->position()) + QStringLiteral("  /  ") +
                         formatTime(m_player->duration()));
}

void TrimmerWindow::pushStyleToPreview() {
    const AdvancedExportArguments arguments =
        m_session->styledExportArguments(m_session->exportStyle);
    m_player->setCompositorSettings(AdvancedVideoExporter::compositorSettings(
        arguments, m_session->naturalSize(), m_cameraNaturalSize));
}

void TrimmerWindow::loadWaveformInBackground() {
    const std::filesystem::path movie = m_session->fileURL()->toStdString();
    const double duration = m_player->duration();
    QPointer<TrimmerWindow> self(this);
    QThreadPool::globalInstance()->start([self, movie, duration] {
        std::vector<float> values = WaveformGenerator::generateWaveform(movie, duration);
        QMetaObject::invokeMethod(
            qApp,
            [self, values = std::move(values)]() mutable {
                if (self)
                    self->m_timeline->setWaveform(std::move(values));
            },
            Qt::QueuedConnection);
    });
}

bool TrimmerWindow::recordEdit(const QString& text, const std::function<bool()>& edit) {
    SessionEditCommand::Snapshot before = SessionEditCommand::take(*m_session);
    if (!edit())
        return false;
    m_undoStack->push(new SessionEditCommand(text, *m_session, std::move(before),
                                             SessionEditCommand::take(*m_session),
                                             [this] { editsChanged(); }));
    editsChanged();
    return true;
}

void TrimmerWindow::recordLookEdit(const QString& text, int mergeId,
                                   const std::function<void()>& edit) {
    SessionEditCommand::Snapshot before = SessionEditCommand::take(*m_session);
    edit();
    SessionEditCommand::Snapshot after = SessionEditCommand::take(*m_session);
    if (after.look == before.look && after.zoomSegments == before.zoomSegments)
        return;
    m_undoStack->push(new SessionEditCommand(
        text, *m_session, std::move(before), std::move(after), [this] { editsChanged(); },
        mergeId));
    editsChanged();
}

void TrimmerWindow::editsChanged() {
    refreshSegments();
    m_inspector->setSelectedZoom(m_timeline->selectedZoomSegment());
    // The zoom segments are part of the styled frame.
    pushStyleToPreview();
    TrimmerAutosave::save(*m_session, m_player->position());
}

ZoomSegmentEditor& TrimmerWindow::zoomEditor() {
    if (!m_zoomEditor)
        m_zoomEditor = std::make_unique<ZoomSegmentEditor>();
    RecordingMetadata document = m_session->metadata().value_or(RecordingMetadata{});
    if (!m_session->metadata()) {
        document.duration = m_session->videoDuration().seconds();
        document.resolution = m_session->naturalSize();
    }
    document.zoomSegments = m_session->zoomSegments;
    m_zoomEditor->setMetadata(document);
    m_zoomEditor->setVideoDuration(m_session->videoDuration().seconds());
    return *m_zoomEditor;
}

bool TrimmerWindow::addZoomAtPlayhead() {
    const double at = m_player->position();
    return recordEdit(tr("Add zoom"), [this, at] {
        ZoomSegmentEditor& editor = zoomEditor();
        editor.addZoomSegment(at);
        if (editor.zoomSegments().size() == m_session->zoomSegments.size())
            return false;
        m_session->zoomSegments = editor.zoomSegments();
        return true;
    });
}

bool TrimmerWindow::deleteSelectedZoom() {
    const std::optional<QUuid> selected = m_timeline->selectedZoomSegment();
    if (!selected)
        return false;
    const bool removed = recordEdit(tr("Delete zoom"), [this, id = *selected] {
        ZoomSegmentEditor& editor = zoomEditor();
        editor.deleteZoomSegment(id);
        if (editor.zoomSegments().size() == m_session->zoomSegments.size())
            return false;
        m_session->zoomSegments = editor.zoomSegments();
        return true;
    });
    if (removed)
        m_timeline->setSelectedZoomSegment(std::nullopt);
    return removed;
}

bool TrimmerWindow::splitAtPlayhead() {
    const double at = m_player->position();
    return recordEdit(tr("Split"), [this, at] { return m_session->splitSegment(at); });
}

bool TrimmerWindow::toggleSelectedSegment() {
    const std::optional<QUuid> selected = m_timeline->selectedSegment();
    if (!selected)
        return false;
    return recordEdit(tr("Remove part"), [this, id = *selected] {
        if (!m_session->cutSegmentList().segment(id))
            return false;
        m_session->toggleSegment(id);
        return true;
    });
}

void TrimmerWindow::startExport() {
    if (m_session->isExporting())
        return;
    QPointer<TrimmerWindow> self(this);
    auto done = [self](VideoTrimmerViewModel::ExportOutcome outcome) {
        if (!self)
            return;
        self->m_inspector->showExportOutcome(outcome);
        emit self->exportFinished(outcome);
    };
    const auto& segments = m_session->segments();
    const bool cut = std::any_of(segments.begin(), segments.end(),
                                 [](const VideoSegment& s) { return s.isMarkedForDeletion; });
    if (cut)
        m_session->exportMergedVideo(m_session->exportStyle, done);
    else
        m_session->exportAdvancedVideo(m_session->exportStyle, done);
}
