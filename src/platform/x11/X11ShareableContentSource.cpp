#include "platform/x11/X11ShareableContentSource.h"

#include "platform/x11/X11DiscoveryCache.h"
#include "platform/x11/X11WindowInspector.h"

#include <QFutureWatcher>
#include <QHash>
#include <QPromise>
#include <QThreadPool>
#include <atomic>
#include <mutex>

namespace vistrel::x11 {

using Result = std::variant<ShareableContent, PlatformError>;

struct X11ShareableContentSource::Passes {
    explicit Passes(QByteArray displayName) : cache(std::move(displayName)) {}
    std::mutex mutex; // held for a whole pass
    X11DiscoveryCache cache;
    std::atomic<int> windowsRead{0};
};

X11ShareableContentSource::X11ShareableContentSource(QByteArray displayName, QObject* parent)
    : QObject(parent), m_passes(std::make_shared<Passes>(std::move(displayName)))
{
}

int X11ShareableContentSource::windowsReadByLastPass() const
{
    return m_passes->windowsRead.load();
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
    QThreadPool::globalInstance()->start([promise, passes = m_passes, excludingDesktopWindows,
                                          onScreenWindowsOnly] {
        promise->start();
        {
            std::lock_guard lock(passes->mutex);
            auto desktop = passes->cache.pass();
            passes->windowsRead = passes->cache.windowsRead();
            if (const auto* value = std::get_if<X11Desktop>(&desktop))
                promise->addResult(contentOf(*value, excludingDesktopWindows, onScreenWindowsOnly));
            else
                promise->addResult(std::get<PlatformError>(desktop));
        }
        promise->finish();
    });
}

std::variant<ShareableContent, PlatformError>
X11ShareableContentSource::snapshot(const QByteArray& displayName, bool excludingDesktopWindows,
                                    bool onScreenWindowsOnly)
{
    X11DiscoveryCache cache(displayName);
    auto desktop = cache.pass();
    if (const auto* value = std::get_if<X11Desktop>(&desktop))
        return contentOf(*value, excludingDesktopWindows, onScreenWindowsOnly);
    return std::get<PlatformError>(desktop);
}

ShareableContent X11ShareableContentSource::contentOf(const X11Desktop& desktop,
                                                      bool excludingDesktopWindows,
                                                      bool onScreenWindowsOnly)
{
    ShareableContent content;
    content.displays = desktop.displays;
    const QList<X11WindowInfo>& infos = desktop.windows;
    const auto& active = desktop.activeWindow;
    const auto& currentDesktop = desktop.currentDesktop;

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
        const bool onDesktop = !info.desktop || !currentDesktop ||
                               *info.desktop == *currentDesktop || *info.desktop == 0xFFFFFFFFu;
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
