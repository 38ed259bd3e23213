#include "app/trimmer/TrimmerInspector.h"

#include "app/DesktopResultOpener.h"
#include "app/trimmer/AspectRatioButton.h"
#include "app/trimmer/PlacementPad.h"
#include "app/trimmer/SwatchButton.h"
#include "app/trimmer/TrimmerStyle.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QColorDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QSignalBlocker>
#include <QSlider>
#include <QTabBar>
#include <QTabWidget>
#include <QVBoxLayout>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace {
constexpr int panelWidth = 336;

QColor qColor(const CodableColor& color) {
    return QColor::fromRgbF(float(color.red), float(color.green), float(color.blue),
                            float(color.alpha));
}

CodableColor codableColor(const QColor& color) {
    return {color.redF(), color.greenF(), color.blueF(), 1.0};
}

// Solid backgrounds offered as swatches; any other comes from the colour dialog.
struct NamedColor {
    const char* name;
    QRgb rgb;
};
constexpr std::array solidColors{NamedColor{"White", 0xffffff},    NamedColor{"Paper", 0xf3efe6},
                                 NamedColor{"Graphite", 0x2b2d33}, NamedColor{"Black", 0x0b0b0d},
                                 NamedColor{"Blue", 0x3d6df2},     NamedColor{"Coral", 0xff6b5e},
                                 NamedColor{"Mint", 0x3ccf91},     NamedColor{"Amber", 0xf5b52e}};

QString percent(double value) {
    return QStringLiteral("%1 %").arg(std::lround(value * 100));
}
QString pixels(double value) {
    return QStringLiteral("%1 px").arg(std::lround(value));
}
QString times(double value) {
    return QStringLiteral("%1×").arg(value, 0, 'f', 2);
}

// x264 and x265 constant quality: lower is better.
constexpr std::array qualityFactors{18, 23, 28};
} // namespace

TrimmerInspector::TrimmerInspector(VideoTrimmerViewModel& session, bool hasCamera,
                                   EditRecorder record, ZoomUpdater updateZoom, QWidget* parent)
    : QWidget(parent), m_session(session), m_hasCamera(hasCamera),
      m_controls(new BoundControls(this, std::move(record))), m_updateZoom(std::move(updateZoom)) {
    setObjectName(QStringLiteral("inspector"));
    setAttribute(Qt::WA_StyledBackground);
    setFixedWidth(panelWidth);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    m_tabs = new QTabWidget(this);
    m_tabs->setDocumentMode(true);
    m_tabs->setUsesScrollButtons(false);
    m_tabs->tabBar()->setExpanding(true);
    layout->addWidget(m_tabs);
    addBackgroundPage();
    addScreenPage();
    if (m_hasCamera)
        addCameraPage();
    addCursorPage();
    addZoomPage();
    addExportPage();
    refresh();
}

QWidget* TrimmerInspector::addPage(const QString& title, QVBoxLayout*& layout) {
    auto* scroll = new QScrollArea(m_tabs);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto* page = new QWidget(scroll);
    page->setObjectName(QStringLiteral("inspectorPage"));
    layout = new QVBoxLayout(page);
    layout->setContentsMargins(trimmer::grid * 2, trimmer::grid * 2, trimmer::grid * 2,
                               trimmer::grid * 2);
    layout->setSpacing(trimmer::grid);
    scroll->setWidget(page);
    m_tabs->addTab(scroll, title);
    return page;
}

void TrimmerInspector::refresh() {
    m_controls->refresh();
}

