#include "platform/x11/X11ShareableContentSource.h"

#include "platform/x11/X11Monitors.h"
#include "platform/x11/X11WindowInspector.h"
#include "platform/x11/XcbPtr.h"

#include <QFutureWatcher>
#include <QHash>
#include <QPromise>
#include <QThreadPool>
#include <memory>
#include <xcb/randr.h>
#include <xcb/res.h>

using namespace Qt::StringLiterals;

namespace vistrel::x11 {

namespace {

using Result = std::variant<ShareableContent, PlatformError>;

PlatformError error(int code, const QString& message)
{
    return PlatformError{X11ShareableContentSource::errorDomain, code, message};
}

bool atLeast(quint32 major, quint32 minor, quint32 wantMajor, quint32 wantMinor)
{
    return major > wantMajor || (major == wantMajor && minor >= wantMinor);
}

QList<LiveDisplay> readDisplays(xcb_connection_t* c, const xcb_screen_t* screen)
{
    QList<LiveDisplay> displays;
    for (const X11Monitor& monitor : readMonitors(c, screen)) {
        LiveDisplay display;
        display.displayID = monitor.displayID;
        display.frame = QRectF(monitor.geometry);
        display.width = display.pixelWidth = monitor.geometry.width();
        display.height = display.pixelHeight = monitor.geometry.height();
        displays << display;
    }
    if (displays.isEmpty()) { // no monitor reported: the whole screen is one display (id 0)
        LiveDisplay whole;
        whole.frame = QRectF(0, 0, screen->width_in_pixels, screen->height_in_pixels);
        whole.width = whole.pixelWidth = screen->width_in_pixels;
        whole.height = whole.pixelHeight = screen->height_in_pixels;
        displays << whole;
    }
    return displays;
}

struct Candidate {
    xcb_window_t client;
    xcb_window_t frame;
};

// Bottom to top: managed clients (found below their frames) and mapped
// windows that no window manager frames (override-redirect, or everything
// when none runs).
QList<Candidate> stackingCandidates(xcb_connection_t* c, const X11WindowInspector& inspector)
{
    const bool managed = inspector.hasWindowManager();
    const auto clientList = managed ? inspector.clientListStacking() : std::nullopt;
    const QList<xcb_window_t> tops = inspector.topLevels();
    QList<xcb_get_window_attributes_cookie_t> cookies;
    for (xcb_window_t w : tops)
        cookies << xcb_get_window_attributes(c, w);
    QList<Candidate> candidates;
    for (qsizetype i = 0; i < tops.size(); ++i) {
        auto [attributes, e] = xcbReply(xcb_get_window_attributes_reply, c, cookies[i]);
        if (!attributes || attributes->_class == XCB_WINDOW_CLASS_INPUT_ONLY)
            continue;
        const bool viewable = attributes->map_state == XCB_MAP_STATE_VIEWABLE;
        if (attributes->override_redirect) {
            if (viewable)
                candidates << Candidate{tops[i], tops[i]};
            continue;
        }
        if (const auto client = inspector.clientBelow(tops[i])) {
            if (!clientList || clientList->contains(*client))
                candidates << Candidate{*client, tops[i]};
        } else if (viewable && !managed) {
            candidates << Candidate{tops[i], tops[i]};
        }
    }
    return candidates;
}

} // namespace

X11ShareableContentSource::X11ShareableContentSource(QByteArray displayName, QObject* parent)
    : QObject(parent), m_displayName(std::move(displayName))
{
}

void X11ShareableContentSource::fetch(bool excludingDesktopWindows, bool onScreenWindowsOnly,
                                      CaptureBackend::ContentCompletion completion)
{
    auto promise = std::make_shared<QPromise<Result>>();
    // The watcher is this object's child: destroying the source drops the answer.
    auto* watcher = new QFutureWatcher<Result>(this);
    connect(watcher, &QFutureWatcherBase::finished, this,
            [watcher, completion = std::move(completion)] {
                watcher->deleteLater();
                const Result result = watcher->future().result();
                if (const auto* content = std::get_if<ShareableContent>(&result))
                    completion(*content, std::nullopt);
                else
                    completion(std::nullopt, std::get<PlatformError>(result));
            });
    watcher->setFuture(promise->future());
    QThreadPool::globalInstance()->start(
        [promise, name = m_displayName, excludingDesktopWindows, onScreenWindowsOnly] {
            promise->start();
            promise->addResult(snapshot(name, excludingDesktopWindows, onScreenWindowsOnly));
            promise->finish();
        });
}

std::variant<ShareableContent, PlatformError>
X11ShareableContentSource::snapshot(const QByteArray& displayName, bool excludingDesktopWindows,
                                    bool onScreenWindowsOnly)
{
    const QByteArray name = displayName.isEmpty() ? qgetenv("DISPLAY") : displayName;
    XcbConnection connection(xcb_connect(name.isEmpty() ? nullptr : name.constData(), nullptr));
    xcb_connection_t* c = connection.get();
    if (xcb_connection_has_error(c))
        return error(
            1, u"Cannot connect to the X display \"%1\"."_s.arg(QString::fromLocal8Bit(name)));
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;

    const auto* randr = xcb_get_extension_data(c, &xcb_randr_id);
    if (!randr || !randr->present)
        return error(2, u"The X display has no RandR extension."_s);
    auto [randrVersion, e1] =
        xcbReply(xcb_randr_query_version_reply, c, xcb_randr_query_version(c, 1, 5));
    if (!randrVersion || !atLeast(randrVersion->major_version, randrVersion->minor_version, 1, 5))
        return error(2, u"The X display's RandR extension is older than 1.5."_s);
    bool hasResource = false;
    if (const auto* res = xcb_get_extension_data(c, &xcb_res_id); res && res->present) {
        auto [version, e2] =
            xcbReply(xcb_res_query_version_reply, c, xcb_res_query_version(c, 1, 2));
        hasResource = version && atLeast(version->server_major, version->server_minor, 1, 2);
    }

    ShareableContent content;
    content.displays = readDisplays(c, screen);

    X11WindowInspector inspector(c, screen->root, hasResource);
    const auto active = inspector.activeWindow();
    const auto desktop = inspector.currentDesktop();
    const QList<Candidate> candidates = stackingCandidates(c, inspector);

    QList<X11WindowInfo> infos; // front to back
    for (auto it = candidates.crbegin(); it != candidates.crend(); ++it) {
        auto info = inspector.inspect(it->client, it->frame);
        if (auto* value = std::get_if<X11WindowInfo>(&info)) // vanished windows are skipped
            infos << *value;
    }
    if (xcb_connection_has_error(c))
        return error(3, u"Lost the connection to the X display."_s);

    // One application per process, named by its front-most ordinary window.
    QHash<qint32, qsizetype> appIndex;
    for (int pass = 0; pass < 2; ++pass) {
        for (const X11WindowInfo& info : std::as_const(infos)) {
            if (!info.processID || appIndex.contains(*info.processID))
                continue;
            if (pass == 0 && (info.layer != WindowLayer::Normal || info.windowClass.isEmpty()))
                continue;
            LiveApplication app;
            app.processID = *info.processID;
            app.bundleIdentifier = info.applicationID;
            app.applicationName = info.windowClass.isEmpty()
                                      ? X11WindowInspector::processName(app.processID)
                                      : info.windowClass;
            appIndex.insert(app.processID, content.applications.size());
            content.applications << app;
        }
    }

    for (const X11WindowInfo& info : std::as_const(infos)) {
        LiveWindow window;
        window.windowID = info.client;
        window.title = info.title;
        window.frame = QRectF(info.frameGeometry);
        window.windowLayer = info.layer;
        const bool onDesktop =
            !info.desktop || !desktop || *info.desktop == *desktop || *info.desktop == 0xFFFFFFFFu;
        window.isOnScreen = info.viewable && !info.hidden && onDesktop;
        window.isActive = active && (*active == info.client || *active == info.frame);
        if (info.processID)
            window.owningApplication = content.applications.at(appIndex.value(*info.processID));
        if (excludingDesktopWindows && info.layer == WindowLayer::Desktop)
            continue;
        if (onScreenWindowsOnly && !window.isOnScreen)
            continue;
        content.windows << window;
    }
    return content;
}

} // namespace vistrel::x11
