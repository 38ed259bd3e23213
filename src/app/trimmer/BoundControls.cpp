#include "app/trimmer/BoundControls.h"

#include "app/trimmer/TrimmerStyle.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSlider>
#include <QVBoxLayout>

#include <cmath>

BoundControls::BoundControls(QWidget* owner, EditRecorder record)
    : QObject(owner), m_owner(owner), m_record(std::move(record)) {}

void BoundControls::edit(const QString& text, int control, const std::function<void()>& change) {
    m_record(text, control * 4096 + m_gesture % 4096, change);
    // One choice can change what others show (a preset unchecks the colours).
    refresh();
}

void BoundControls::onRefresh(std::function<void()> refresher) {
    m_refreshers.push_back(std::move(refresher));
}

void BoundControls::refresh() {
    for (const auto& refresher : m_refreshers)
        refresher();
}

void BoundControls::heading(QVBoxLayout* layout, const QString& text) {
    auto* label = new QLabel(text, m_owner);
    label->setProperty("heading", true);
    layout->addSpacing(trimmer::grid / 2);
    layout->addWidget(label);
}

void BoundControls::slider(QVBoxLayout* layout, const QString& name, const QString& objectName,
                           double minimum, double maximum, double step, std::function<double()> get,
                           std::function<void(double)> set, std::function<QString(double)> format) {
    const int control = newControl();
    auto* row = new QHBoxLayout();
    auto* label = new QLabel(name, m_owner);
    auto* value = new QLabel(m_owner);
    value->setProperty("secondary", true);
    row->addWidget(label);
    row->addStretch(1);
    row->addWidget(value);
    layout->addLayout(row);
    auto* slider = new QSlider(Qt::Horizontal, m_owner);
    slider->setObjectName(objectName);
    slider->setAccessibleName(name);
    slider->setRange(0, int(std::lround((maximum - minimum) / step)));
    slider->setFocusPolicy(Qt::NoFocus);
    layout->addWidget(slider);
    connect(slider, &QSlider::sliderPressed, this, [this] { beginGesture(); });
    connect(slider, &QSlider::valueChanged, this,
            [this, control, name, minimum, step, set](int position) {
                const double chosen = minimum + position * step;
                edit(tr("Change %1").arg(name.toLower()), control, [set, chosen] { set(chosen); });
            });
    onRefresh([slider, value, minimum, step, get, format] {
        const QSignalBlocker block(slider);
        const double current = get();
        slider->setValue(int(std::lround((current - minimum) / step)));
        value->setText(format(current));
    });
}

void BoundControls::check(QVBoxLayout* layout, const QString& name, const QString& objectName,
                          std::function<bool()> get, std::function<void(bool)> set) {
    const int control = newControl();
    auto* box = new QCheckBox(name, m_owner);
    box->setObjectName(objectName);
    box->setFocusPolicy(Qt::NoFocus);
    layout->addWidget(box);
    connect(box, &QCheckBox::toggled, this, [this, control, name, set](bool on) {
        beginGesture();
        edit(on ? tr("Turn on %1").arg(name.toLower()) : tr("Turn off %1").arg(name.toLower()),
             control, [set, on] { set(on); });
    });
    onRefresh([box, get] {
        const QSignalBlocker block(box);
        box->setChecked(get());
    });
}

void BoundControls::choices(QVBoxLayout* layout, const QString& name, const QString& objectName,
                            const QStringList& names, std::function<int()> get,
                            std::function<void(int)> set) {
    const int control = newControl();
    if (!name.isEmpty())
        layout->addWidget(new QLabel(name, m_owner));
    auto* row = new QHBoxLayout();
    row->setSpacing(0);
    auto* group = new QButtonGroup(m_owner);
    group->setExclusive(true);
    for (int i = 0; i < names.size(); ++i) {
        auto* button = new QPushButton(names[i], m_owner);
        button->setObjectName(QStringLiteral("segment"));
        // Joined into one segmented control: only the outer corners are round.
        button->setProperty("position", i == 0                       ? "first"
                                        : i == int(names.size()) - 1 ? "last"
                                                                     : "middle");
        button->setCheckable(true);
        button->setFocusPolicy(Qt::NoFocus);
        button->setCursor(Qt::PointingHandCursor);
        button->setAccessibleName(objectName + QLatin1Char(':') + names[i]);
        group->addButton(button, i);
        row->addWidget(button, 1);
    }
    group->setObjectName(objectName);
    layout->addLayout(row);
    connect(group, &QButtonGroup::idClicked, this, [this, control, name, set](int index) {
        beginGesture();
        edit(tr("Change %1").arg(name.isEmpty() ? tr("setting") : name.toLower()), control,
             [set, index] { set(index); });
    });
    onRefresh([group, get] {
        const int chosen = get();
        for (QAbstractButton* button : group->buttons()) {
            const QSignalBlocker block(button);
            button->setChecked(group->id(button) == chosen);
        }
    });
}