void TrimmerInspector::addBackgroundPage() {
    QVBoxLayout* layout = nullptr;
    addPage(tr("Background"), layout);
    VideoTrimmerViewModel& s = m_session;
    m_controls->check(
        layout, tr("Show background"), QStringLiteral("backgroundEnabled"),
        [&s] { return s.backgroundEnabled; }, [&s](bool on) { s.backgroundEnabled = on; });

    m_controls->heading(layout, tr("Gradients"));
    auto* gradients = new QGridLayout();
    gradients->setSpacing(trimmer::grid / 2);
    int index = 0;
    const int gradientControl = m_controls->newControl();
    for (const GradientPreset preset : allGradientPresets) {
        if (preset == GradientPreset::custom)
            continue;
        const GradientSettings settings = gradientSettings(preset);
        std::vector<QColor> colors;
        for (const CodableColor& color : settings.colors)
            colors.push_back(qColor(color));
        auto* swatch = new SwatchButton(colors, settings.angle, displayName(preset), this);
        swatch->setObjectName(QStringLiteral("gradient:") + rawValue(preset));
        gradients->addWidget(swatch, index / 6, index % 6);
        ++index;
        connect(swatch, &QAbstractButton::clicked, this, [this, gradientControl, preset] {
            m_controls->beginGesture();
            m_controls->edit(tr("Choose the %1 background").arg(displayName(preset)),
                             gradientControl, [this, preset] {
                                 m_session.backgroundSettings.type = StudioBackgroundType::gradient;
                                 m_session.backgroundSettings.gradient = gradientSettings(preset);
                                 m_session.backgroundEnabled = true;
                             });
        });
        m_controls->onRefresh([this, swatch, preset] {
            const BackgroundSettings& background = m_session.backgroundSettings;
            swatch->setChecked(background.type == StudioBackgroundType::gradient &&
                               background.gradient && background.gradient->preset == preset);
        });
    }
    layout->addLayout(gradients);

    m_controls->heading(layout, tr("Colours"));
    auto* colors = new QGridLayout();
    colors->setSpacing(trimmer::grid / 2);
    const int colorControl = m_controls->newControl();
    const auto chooseColor = [this, colorControl](const QColor& color) {
        m_controls->beginGesture();
        m_controls->edit(tr("Choose a background colour"), colorControl, [this, color] {
            m_session.backgroundSettings.type = StudioBackgroundType::solidColor;
            m_session.backgroundSettings.color = codableColor(color);
            m_session.backgroundEnabled = true;
        });
    };
    index = 0;
    for (const NamedColor& named : solidColors) {
        const QColor color = QColor::fromRgb(named.rgb);
        auto* swatch = new SwatchButton({color}, 0.0, tr(named.name), this);
        swatch->setObjectName(QStringLiteral("color:") + color.name());
        colors->addWidget(swatch, index / 6, index % 6);
        ++index;
        connect(swatch, &QAbstractButton::clicked, this,
                [chooseColor, color] { chooseColor(color); });
        m_controls->onRefresh([this, swatch, color] {
            const BackgroundSettings& background = m_session.backgroundSettings;
            swatch->setChecked(background.type == StudioBackgroundType::solidColor &&
                               background.color && qColor(*background.color).rgb() == color.rgb());
        });
    }
    auto* custom = new QPushButton(tr("Other…"), this);
    custom->setObjectName(QStringLiteral("customColor"));
    custom->setToolTip(tr("Pick any colour"));
    custom->setFocusPolicy(Qt::NoFocus);
    colors->addWidget(custom, index / 6, index % 6, 1, 6 - index % 6);
    connect(custom, &QPushButton::clicked, this, [this, chooseColor] {
        const BackgroundSettings& background = m_session.backgroundSettings;
        const QColor start = background.color ? qColor(*background.color) : QColor(Qt::white);
        // Window-modal and without a nested event loop: the player goes on drawing behind it.
        auto* dialog = new QColorDialog(start, this);
        dialog->setWindowTitle(tr("Background colour"));
        dialog->setAttribute(Qt::WA_DeleteOnClose);
        connect(dialog, &QColorDialog::colorSelected, this, chooseColor);
        dialog->open();
    });
    layout->addLayout(colors);
    layout->addStretch(1);
}

