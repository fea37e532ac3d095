#pragma once

// The window system's screens (QScreen) joined to RandR display ids.
//
// Qt names each screen after its RandR monitor, so the join is by name. The
// monitor list is read on a connection of this provider's own and kept until
// the screen layout changes.
//
// Threading: main thread (QScreen lives there). Coordinates: global, y-down.

#include "platform/ScreenProvider.h"
#include "platform/x11/X11Monitors.h"
#include "platform/x11/XcbPtr.h"

#include <QByteArray>
#include <QObject>

namespace vistrel::x11 {

class X11ScreenProvider : public QObject, public ScreenProvider {
    Q_OBJECT
public:
    // displayName: the X display; empty means $DISPLAY.
    explicit X11ScreenProvider(QByteArray displayName = {}, QObject* parent = nullptr);
    ~X11ScreenProvider() override;

    QList<ScreenInfo> screens() const override;

private:
    const QList<X11Monitor>& monitors() const;

    QByteArray m_displayName;
    mutable XcbConnection m_connection;
    mutable std::optional<QList<X11Monitor>> m_monitors; // cleared on layout changes
};

} // namespace vistrel::x11
