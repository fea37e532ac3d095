#pragma once

// Hands addresses to the desktop's URL handler (xdg-open and friends, through
// QDesktopServices). Main thread.

#include "platform/ScreenCapturePermission.h"

namespace vistrel::x11 {

class X11UrlOpener final : public UrlOpener {
public:
    // False for an invalid address or when no handler took it.
    bool openUrl(const QUrl& url) override;
};

} // namespace vistrel::x11
