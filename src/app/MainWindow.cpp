#include "app/MainWindow.h"

#include "app/AppIcons.h"
#include "app/AppStyle.h"
#include "app/ApplicationSelector.h"
#include "app/AreaSelector.h"
#include "app/DeviceRecordingController.h"
#include "app/DeviceSelector.h"
#include "app/RecordingLauncher.h"
#include "app/ScreenSelector.h"
#include "app/WindowSelector.h"
#include "core/model/Constants.h"
#include "core/recording/RecordingCoordinator.h"
#include "core/recording/engines/RecordingEngineFactory.h"
#include "core/settings/UserDefaults.h"
#include "core/support/ErrorReporter.h"

#include <QActionGroup>
#include <QButtonGroup>
#include <QCloseEvent>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QScreen>
#include <QShortcut>
#include <QToolButton>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentRun>

#include <QCoro/QCoroFuture>
#include <QCoro/QCoroTimer>

namespace {
struct ModeTile {
    MainWindow::Mode mode;
    const char* key; // object name suffix and the persisted "lastRecordingMode"
    const char* title;
    const char* icon;
};
constexpr ModeTile modeTiles[] = {
    {MainWindow::Mode::display, "display", "Display", "display"},
    {MainWindow::Mode::area, "area", "Area", "area"},
    {MainWindow::Mode::window, "window", "Window", "window"},
    {MainWindow::Mode::windows, "windows", "Windows", "windows"},
    {MainWindow::Mode::application, "application", "Application", "application"},
    {MainWindow::Mode::audioOnly, "audio", "Audio only", "audio"},
    {MainWindow::Mode::device, "device", "Device", "device"},
};

QString fromView(std::string_view text) {
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
}
} // namespace

MainWindow::MainWindow(RecordingCoordinator& coordinator, RecordingLauncher& launcher,
                       DeviceRecordingController& deviceRecorder, RecordingEngineFactory& engines,
                       UserDefaults& defaults, QWidget* parent)
    : CardWindow(parent), m_coordinator(coordinator), m_launcher(launcher),
      m_deviceRecorder(deviceRecorder), m_engines(engines), m_defaults(defaults) {
    setObjectName(QStringLiteral("mainWindow"));
    setWindowTitle(fromView(Constants::WindowTitle::modeSelection));
    setWindowIcon(AppIcons::applicationIcon());

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 12, 16, 16);
    layout->setSpacing(16);
    layout->addWidget(makeHeader());
    layout->addWidget(makeModeTiles());
    layout->addWidget(makeSourceChips());
    layout->addWidget(makeRecordArea());
    layout->setSizeConstraint(QLayout::SetFixedSize);

    const QString last = m_defaults.stringValue("lastRecordingMode", QStringLiteral("display"));
    for (const ModeTile& tile : modeTiles)
        if (last == QLatin1String(tile.key))
            setMode(tile.mode);
    setMode(m_mode);
    restorePosition();

    auto* recordShortcut = new QShortcut(QKeySequence(Qt::Key_Return), this);
    connect(recordShortcut, &QShortcut::activated, this, &MainWindow::record);
}

MainWindow::~MainWindow() {
    delete m_selector;
}

QWidget* MainWindow::makeHeader() {
    auto* header = new QWidget(this);
    auto* row = new QHBoxLayout(header);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(8);
    auto* mark = new QLabel(header);
    mark->setPixmap(AppIcons::applicationIcon().pixmap(QSize(20, 20), devicePixelRatioF()));
    auto* title = new QLabel(windowTitle(), header);
    title->setProperty("role", QStringLiteral("title"));
    m_status = new QLabel(tr("Idle"), header);
    m_status->setObjectName(QStringLiteral("statusLabel"));
    m_status->setProperty("role", QStringLiteral("secondary"));

    auto iconButton = [header](const char* name, const QString& icon, const QString& tip) {
        auto* button = new QToolButton(header);
        button->setObjectName(QString::fromLatin1(name));
        button->setIcon(AppIcons::icon(icon, AppStyle::secondaryText));
        button->setIconSize(QSize(20, 20));
        button->setToolTip(tip);
        button->setAutoRaise(true);
        button->setStyleSheet(QStringLiteral("QToolButton { border: none; background: transparent;"
                                             " padding: 4px; } QToolButton:hover {"
                                             " background: #26272d; }"));
        return button;
    };
    QToolButton* gear =
        iconButton("settingsButton", QStringLiteral("gear"), tr("Settings (Ctrl+,)"));
    QToolButton* closeButton =
        iconButton("closeButton", QStringLiteral("close"), tr("Close (Ctrl+W)"));
    connect(gear, &QToolButton::clicked, this, &MainWindow::settingsRequested);
    connect(closeButton, &QToolButton::clicked, this, &QWidget::close);
    new QShortcut(QKeySequence(QStringLiteral("Ctrl+,")), this,
                  [this] { emit settingsRequested(); });
    new QShortcut(QKeySequence::Close, this, [this] { QWidget::close(); });

    row->addWidget(mark);
    row->addWidget(title);
    row->addWidget(m_status);
    row->addStretch();
    row->addWidget(gear);
    row->addWidget(closeButton);
    return header;
}

