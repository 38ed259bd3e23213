#include "app/SettingsWindow.h"

#include "app/AppStyle.h"
#include "core/model/Constants.h"
#include "core/recording/engines/RecordingEngineFactory.h"
#include "core/settings/RecordingConfigurationBuilder.h"
#include "core/settings/UserDefaults.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QKeySequenceEdit>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSpinBox>
#include <QTabWidget>
#include <QVBoxLayout>

#include <set>

namespace {
QFormLayout* makeForm(QWidget* page) {
    auto* form = new QFormLayout(page);
    form->setContentsMargins(8, 16, 8, 8);
    form->setHorizontalSpacing(16);
    form->setVerticalSpacing(10);
    form->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    return form;
}

QString objectNameFor(const char* key) {
    return QStringLiteral("setting_") + QLatin1String(key);
}
} // namespace

SettingsWindow::SettingsWindow(UserDefaults& defaults, RecordingEngineFactory& engines,
                               QWidget* parent)
    : CardWindow(parent), m_defaults(defaults), m_engines(engines) {
    setObjectName(QStringLiteral("settingsWindow"));
    setWindowTitle(QString::fromUtf8(Constants::WindowTitle::settings.data(),
                                     qsizetype(Constants::WindowTitle::settings.size())));
    setAttribute(Qt::WA_DeleteOnClose);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 12, 16, 16);
    auto* header = new QHBoxLayout();
    auto* title = new QLabel(windowTitle(), this);
    title->setProperty("role", QStringLiteral("title"));
    auto* done = new QPushButton(tr("Done"), this);
    done->setObjectName(QStringLiteral("settingsDoneButton"));
    done->setProperty("role", QStringLiteral("primary"));
    connect(done, &QPushButton::clicked, this, &QWidget::close);
    header->addWidget(title);
    header->addStretch();
    header->addWidget(done);
    layout->addLayout(header);

    auto* tabs = new QTabWidget(this);
    tabs->setObjectName(QStringLiteral("settingsTabs"));
    tabs->addTab(recordingPage(), tr("Recording"));
    tabs->addTab(sourcesPage(), tr("Audio && Camera"));
    tabs->addTab(cursorPage(), tr("Cursor && Zoom"));
    tabs->addTab(hiddenAppsPage(), tr("Hidden Apps"));
    tabs->addTab(generalPage(), tr("General"));
    layout->addWidget(tabs);
    setMinimumSize(560, 460);
}

QCheckBox* SettingsWindow::check(QFormLayout* form, const char* key, bool fallback,
                                 const QString& label) {
    auto* box = new QCheckBox(label, form->parentWidget());
    box->setObjectName(objectNameFor(key));
    box->setChecked(m_defaults.boolValue(key, fallback));
    connect(box, &QCheckBox::toggled, this, [this, key](bool on) { m_defaults.set(key, on); });
    form->addRow(QString(), box);
    return box;
}

QComboBox* SettingsWindow::choice(QFormLayout* form, const char* key, const QVariant& fallback,
                                  const QString& label,
                                  const QList<QPair<QString, QVariant>>& items) {
    auto* box = new QComboBox(form->parentWidget());
    box->setObjectName(objectNameFor(key));
    for (const auto& [text, value] : items)
        box->addItem(text, value);
    // Stored as the type of the fallback, which is the key's type everywhere it is read.
    QVariant stored = fallback;
    switch (fallback.typeId()) {
    case QMetaType::Int:
        stored = m_defaults.integerValue(key, fallback.toInt());
        break;
    case QMetaType::Double:
        stored = m_defaults.doubleValue(key, fallback.toDouble());
        break;
    default:
        stored = m_defaults.stringValue(key, fallback.toString());
        break;
    }
    const int index = box->findData(stored);
    box->setCurrentIndex(index >= 0 ? index : std::max(0, box->findData(fallback)));
    connect(box, &QComboBox::currentIndexChanged, this,
            [this, key, box] { m_defaults.set(key, box->currentData()); });
    form->addRow(label, box);
    return box;
}

QWidget* SettingsWindow::number(QFormLayout* form, const char* key, double fallback,
                                const QString& label, double minimum, double maximum, double step,
                                int decimals, const QString& suffix) {
    if (decimals == 0) {
        auto* box = new QSpinBox(form->parentWidget());
        box->setObjectName(objectNameFor(key));
        box->setRange(int(minimum), int(maximum));
        box->setSingleStep(int(step));
        box->setSuffix(suffix);
        box->setValue(m_defaults.integerValue(key, int(fallback)));
        connect(box, &QSpinBox::valueChanged, this, [this, key](int v) { m_defaults.set(key, v); });
        form->addRow(label, box);
        return box;
    }
    auto* box = new QDoubleSpinBox(form->parentWidget());
    box->setObjectName(objectNameFor(key));
    box->setRange(minimum, maximum);
    box->setSingleStep(step);
    box->setDecimals(decimals);
    box->setSuffix(suffix);
    box->setValue(m_defaults.doubleValue(key, fallback));
    connect(box, &QDoubleSpinBox::valueChanged, this,
            [this, key](double v) { m_defaults.set(key, v); });
    form->addRow(label, box);
    return box;
}

