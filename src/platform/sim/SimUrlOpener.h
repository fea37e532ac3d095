#pragma once

// Records the addresses it is asked to open instead of opening them.
// Main thread only.

#include "platform/ScreenCapturePermission.h"

#include <QList>
#include <QUrl>

namespace vistrel {

class SimUrlOpener final : public UrlOpener {
public:
    // Whether openUrl reports success (the desktop had a handler).
    void setSucceeds(bool succeeds) { m_succeeds = succeeds; }
    QList<QUrl> openedUrls() const { return m_opened; }

    bool openUrl(const QUrl& url) override;

private:
    QList<QUrl> m_opened;
    bool m_succeeds = true;
};

} // namespace vistrel
