#pragma once

// Capture access on X11: there is no prompt. Access exists when an X display
// is reachable and offers every extension the capture backend uses
// (Composite, DAMAGE, XFIXES, RENDER, MIT-SHM, RANDR, X-Resource); a request
// checks again.
//
// Threading: preflight() and request() run on any thread, each on a short
// connection of its own.

#include "platform/ScreenCapturePermission.h"

#include <QByteArray>
#include <QString>
#include <QUrl>
#include <optional>

namespace vistrel::x11 {

class X11Permission final : public ScreenCapturePermission {
public:
    // displayName: the X display; empty means $DISPLAY. helpUrl: the page
    // explaining capture access; empty means defaultHelpUrl().
    explicit X11Permission(QByteArray displayName = {}, QUrl helpUrl = {});

    bool preflight() const override;
    bool request() override;
    QUrl settingsUrl() const override { return m_helpUrl; }

    // Why access is missing (a sentence), or absent when it is granted.
    std::optional<QString> missingReason() const;

    // The README's capture-access section: the first README.md found in the
    // executable's folder or up to four folders above it, else the installed
    // documentation path.
    static QUrl defaultHelpUrl();

private:
    QByteArray m_displayName;
    QUrl m_helpUrl;
};

} // namespace vistrel::x11