void TrimmerInspector::addScreenPage() {
    QVBoxLayout* layout = nullptr;
    addPage(tr("Screen"), layout);
    VideoTrimmerViewModel::ExportStyle& style = m_session.exportStyle;
    m_controls->slider(
        layout, tr("Padding"), QStringLiteral("padding"), 0, 400, 2,
        [&style] { return style.videoPadding; }, [&style](double v) { style.videoPadding = v; },
        pixels);
    m_controls->slider(
        layout, tr("Corner radius"), QStringLiteral("cornerRadius"), 0, 120, 1,
        [&style] { return style.videoCornerRadius; },
        [&style](double v) { style.videoCornerRadius = v; }, pixels);
    m_controls->heading(layout, tr("Shadow"));
    m_controls->slider(
        layout, tr("Shadow strength"), QStringLiteral("screenShadowOpacity"), 0, 1, 0.01,
        [&style] { return style.screenShadowOpacity; },
        [&style](double v) { style.screenShadowOpacity = v; }, percent);
    m_controls->slider(
        layout, tr("Shadow softness"), QStringLiteral("screenShadowRadius"), 0, 100, 1,
        [&style] { return style.screenShadowRadius; },
        [&style](double v) { style.screenShadowRadius = v; }, pixels);
    layout->addStretch(1);
}

void TrimmerInspector::addCameraPage() {
    QVBoxLayout* layout = nullptr;
    addPage(tr("Camera"), layout);
    VideoTrimmerViewModel::ExportStyle& style = m_session.exportStyle;
    QStringList shapes;
    for (const CameraShape shape : allCameraShapes)
        shapes << displayName(shape);
    m_controls->choices(
        layout, tr("Shape"), QStringLiteral("cameraShape"), shapes,
        [&style] { return int(style.cameraSettings.shape); },
        [&style](int index) { style.cameraSettings.shape = allCameraShapes[size_t(index)]; });
    m_controls->slider(
        layout, tr("Size"), QStringLiteral("cameraSize"), 0.1, 0.5, 0.01,
        [&style] { return style.cameraSettings.widthFraction; },
        [&style](double v) { style.cameraSettings.widthFraction = v; }, percent);
    m_controls->heading(layout, tr("Position"));
    auto* pad = new PlacementPad(this);
    pad->setObjectName(QStringLiteral("cameraPosition"));
    layout->addWidget(pad);
    const int padControl = m_controls->newControl();
    connect(pad, &PlacementPad::dragStarted, this, [this] { m_controls->beginGesture(); });
    connect(pad, &PlacementPad::moved, this, [this, padControl, &style](Point center) {
        m_controls->edit(tr("Move the camera"), padControl,
                         [&style, center] { style.cameraSettings.centerNormalized = center; });
    });
    m_controls->onRefresh([pad, &style] { pad->setPlacement(style.cameraSettings); });
    m_controls->slider(
        layout, tr("Size while zoomed"), QStringLiteral("cameraShrink"), 0.3, 1.0, 0.01,
        [&style] { return style.cameraSettings.shrinkFactor; },
        [&style](double v) { style.cameraSettings.shrinkFactor = v; }, percent);
    m_controls->slider(
        layout, tr("Shadow strength"), QStringLiteral("cameraShadowOpacity"), 0, 1, 0.01,
        [&style] { return style.cameraShadowOpacity; },
        [&style](double v) { style.cameraShadowOpacity = v; }, percent);
    layout->addStretch(1);
}

