#pragma once

#include <QUrl>

namespace vistrel {

// Whether the display can be captured.
class ScreenCapturePermission {
public:
    virtual ~ScreenCapturePermission() = default;
    // Any thread; never prompts.
    virtual bool preflight() const = 0;
    // Called away from the main thread; may block while the user decides.
    virtual bool request() = 0;
    // Where the user can read how capture access is granted on this system.
    virtual QUrl settingsUrl() const = 0;
};

// Hands an address to the desktop's handler.
class UrlOpener {
public:
    virtual ~UrlOpener() = default;
    virtual bool openUrl(const QUrl& url) = 0;
};

} // namespace vistrel