QWidget* SettingsWindow::recordingPage() {
    auto* page = new QWidget();
    QFormLayout* form = makeForm(page);

    auto* folderRow = new QWidget(page);
    auto* row = new QHBoxLayout(folderRow);
    row->setContentsMargins(0, 0, 0, 0);
    m_outputFolder = new QLineEdit(folderRow);
    m_outputFolder->setObjectName(objectNameFor("outputDirectory"));
    m_outputFolder->setText(RecordingConfigurationBuilder::resolveOutputDirectory(
        m_defaults.stringValue("outputDirectory", QString())));
    auto* browse = new QPushButton(tr("Choose…"), folderRow);
    row->addWidget(m_outputFolder, 1);
    row->addWidget(browse);
    connect(m_outputFolder, &QLineEdit::editingFinished, this,
            [this] { m_defaults.set("outputDirectory", m_outputFolder->text().trimmed()); });
    connect(browse, &QPushButton::clicked, this, [this] {
        const QString folder =
            QFileDialog::getExistingDirectory(this, tr("Output Folder"), m_outputFolder->text());
        if (folder.isEmpty())
            return;
        m_outputFolder->setText(folder);
        m_defaults.set("outputDirectory", folder);
    });
    form->addRow(tr("Save to"), folderRow);

    choice(form, "outputFormat", QStringLiteral("mov"), tr("Format"),
           {{QStringLiteral("MOV"), QStringLiteral("mov")},
            {QStringLiteral("MP4"), QStringLiteral("mp4")}});
    choice(form, "encoder", QStringLiteral("h265"), tr("Codec"),
           {{QStringLiteral("H.264"), QStringLiteral("h264")},
            {QStringLiteral("H.265 (HEVC)"), QStringLiteral("h265")}});
    choice(form, "videoQuality", 1.0, tr("Quality"),
           {{tr("Low"), 0.3}, {tr("Medium"), 0.7}, {tr("High"), 1.0}});
    choice(form, "frameRate", 60, tr("Frame rate"),
           {{QStringLiteral("24 fps"), 24},
            {QStringLiteral("30 fps"), 30},
            {QStringLiteral("60 fps"), 60}});
    choice(form, "resolution", 1, tr("Resolution"),
           {{tr("Low (0.5x)"), 0}, {tr("Normal (1x)"), 1}, {tr("High (Native)"), 2}});
    number(form, "countdown", 0, tr("Countdown"), 0, 10, 1, 0, tr(" s"));
    number(form, "autoStopMinutes", 0, tr("Stop after"), 0, 600, 5, 0, tr(" min (0: never)"));
    check(form, "preventSleep", true, tr("Keep the computer awake while recording"));
    check(form, "trimAfterRecord", false, tr("Go straight to the trimmer after recording"));
    return page;
}

QWidget* SettingsWindow::sourcesPage() {
    auto* page = new QWidget();
    QFormLayout* form = makeForm(page);
    check(form, "recordSystemAudio", true, tr("Record system audio"));
    check(form, "recordMicrophone", false, tr("Record the microphone"));
    QList<QPair<QString, QVariant>> microphones{{tr("Default device"), QStringLiteral("default")}};
    for (const AVCaptureDevice& device : m_engines.microphones())
        microphones.append({device.localizedName, device.uniqueID});
    choice(form, "microphoneDevice", QStringLiteral("default"), tr("Microphone"), microphones);
    check(form, "enableAEC", false, tr("Cancel echo from the speakers"));
    check(form, "recordCamera", false, tr("Record the camera"));
    QList<QPair<QString, QVariant>> cameras{{tr("Default device"), QStringLiteral("default")}};
    for (const AVCaptureDevice& device : m_engines.cameras())
        cameras.append({device.localizedName, device.uniqueID});
    choice(form, "cameraDevice", QStringLiteral("default"), tr("Camera"), cameras);
    check(form, "cameraFlipped", false, tr("Mirror the camera"));
    check(form, "enableSeparateLayers", false, tr("Keep screen and camera as separate layers"));
    return page;
}

QWidget* SettingsWindow::cursorPage() {
    auto* page = new QWidget();
    QFormLayout* form = makeForm(page);
    check(form, "showCursor", false, tr("Show the pointer in recordings"));
    check(form, "highlightCursor", false, tr("Highlight the pointer and clicks"));
    check(form, "showMagnifier", false, tr("Magnify the screen around the pointer"));
    check(form, "enableClickToZoom", false, tr("Zoom into clicks while recording"));
    check(form, "enableSmartAutoClickZoom", true, tr("Zoom only into clicks that matter"));
    number(form, "zoomLevel", 2.0, tr("Zoom level"), 1.0, 3.0, 0.25, 2, QStringLiteral("×"));
    number(form, "zoomDuration", 0.5, tr("Zoom duration"), 0.1, 3.0, 0.1, 1, tr(" s"));
    number(form, "clickThreshold", 0.5, tr("Click threshold"), 0.1, 3.0, 0.1, 1, tr(" s"));
    return page;
}