void TrimmerInspector::addCursorPage() {
    QVBoxLayout* layout = nullptr;
    addPage(tr("Cursor"), layout);
    CursorOverlaySettings& cursor = m_session.cursorOverlaySettings;
    m_controls->check(
        layout, tr("Show cursor"), QStringLiteral("cursorEnabled"),
        [&cursor] { return cursor.enabled; }, [&cursor](bool on) { cursor.enabled = on; });
    m_controls->slider(
        layout, tr("Size"), QStringLiteral("cursorScale"), 0.5, 4.0, 0.05,
        [&cursor] { return cursor.scale; }, [&cursor](double v) { cursor.scale = v; }, times);
    m_controls->slider(
        layout, tr("Smoothing"), QStringLiteral("cursorSmoothing"), 0, 1, 0.01,
        [&cursor] { return cursor.smoothing; }, [&cursor](double v) { cursor.smoothing = v; },
        percent);
    QStringList speeds;
    for (const CursorAnimationSpeed speed : allCursorAnimationSpeeds)
        speeds << QString::fromUtf8(rawValue(speed).data(), qsizetype(rawValue(speed).size()));
    m_controls->choices(
        layout, tr("Follow speed"), QStringLiteral("cursorSpeed"), speeds,
        [&cursor] { return int(cursor.animationSpeed); },
        [&cursor](int index) { cursor.animationSpeed = allCursorAnimationSpeeds[size_t(index)]; });
    m_controls->heading(layout, tr("Movement"));
    m_controls->check(
        layout, tr("Motion blur"), QStringLiteral("motionBlur"),
        [&cursor] { return cursor.motionBlurEnabled; },
        [&cursor](bool on) { cursor.motionBlurEnabled = on; });
    m_controls->slider(
        layout, tr("Blur amount"), QStringLiteral("motionBlurIntensity"), 0, 1, 0.01,
        [&cursor] { return cursor.motionBlurIntensity; },
        [&cursor](double v) { cursor.motionBlurIntensity = v; }, percent);
    m_controls->heading(layout, tr("Click"));
    m_controls->slider(
        layout, tr("Click size"), QStringLiteral("clickScale"), 1.0, 2.0, 0.05,
        [&cursor] { return cursor.clickScale; }, [&cursor](double v) { cursor.clickScale = v; },
        times);
    m_controls->slider(
        layout, tr("Click length"), QStringLiteral("clickDuration"), 0.05, 0.6, 0.01,
        [&cursor] { return cursor.clickDuration; },
        [&cursor](double v) { cursor.clickDuration = v; },
        [](double v) { return QStringLiteral("%1 ms").arg(std::lround(v * 1000)); });
    layout->addStretch(1);
}

std::optional<ZoomSegment> TrimmerInspector::selectedZoom() const {
    if (!m_selectedZoom)
        return std::nullopt;
    for (const ZoomSegment& segment : m_session.zoomSegments)
        if (segment.id == *m_selectedZoom)
            return segment;
    return std::nullopt;
}

void TrimmerInspector::setSelectedZoom(std::optional<QUuid> id) {
    m_selectedZoom = id;
    refresh();
}

void TrimmerInspector::editSelectedZoom(const QString& text, int control,
                                        const std::function<void(ZoomSegment&)>& change) {
    std::optional<ZoomSegment> segment = selectedZoom();
    if (!segment)
        return;
    m_controls->edit(text, control, [this, &change, &segment] {
        change(*segment);
        // An automatic segment that was edited is the person's own from now on.
        segment->mode = ZoomSegmentMode::manual;
        m_updateZoom(*segment);
    });
}

