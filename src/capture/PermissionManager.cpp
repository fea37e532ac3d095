#include "capture/PermissionManager.h"

#include <QFutureWatcher>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QPromise>
#include <QThreadPool>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {
Q_LOGGING_CATEGORY(lcPermission, "quorbit.Vistrel.Permission")

ScreenRecordingPermissionState stateFor(bool granted)
{
    return granted ? ScreenRecordingPermissionState::granted
                   : ScreenRecordingPermissionState::missing;
}
} // namespace

QString caseName(ScreenRecordingPermissionState state)
{
    switch (state) {
    case ScreenRecordingPermissionState::checking:
        return u"checking"_s;
    case ScreenRecordingPermissionState::granted:
        return u"granted"_s;
    case ScreenRecordingPermissionState::missing:
        return u"missing"_s;
    }
    Q_UNREACHABLE();
    return QString();
}

PermissionManager::PermissionManager(std::shared_ptr<ScreenCapturePermission> permission,
                                     std::shared_ptr<UrlOpener> urlOpener, QObject* parent)
    : QObject(parent), m_permission(std::move(permission)), m_urlOpener(std::move(urlOpener))
{
    Q_ASSERT(m_permission && m_urlOpener);
    // Access may have been granted elsewhere while the user was away. The
    // connection is tied to this object, so it ends with it.
    if (auto* app = qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
        connect(
            app, &QGuiApplication::applicationStateChanged, this,
            [this](Qt::ApplicationState state) {
                if (state == Qt::ApplicationActive)
                    refreshState();
            },
            Qt::QueuedConnection);
    }
    m_state = stateFor(m_permission->preflight());
}

PermissionManager::~PermissionManager() = default;

void PermissionManager::refreshState()
{
    publish(stateFor(m_permission->preflight()));
}

void PermissionManager::requestAccess()
{
    auto promise = std::make_shared<QPromise<bool>>();
    // The watcher is a child: once the manager is gone, a late answer has no
    // one to reach and is dropped.
    auto* watcher = new QFutureWatcher<bool>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher] {
        const bool granted = watcher->future().resultCount() > 0 && watcher->result();
        watcher->deleteLater();
        qCInfo(lcPermission, "Screen Recording access request completed: %s",
               granted ? "true" : "false");
        publish(stateFor(granted));
    });
    watcher->setFuture(promise->future());
    promise->start();
    QThreadPool::globalInstance()->start([promise, permission = m_permission] {
        promise->addResult(permission->request());
        promise->finish();
    });
}

void PermissionManager::openSystemSettings()
{
    const QUrl url = m_permission->settingsUrl();
    if (url.isEmpty() || !url.isValid())
        return;
    if (!m_urlOpener->openUrl(url))
        qCWarning(lcPermission, "Could not open %s", qUtf8Printable(url.toDisplayString()));
}

void PermissionManager::publish(ScreenRecordingPermissionState state)
{
    m_state = state;
    Q_EMIT stateChanged(state);
}

} // namespace vistrel
