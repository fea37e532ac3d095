#include "platform/x11/X11ScreenProvider.h"

#include <QGuiApplication>
#include <QScreen>
#include <xcb/randr.h>

namespace vistrel::x11 {

X11ScreenProvider::X11ScreenProvider(QByteArray displayName, QObject* parent)
    : QObject(parent), m_displayName(std::move(displayName))
{
    auto forget = [this] {
        m_monitors.reset();
    };
    auto watch = [this, forget](QScreen* screen) {
        connect(screen, &QScreen::geometryChanged, this, forget);
        connect(screen, &QScreen::availableGeometryChanged, this, forget);
    };
    if (auto* app = qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
        connect(app, &QGuiApplication::screenAdded, this, [forget, watch](QScreen* screen) {
            forget();
            watch(screen);
        });
        connect(app, &QGuiApplication::screenRemoved, this, forget);
        for (QScreen* screen : QGuiApplication::screens())
            watch(screen);
    }
}

X11ScreenProvider::~X11ScreenProvider() = default;

const QList<X11Monitor>& X11ScreenProvider::monitors() const
{
    if (m_monitors)
        return *m_monitors;
    m_monitors.emplace();
    if (!m_connection || xcb_connection_has_error(m_connection.get())) {
        const QByteArray name = m_displayName.isEmpty() ? qgetenv("DISPLAY") : m_displayName;
        m_connection.reset(xcb_connect(name.isEmpty() ? nullptr : name.constData(), nullptr));
    }
    xcb_connection_t* c = m_connection.get();
    if (xcb_connection_has_error(c))
        return *m_monitors; // no display: screens stay unjoined
    const auto* randr = xcb_get_extension_data(c, &xcb_randr_id);
    if (randr && randr->present)
        *m_monitors = readMonitors(c, xcb_setup_roots_iterator(xcb_get_setup(c)).data);
    return *m_monitors;
}

QList<ScreenInfo> X11ScreenProvider::screens() const
{
    QList<ScreenInfo> result;
    const QList<X11Monitor>& known = monitors();
    for (const QScreen* screen : QGuiApplication::screens()) {
        ScreenInfo info;
        info.frame = QRectF(screen->geometry());
        info.visibleFrame = QRectF(screen->availableGeometry());
        info.displayScale = screen->devicePixelRatio();
        if (const int rate = qRound(screen->refreshRate()); rate > 0)
            info.maximumFramesPerSecond = rate;
        // The monitor's product name when it has one, else the output name.
        info.localizedName = screen->model().isEmpty() ? screen->name() : screen->model();
        for (const X11Monitor& monitor : known) {
            if (monitor.name != screen->name())
                continue;
            info.displayID = monitor.displayID;
            if (monitor.productName)
                info.localizedName = *monitor.productName;
            break;
        }
        result << info;
    }
    return result;
}

} // namespace vistrel::x11