QWidget* MainWindow::makeModeTiles() {
    auto* tiles = new QWidget(this);
    auto* row = new QHBoxLayout(tiles);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(8);
    m_tiles = new QButtonGroup(this);
    m_tiles->setExclusive(true);
    int number = 0;
    for (const ModeTile& tile : modeTiles) {
        auto* button = new QToolButton(tiles);
        button->setProperty("role", QStringLiteral("tile"));
        button->setText(tr(tile.title));
        // Keyboard first: 1 to 7 choose the mode (after setText, which resets the shortcut).
        ++number;
        button->setShortcut(QKeySequence(Qt::Key_0 + number));
        button->setToolTip(tr("%1 (%2)").arg(tr(tile.title)).arg(number));
        button->setObjectName(QStringLiteral("modeTile_") + QLatin1String(tile.key));

        button->setIcon(AppIcons::icon(QString::fromLatin1(tile.icon), AppStyle::text));
        button->setIconSize(QSize(28, 28));
        button->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
        button->setCheckable(true);
        button->setFixedSize(88, 80);
        button->setCursor(Qt::PointingHandCursor);
        m_tiles->addButton(button, int(tile.mode));
        row->addWidget(button);
    }
    connect(m_tiles, &QButtonGroup::idClicked, this, [this](int id) {
        setMode(Mode(id));
        for (const ModeTile& tile : modeTiles)
            if (tile.mode == Mode(id))
                m_defaults.set("lastRecordingMode", QString::fromLatin1(tile.key));
    });
    return tiles;
}

QToolButton* MainWindow::makeChip(const char* name, const QString& text, const QString& icon,
                                  const char* key, bool fallback) {
    auto* chip = new QToolButton(this);
    chip->setObjectName(QString::fromLatin1(name));
    chip->setProperty("role", QStringLiteral("chip"));
    chip->setText(text);
    chip->setIcon(AppIcons::icon(icon, AppStyle::text));
    chip->setIconSize(QSize(16, 16));
    chip->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    chip->setCheckable(true);
    chip->setChecked(m_defaults.boolValue(key, fallback));
    chip->setCursor(Qt::PointingHandCursor);
    connect(chip, &QToolButton::toggled, this, [this, key](bool on) { m_defaults.set(key, on); });
    return chip;
}

QWidget* MainWindow::makeSourceChips() {
    auto* chips = new QWidget(this);
    auto* row = new QHBoxLayout(chips);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(8);
    QToolButton* camera =
        makeChip("cameraChip", tr("Camera"), QStringLiteral("camera"), "recordCamera", false);
    QToolButton* microphone = makeChip("microphoneChip", tr("Microphone"),
                                       QStringLiteral("microphone"), "recordMicrophone", false);
    QToolButton* system = makeChip("systemAudioChip", tr("System audio"), QStringLiteral("speaker"),
                                   "recordSystemAudio", true);
    fillDeviceMenu(camera, true);
    fillDeviceMenu(microphone, false);
    row->addWidget(camera);
    row->addWidget(microphone);
    row->addWidget(system);
    row->addStretch();
    return chips;
}

