#pragma once

// Records an attached phone or tablet straight to a movie file, outside the coordinator's own
// start and stop; it reports back through the coordinator's device callbacks. Thread: main.
class iOSDeviceCaptureEngine {
public:
    virtual ~iOSDeviceCaptureEngine() = default;
    virtual void cleanup() = 0;
};