QWidget* SettingsWindow::hiddenAppsPage() {
    auto* page = new QWidget();
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(8, 16, 8, 8);
    auto* hint = new QLabel(tr("Windows of the checked applications are left out of every "
                               "recording. Applies from the next start of tavelquiston."),
                            page);
    hint->setWordWrap(true);
    hint->setProperty("role", QStringLiteral("secondary"));
    layout->addWidget(hint);
    m_hiddenApps = new QListWidget(page);
    m_hiddenApps->setObjectName(objectNameFor("hiddenApps"));
    layout->addWidget(m_hiddenApps);

    // The stored list first (running or not), then what runs now.
    std::set<QString> listed;
    const QJsonArray stored =
        QJsonDocument::fromJson(m_defaults.stringValue("hiddenApps", QString()).toUtf8()).array();
    auto add = [this, &listed](const QString& id, const QString& name, bool hidden) {
        if (id.isEmpty() || !listed.insert(id).second)
            return;
        auto* item = new QListWidgetItem(name + QStringLiteral("  ·  ") + id, m_hiddenApps);
        item->setData(Qt::UserRole, id);
        item->setData(Qt::UserRole + 1, name);
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
        item->setCheckState(hidden ? Qt::Checked : Qt::Unchecked);
    };
    for (const QJsonValue& entry : stored)
        add(entry.toObject().value(QLatin1String("bundleID")).toString(),
            entry.toObject().value(QLatin1String("name")).toString(), true);
    try {
        for (const SCRunningApplication& app : m_engines.fetchShareableContent().applications)
            add(app.bundleIdentifier, app.applicationName, false);
    } catch (const std::exception&) {
        // Without a desktop to list, the stored list is all there is to edit.
    }
    connect(m_hiddenApps, &QListWidget::itemChanged, this, &SettingsWindow::saveHiddenApps);
    return page;
}

QByteArray SettingsWindow::hiddenAppsJson(const QList<QPair<QString, QString>>& idsAndNames) {
    QJsonArray list;
    for (const auto& [id, name] : idsAndNames)
        list.append(QJsonObject{{QStringLiteral("bundleID"), id}, {QStringLiteral("name"), name}});
    return QJsonDocument(list).toJson(QJsonDocument::Compact);
}

void SettingsWindow::saveHiddenApps() {
    QList<QPair<QString, QString>> hidden;
    for (int i = 0; i < m_hiddenApps->count(); ++i) {
        const QListWidgetItem* item = m_hiddenApps->item(i);
        if (item->checkState() == Qt::Checked)
            hidden.append(
                {item->data(Qt::UserRole).toString(), item->data(Qt::UserRole + 1).toString()});
    }
    m_defaults.set("hiddenApps", QString::fromUtf8(hiddenAppsJson(hidden)));
}

QWidget* SettingsWindow::generalPage() {
    auto* page = new QWidget();
    QFormLayout* form = makeForm(page);
    // The tray stands for the menu bar; the window at start stands for the dock.
    check(form, "showInMenuBar", false, tr("Keep an icon in the tray between recordings"));
    check(form, "showInDock", true, tr("Show the main window when tavelquiston starts"));
    check(form, "showPreview", true, tr("Show a preview over the trimmer after recording"));
    const auto shortcut = [this, form](const char* key, const QString& fallback,
                                       const QString& label) {
        auto* edit =
            new QKeySequenceEdit(QKeySequence::fromString(m_defaults.stringValue(key, fallback),
                                                          QKeySequence::PortableText),
                                 form->parentWidget());
        edit->setObjectName(objectNameFor(key));
        connect(edit, &QKeySequenceEdit::editingFinished, this, [this, key, edit] {
            m_defaults.set(key, edit->keySequence().toString(QKeySequence::PortableText));
        });
        form->addRow(label, edit);
    };
    shortcut("shortcutToggleRecording", QStringLiteral("Ctrl+Alt+R"), tr("Start / stop"));
    shortcut("shortcutPauseRecording", QStringLiteral("Ctrl+Alt+P"), tr("Pause / resume"));
    auto* shortcuts = new QLabel(
        tr("These keys work anywhere on an X11 desktop from the next start. On other desktops, "
           "bind these commands in the desktop's keyboard settings:\n"
           "tavelquiston --toggle-recording · tavelquiston --pause · tavelquiston --stop"),
        page);
    shortcuts->setObjectName(QStringLiteral("shortcutsHelp"));
    shortcuts->setWordWrap(true);
    shortcuts->setProperty("role", QStringLiteral("secondary"));
    shortcuts->setTextInteractionFlags(Qt::TextSelectableByMouse);
    form->addRow(tr("Shortcuts"), shortcuts);
    return page;
}