void TrimmerInspector::addZoomPage() {
    QVBoxLayout* layout = nullptr;
    addPage(tr("Zoom"), layout);
    VideoTrimmerViewModel& s = m_session;
    const auto automatic = [](const ZoomSegment& segment) {
        return segment.mode == ZoomSegmentMode::auto_;
    };
    // Off takes the automatic zooms away; on brings back those of the analysis that do not
    // overlap a zoom made since.
    m_controls->check(
        layout, tr("Automatic zooms"), QStringLiteral("automaticZoom"),
        [&s, automatic] {
            return std::any_of(s.zoomSegments.begin(), s.zoomSegments.end(), automatic);
        },
        [&s, automatic](bool on) {
            std::erase_if(s.zoomSegments, automatic);
            if (!on || !s.metadata())
                return;
            for (const ZoomSegment& found : s.metadata()->zoomSegments) {
                if (!automatic(found))
                    continue;
                const bool overlaps = std::any_of(s.zoomSegments.begin(), s.zoomSegments.end(),
                                                  [&found](const ZoomSegment& other) {
                                                      return other.startTime < found.endTime &&
                                                             found.startTime < other.endTime;
                                                  });
                if (!overlaps)
                    s.zoomSegments.push_back(found);
            }
            std::sort(s.zoomSegments.begin(), s.zoomSegments.end(),
                      [](const ZoomSegment& a, const ZoomSegment& b) {
                          return a.startTime < b.startTime;
                      });
        });
    QCheckBox* automaticCheck = findChild<QCheckBox*>(QStringLiteral("automaticZoom"));
    m_controls->onRefresh([this, automaticCheck, automatic] {
        const auto& found = m_session.metadata();
        automaticCheck->setEnabled(found && std::any_of(found->zoomSegments.begin(),
                                                        found->zoomSegments.end(), automatic));
    });

    m_controls->heading(layout, tr("Selected zoom"));
    m_zoomHint = new QLabel(
        tr("Select a zoom on the timeline, or press Z to add one at the playhead."), this);
    m_zoomHint->setProperty("secondary", true);
    m_zoomHint->setWordWrap(true);
    layout->addWidget(m_zoomHint);
    m_zoomControls = new QWidget(this);
    auto* controls = new QVBoxLayout(m_zoomControls);
    controls->setContentsMargins(0, 0, 0, 0);
    controls->setSpacing(trimmer::grid);
    layout->addWidget(m_zoomControls);

    const auto current = [this] { return selectedZoom().value_or(ZoomSegment{}); };
    const int levelControl = m_controls->newControl();
    auto* levelRow = new QHBoxLayout();
    levelRow->addWidget(new QLabel(tr("Level"), m_zoomControls));
    levelRow->addStretch(1);
    auto* levelValue = new QLabel(m_zoomControls);
    levelValue->setProperty("secondary", true);
    levelRow->addWidget(levelValue);
    controls->addLayout(levelRow);
    auto* level = new QSlider(Qt::Horizontal, m_zoomControls);
    level->setObjectName(QStringLiteral("zoomLevel"));
    level->setRange(100, 300);
    level->setFocusPolicy(Qt::NoFocus);
    controls->addWidget(level);
    connect(level, &QSlider::sliderPressed, this, [this] { m_controls->beginGesture(); });
    connect(level, &QSlider::valueChanged, this, [this, levelControl](int value) {
        editSelectedZoom(tr("Change zoom level"), levelControl,
                         [value](ZoomSegment& segment) { segment.zoomLevel = value / 100.0; });
    });

    auto* follow = new QCheckBox(tr("Follow the cursor"), m_zoomControls);
    follow->setObjectName(QStringLiteral("zoomFollowsCursor"));
    follow->setFocusPolicy(Qt::NoFocus);
    controls->addWidget(follow);
    const int followControl = m_controls->newControl();
    connect(follow, &QCheckBox::toggled, this, [this, followControl](bool on) {
        m_controls->beginGesture();
        editSelectedZoom(on ? tr("Follow the cursor") : tr("Hold the zoom still"), followControl,
                         [on](ZoomSegment& segment) { segment.followCursor = on; });
    });

    auto* focusLabel = new QLabel(tr("Focus"), m_zoomControls);
    controls->addWidget(focusLabel);
    auto* focus = new PlacementPad(m_zoomControls);
    focus->setObjectName(QStringLiteral("zoomFocus"));
    focus->setMarkerAspect(16.0 / 9.0);
    controls->addWidget(focus);
    const int focusControl = m_controls->newControl();
    connect(focus, &PlacementPad::dragStarted, this, [this] { m_controls->beginGesture(); });
    connect(focus, &PlacementPad::moved, this, [this, focusControl](Point center) {
        editSelectedZoom(tr("Move the zoom's focus"), focusControl,
                         [center](ZoomSegment& segment) { segment.focusPoint = center; });
    });
    layout->addStretch(1);

    m_controls->onRefresh([this, current, level, levelValue, follow, focus, focusLabel] {
        const std::optional<ZoomSegment> selected = selectedZoom();
        m_zoomHint->setVisible(!selected);
        m_zoomControls->setVisible(selected.has_value());
        const ZoomSegment segment = current();
        {
            const QSignalBlocker block(level);
            level->setValue(int(std::lround(segment.zoomLevel * 100)));
        }
        levelValue->setText(times(segment.zoomLevel));
        {
            const QSignalBlocker block(follow);
            follow->setChecked(segment.followCursor);
        }
        // A zoom that follows the cursor has no focus of its own. The marker is as wide as
        // the part of the picture the zoom shows.
        focus->setEnabled(!segment.followCursor);
        focusLabel->setEnabled(!segment.followCursor);
        CameraExportSettings marker;
        marker.centerNormalized = segment.focusPoint.value_or(Point{0.5, 0.5});
        marker.widthFraction = 1.0 / std::max(1.0, segment.zoomLevel);
        marker.shape = CameraShape::rectangle;
        focus->setPlacement(marker);
    });
}

