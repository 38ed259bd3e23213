#pragma once

#include "app/trimmer/PreviewWidget.h"
#include "app/trimmer/TrimmerWindow.h"
#include "support/EventLoop.h"

#include <QSize>
#include <QString>

#include <gtest/gtest.h>

#include <memory>

// A trimmer window on `path`, shown (at `size` when given) with its first frame in the preview;
// null, with the reason as a test failure, when it cannot open.
inline std::unique_ptr<TrimmerWindow> openShownTrimmer(const QString& path, QSize size = {}) {
    QString error;
    auto window = TrimmerWindow::open(path, error);
    EXPECT_TRUE(window) << error.toStdString();
    if (!window)
        return nullptr;
    if (size.isValid())
        window->resize(size);
    window->show();
    EXPECT_TRUE(waitUntil([&] { return !window->preview().frame().isNull(); }))
        << "the first frame never reached the preview";
    return window;
}
