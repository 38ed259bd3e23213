#include "media/MediaWriterAdapter.h"

#include <QtConcurrent/QtConcurrentRun>

#include <QCoro/QCoroFuture>

void MediaWriterAdapter::configure(const WriterConfiguration& configuration) {
    m_writer.configure(configuration);
}

QCoro::Task<QString> MediaWriterAdapter::finishWriting() {
    MediaWriter* writer = &m_writer;
    // The writer waits for its encoder to drain; the main thread must not.
    QFuture<QString> finishing = QtConcurrent::run(
        [writer] { return QString::fromStdString(writer->finishWriting().string()); });
    QString path = co_await finishing;
    co_return path;
}
