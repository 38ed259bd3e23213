#pragma once

#include "platform/v4l2/V4L2CameraDiscovery.h"

#include <QString>

class RecordingEngineFactory;

// The camera a `record` run asked for, checked before anything is recorded: it must be listed
// (by /dev path or name) and open now, so a missing or busy device is one clear error and no
// package or movie is left behind. Throws CliUsageError naming the device. Thread: main.
CameraDeviceInfo checkRecordCamera(const QString& requested, RecordingEngineFactory& factory);