void TrimmerInspector::addExportPage() {
    QVBoxLayout* layout = nullptr;
    addPage(tr("Export"), layout);
    VideoTrimmerViewModel::ExportStyle& style = m_session.exportStyle;

    m_controls->heading(layout, tr("Aspect ratio"));
    auto* ratios = new QGridLayout();
    ratios->setSpacing(trimmer::grid / 2);
    const int ratioControl = m_controls->newControl();
    int index = 0;
    for (const OutputAspectRatio aspect : allOutputAspectRatios) {
        auto* button =
            new AspectRatioButton(displayName(aspect), ratio(aspect).value_or(0.0), this);
        button->setObjectName(QStringLiteral("aspect:") + rawValue(aspect));
        ratios->addWidget(button, index / 4, index % 4);
        ++index;
        connect(button, &QAbstractButton::clicked, this, [this, ratioControl, aspect, &style] {
            m_controls->beginGesture();
            m_controls->edit(tr("Export at %1").arg(displayName(aspect)), ratioControl,
                             [&style, aspect] { style.outputAspectRatio = aspect; });
        });
        m_controls->onRefresh([button, aspect, &style] {
            button->setChecked(style.outputAspectRatio == aspect);
            // The vertical stack decides the shape by itself.
            button->setEnabled(!style.verticalStack);
        });
    }
    layout->addLayout(ratios);
    if (m_hasCamera)
        m_controls->check(
            layout, tr("Vertical stack: screen over camera"), QStringLiteral("verticalStack"),
            [&style] { return style.verticalStack; },
            [&style](bool on) { style.verticalStack = on; });

    m_controls->heading(layout, tr("Format"));
    ExportEncoding& encoding = m_session.encoding;
    m_controls->choices(
        layout, QString(), QStringLiteral("codec"), {tr("H.264"), tr("H.265")},
        [&encoding] { return encoding.video.codec == VideoCodecSettings::Codec::hevc ? 1 : 0; },
        [this, &encoding](int index) {
            encoding.video.codec =
                index == 1 ? VideoCodecSettings::Codec::hevc : VideoCodecSettings::Codec::h264;
            // A chosen encoding is honoured even where packets could have been copied.
            m_session.allowPassthrough = false;
        });
    m_controls->heading(layout, tr("Quality"));
    m_controls->choices(
        layout, QString(), QStringLiteral("quality"), {tr("High"), tr("Medium"), tr("Small file")},
        [&encoding] {
            // Without a choice the encoder keeps its own default, which is the middle one.
            const int factor = encoding.tuning.constantRateFactor.value_or(qualityFactors[1]);
            return factor <= qualityFactors[0] ? 0 : factor >= qualityFactors[2] ? 2 : 1;
        },
        [this, &encoding](int index) {
            encoding.tuning.constantRateFactor = qualityFactors[size_t(index)];
            m_session.allowPassthrough = false;
        });

    m_mergeNote = new QLabel(tr("Parts are removed: the export joins the others in the "
                                "recording's own shape, without the camera."),
                             this);
    m_mergeNote->setObjectName(QStringLiteral("mergeNote"));
    m_mergeNote->setProperty("secondary", true);
    m_mergeNote->setWordWrap(true);
    m_mergeNote->hide();
    layout->addWidget(m_mergeNote);

    layout->addStretch(1);
    m_exportStatus = new QLabel(this);
    m_exportStatus->setObjectName(QStringLiteral("exportStatus"));
    m_exportStatus->setProperty("secondary", true);
    m_exportStatus->setWordWrap(true);
    layout->addWidget(m_exportStatus);
    auto* progressRow = new QHBoxLayout();
    m_progress = new QProgressBar(this);
    m_progress->setRange(0, 1000);
    m_progress->setTextVisible(false);
    m_cancelButton = new QPushButton(tr("Cancel"), this);
    m_cancelButton->setToolTip(tr("Stop the export"));
    m_cancelButton->setFocusPolicy(Qt::NoFocus);
    progressRow->addWidget(m_progress, 1);
    progressRow->addWidget(m_cancelButton);
    layout->addLayout(progressRow);
    m_exportButton = new QPushButton(tr("Export"), this);
    m_exportButton->setObjectName(QStringLiteral("primary"));
    m_exportButton->setToolTip(tr("Export the styled video (Ctrl+E)"));
    m_exportButton->setFocusPolicy(Qt::NoFocus);
    m_exportButton->setMinimumHeight(36);
    layout->addWidget(m_exportButton);
    m_revealButton = new QPushButton(tr("Show in Folder"), this);
    m_revealButton->setObjectName(QStringLiteral("revealExport"));
    m_revealButton->setFocusPolicy(Qt::NoFocus);
    layout->addWidget(m_revealButton);
    setExporting(false);
    m_revealButton->hide();

    connect(m_exportButton, &QPushButton::clicked, this, &TrimmerInspector::exportRequested);
    connect(m_cancelButton, &QPushButton::clicked, this, [this] {
        m_cancelling = true;
        emit cancelRequested();
    });
    connect(m_revealButton, &QPushButton::clicked, this, [this] {
        if (!m_lastExport.isEmpty())
            DesktopResultOpener::showInFileManager(m_lastExport);
    });
}

