#pragma once

// Connects the support services to this desktop: the screen-saver inhibitor, the notification
// service, the application's key events. Call once on the main thread after the Qt application
// object exists.
void installDesktopServices();
