#pragma once

#include <QObject>
#include <QStringList>

#include <functional>
#include <vector>

class QVBoxLayout;
class QWidget;

// The inspector's rows of controls, each bound to a value by a getter and a setter: sliders,
// check boxes and exclusive choices. A change runs its setter through the edit recorder, which
// makes it one undoable step, then every control shows the values again; `refresh` does the
// latter after an undo, a redo or a restore.
//
// Main thread.
class BoundControls final : public QObject {
    Q_OBJECT
public:
    // Runs `edit` and records it as one undoable step named `text`; steps with the same
    // `mergeId` in a row (one slider drag) are one.
    using EditRecorder =
        std::function<void(const QString& text, int mergeId, const std::function<void()>& edit)>;

    // Widgets are made as children of `owner`.
    BoundControls(QWidget* owner, EditRecorder record);

    // A named slider over [minimum, maximum] in steps of `step`, showing its value by `format`.
    void slider(QVBoxLayout* layout, const QString& name, const QString& objectName, double minimum,
                double maximum, double step, std::function<double()> get,
                std::function<void(double)> set, std::function<QString(double)> format);
    void check(QVBoxLayout* layout, const QString& name, const QString& objectName,
               std::function<bool()> get, std::function<void(bool)> set);
    // Exclusive buttons in a row; `get` gives the index of the chosen one.
    void choices(QVBoxLayout* layout, const QString& name, const QString& objectName,
                 const QStringList& names, std::function<int()> get, std::function<void(int)> set);
    void heading(QVBoxLayout* layout, const QString& text);

    // For controls made elsewhere: a number that keeps their steps apart from the others', the
    // start of a new drag or click, the change itself, and how they show the values again.
    int newControl() { return m_controlCount++; }
    void beginGesture() { ++m_gesture; }
    void edit(const QString& text, int control, const std::function<void()>& change);
    void onRefresh(std::function<void()> refresher);
    void refresh();

private:
    QWidget* m_owner = nullptr;
    EditRecorder m_record;
    std::vector<std::function<void()>> m_refreshers;
    int m_controlCount = 0;
    // Counts drags and clicks, so that two drags of one slider are two undo steps.
    int m_gesture = 0;
};
