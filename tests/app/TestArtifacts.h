#pragma once

#include <QDir>
#include <QImage>
#include <QPixmap>
#include <QString>
#include <QWidget>

// Where the tests leave screenshots for a person to look at: $TAVELQUISTON_TEST_ARTIFACTS, or
// "test-artifacts" in the build folder.
inline QString testArtifactPath(const QString& name) {
    QString folder = qEnvironmentVariable("TAVELQUISTON_TEST_ARTIFACTS");
    if (folder.isEmpty())
        folder = QStringLiteral(TAVELQUISTON_ARTIFACTS_DIR);
    QDir().mkpath(folder);
    return QDir(folder).filePath(name);
}

// Saves what the widget draws; true when the file was written and the picture is not blank.
inline bool saveWidgetScreenshot(QWidget& widget, const QString& name) {
    const QImage image = widget.grab().toImage();
    return !image.isNull() && image.save(testArtifactPath(name));
}
