#pragma once

#include <QString>
#include <QStringList>

#include <QCoro/QCoroTask>

// Closes the recordings that a killed or crashed run left unfinished in `folder` into playable
// "(Recovered)" movies, off the main thread, and tells the user once where they are: the
// unfinished markers go with the salvage, so the next start finds nothing to tell. Returns the
// recovered movies' paths. Thread: main; the salvage runs on the thread pool.
QCoro::Task<QStringList> recoverUnfinishedRecordings(QString folder);