void TrimmerInspector::setExporting(bool exporting) {
    // The progress takes the button's place while the export runs.
    m_exportButton->setVisible(!exporting);
    m_progress->setVisible(exporting);
    m_cancelButton->setVisible(exporting);
    if (exporting) {
        m_cancelling = false;
        m_progress->setValue(0);
        m_revealButton->hide();
        m_exportStatus->setText(tr("Exporting…"));
        m_tabs->setCurrentIndex(m_tabs->count() - 1);
    }
}

void TrimmerInspector::setExportProgress(double progress) {
    m_progress->setValue(int(std::lround(std::clamp(progress, 0.0, 1.0) * 1000)));
    if (m_progress->isVisible())
        m_exportStatus->setText(tr("Exporting… %1 %").arg(std::lround(progress * 100)));
}

void TrimmerInspector::setHasRemovedParts(bool removed) {
    m_mergeNote->setVisible(removed);
}

void TrimmerInspector::showExportOutcome(const VideoTrimmerViewModel::ExportOutcome& outcome) {
    const bool cancelled = std::exchange(m_cancelling, false);
    if (outcome.error || outcome.urls.empty()) {
        m_lastExport.clear();
        m_revealButton->hide();
        if (cancelled) {
            m_exportStatus->setText(tr("Export cancelled; nothing was kept."));
            return;
        }
        m_exportStatus->setText(
            tr("The export did not finish: %1. Change the settings or free some disk space, then "
               "export again.")
                .arg(outcome.error.value_or(tr("nothing was written"))));
        return;
    }
    m_lastExport = outcome.urls.front();
    m_exportStatus->setText(tr("Exported to “%1”.").arg(QFileInfo(m_lastExport).fileName()));
    m_revealButton->show();
}