void MainWindow::fillDeviceMenu(QToolButton* chip, bool cameras) {
    // The device list comes from the engines; a chip whose devices are unknown is a plain
    // toggle that records the desktop's default device.
    const char* deviceKey = cameras ? "cameraDevice" : "microphoneDevice";
    const std::vector<AVCaptureDevice> devices =
        cameras ? m_engines.cameras() : m_engines.microphones();
    auto* menu = new QMenu(chip);
    auto* choices = new QActionGroup(menu);
    const QString chosen = m_defaults.stringValue(deviceKey, QStringLiteral("default"));
    auto addChoice = [&](const QString& id, const QString& label) {
        QAction* action = menu->addAction(label);
        action->setCheckable(true);
        action->setChecked(id == chosen);
        choices->addAction(action);
        connect(action, &QAction::triggered, this, [this, chip, deviceKey, id] {
            m_defaults.set(deviceKey, id);
            chip->setChecked(true);
        });
    };
    addChoice(QStringLiteral("default"), tr("Default device"));
    for (const AVCaptureDevice& device : devices)
        addChoice(device.uniqueID, device.localizedName);
    chip->setMenu(menu);
    chip->setPopupMode(QToolButton::MenuButtonPopup);
    chip->setToolTip(devices.empty()
                         ? tr("Records the default device")
                         : tr("%n device(s); the arrow chooses", "", int(devices.size())));
}

QWidget* MainWindow::makeRecordArea() {
    auto* area = new QWidget(this);
    auto* column = new QVBoxLayout(area);
    column->setContentsMargins(0, 8, 0, 0);
    column->setSpacing(6);
    m_record = new QPushButton(tr("Record"), area);
    m_record->setObjectName(QStringLiteral("recordButton"));
    m_record->setProperty("role", QStringLiteral("danger"));
    m_record->setMinimumHeight(44);
    m_record->setCursor(Qt::PointingHandCursor);
    QFont font = m_record->font();
    font.setPixelSize(15);
    font.setWeight(QFont::DemiBold);
    m_record->setFont(font);
    connect(m_record, &QPushButton::clicked, this, &MainWindow::record);
    auto* hint = new QLabel(
        tr("Enter · %1 from anywhere")
            .arg(m_defaults.stringValue("shortcutToggleRecording", QStringLiteral("Ctrl+Alt+R"))),
        area);
    hint->setObjectName(QStringLiteral("recordShortcutHint"));
    hint->setProperty("role", QStringLiteral("secondary"));
    hint->setAlignment(Qt::AlignCenter);
    column->addWidget(m_record);
    column->addWidget(hint);
    return area;
}

void MainWindow::setMode(Mode mode) {
    m_mode = mode;
    if (QAbstractButton* tile = m_tiles->button(int(mode)))
        tile->setChecked(true);
}

void MainWindow::setStatusText(const QString& text) {
    m_status->setText(text);
    const bool busy = !m_coordinator.recordingState().is<RecordingState::Idle>() &&
                      !m_coordinator.recordingState().is<RecordingState::Completed>() &&
                      !m_coordinator.recordingState().is<RecordingState::Failed>();
    m_record->setEnabled(!busy);
}

QString MainWindow::statusText() const {
    return m_status->text();
}

void MainWindow::record() {
    if (!m_record->isEnabled())
        return;
    if (m_mode == Mode::audioOnly) {
        hide();
        emit hiddenForRecording();
        m_launcher.start(RecordingMode::systemAudio(),
                         RecordingConfigurationBuilder::Selector::modeSelection,
                         QStringLiteral("audio"));
        return;
    }
    if (m_mode == Mode::device) {
        openDeviceSelector();
        return;
    }
    openSelectorForMode();
}

QCoro::Task<void> MainWindow::openDeviceSelector() {
    QPointer<MainWindow> self(this);
    // Discovery opens device nodes and asks the sound server: not on the interface thread.
    QFuture<std::vector<CaptureDeviceInfo>> discovering =
        QtConcurrent::run([] { return V4L2CaptureDeviceDiscovery::discoverDevices(); });
    std::vector<CaptureDeviceInfo> devices = co_await discovering;
    if (!self)
        co_return;
    auto* selector = new DeviceSelector(std::move(devices));
    connect(selector, &DeviceSelector::deviceChosen, this, [this](const CaptureDeviceInfo& device) {
        if (m_selector)
            m_selector->close();
        hide();
        emit hiddenForRecording();
        if (!m_deviceRecorder.start(device))
            show();
    });
    showSelector(selector);
}

QCoro::Task<void> MainWindow::openSelectorForMode() {
    QPointer<MainWindow> self(this);
    SCShareableContent content;
    try {
        QCoro::Task<SCShareableContent> loading = m_coordinator.loadShareableContent(true, true);
        content = co_await loading;
    } catch (const std::exception& error) {
        if (self)
            ErrorReporter::shared().showAlert(tr("Cannot List the Screen"),
                                              QString::fromUtf8(error.what()));
        co_return;
    }
    if (!self)
        co_return;
    using Selector = RecordingConfigurationBuilder::Selector;
    const QString source = QString::fromLatin1(modeTiles[size_t(m_mode)].key);
    auto startAndHide = [this, source](RecordingMode mode, Selector selector, int autoStop = 0) {
        // The selector is still inside its own click; it goes at the next turn of the loop.
        if (m_selector)
            m_selector->close();
        hide();
        emit hiddenForRecording();
        m_launcher.start(std::move(mode), selector, source, autoStop);
    };
    switch (m_mode) {
    case Mode::display: {
        auto* selector = new ScreenSelector(content.displays);
        connect(selector, &ScreenSelector::displayChosen, this,
                [startAndHide](const SCDisplay& display, int autoStopMinutes) {
                    startAndHide(RecordingMode::screen(display), Selector::screen, autoStopMinutes);
                });
        showSelector(selector);
        break;
    }
    case Mode::area: {
        // The overlay shows a still of the display, which should not have this window in it:
        // it steps aside first and returns if the area is not recorded.
        hide();
        co_await QCoro::sleepFor(std::chrono::milliseconds(150));
        if (!self)
            co_return;
        auto* selector = new AreaSelector(content.displays, m_defaults);
        connect(selector, &AreaSelector::areaChosen, this,
                [startAndHide](const SCDisplay& display, const Rect& rect) {
                    startAndHide(RecordingMode::screenArea(display, rect), Selector::area);
                });
        connect(selector, &QObject::destroyed, this, [this] {
            if (!m_launcher.isStarting() &&
                m_coordinator.recordingState().is<RecordingState::Idle>())
                show();
        });
        showSelector(selector);
        break;
    }
    case Mode::window:
    case Mode::windows: {
        const bool several = m_mode == Mode::windows;
        auto* selector = new WindowSelector(content.windows, several);
        connect(selector, &WindowSelector::windowsChosen, this,
                [startAndHide, several](const std::vector<SCWindow>& windows) {
                    startAndHide(several ? RecordingMode::windows(windows)
                                         : RecordingMode::window(windows.front()),
                                 Selector::window);
                });
        showSelector(selector);
        break;
    }
    case Mode::application: {
        auto* selector = new ApplicationSelector(content.applications);
        connect(selector, &ApplicationSelector::applicationsChosen, this,
                [startAndHide](const std::vector<SCRunningApplication>& apps) {
                    startAndHide(RecordingMode::application(apps), Selector::modeSelection);
                });
        showSelector(selector);
        break;
    }
    case Mode::audioOnly:
    case Mode::device:
        break;
    }
}

void MainWindow::showSelector(QWidget* selector) {
    if (m_selector)
        m_selector->close();
    m_selector = selector;
    selector->setAttribute(Qt::WA_DeleteOnClose);
    // Selectors open in the middle of the screen; the area overlay covers it already.
    if (selector->isWindow() && qobject_cast<CardWindow*>(selector)) {
        selector->adjustSize();
        if (const QScreen* screen = QGuiApplication::primaryScreen())
            selector->move(screen->availableGeometry().center() - selector->rect().center());
    }
    selector->show();
    selector->raise();
    selector->activateWindow();
}

void MainWindow::closeEvent(QCloseEvent* event) {
    event->accept();
    emit closeRequested();
}

void MainWindow::moveEvent(QMoveEvent* event) {
    CardWindow::moveEvent(event);
    if (isVisible())
        m_defaults.set("mainWindowPosition", QStringLiteral("%1,%2").arg(x()).arg(y()));
}

void MainWindow::restorePosition() {
    adjustSize();
    const QStringList stored =
        m_defaults.stringValue("mainWindowPosition", QString()).split(QLatin1Char(','));
    if (stored.size() == 2) {
        const QPoint place(stored[0].toInt(), stored[1].toInt());
        // A place on a monitor that is gone would hide the window for good.
        if (QGuiApplication::screenAt(place + QPoint(width() / 2, 16))) {
            move(place);
            return;
        }
    }
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        move(screen->availableGeometry().center() - rect().center());
}
