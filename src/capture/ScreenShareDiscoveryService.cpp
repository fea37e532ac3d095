#include "capture/ScreenShareDiscoveryService.h"

#include "capture/OwnWindowSource.h"
#include "model/ObservableProperty.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QPointer>

namespace vistrel {

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcDiscovery, "quorbit.Vistrel.Discovery")

ScreenShareDiscoveryService::ScreenShareDiscoveryService(
    OwnWindowSource* ownWindows, CaptureBackend& backend, const ScreenProvider& screens,
    qint32 selfProcessID, std::optional<QString> selfBundleIdentifier, QObject* parent)
    : QObject(parent), m_ownWindows(ownWindows), m_backend(backend), m_screens(screens),
      m_selfProcessID(selfProcessID), m_selfBundleIdentifier(std::move(selfBundleIdentifier))
{
    m_tick.setSingleShot(true);
    m_tick.setInterval(refreshInterval);
    connect(&m_tick, &QTimer::timeout, this, &ScreenShareDiscoveryService::refreshOnce);
}

ScreenShareDiscoveryService::ScreenShareDiscoveryService(OwnWindowSource* ownWindows,
                                                         CaptureBackend& backend,
                                                         const ScreenProvider& screens,
                                                         QObject* parent)
    : ScreenShareDiscoveryService(ownWindows, backend, screens,
                                  qint32(QCoreApplication::applicationPid()), std::nullopt, parent)
{
}

ScreenShareDiscoveryService::~ScreenShareDiscoveryService() = default;

PlatformError ScreenShareDiscoveryService::missingShareableContentError()
{
    return PlatformError{u"ScreenCaptureAsyncError"_s, 0,
                         u"The display server did not return any shareable content."_s};
}

void ScreenShareDiscoveryService::startAutoRefresh()
{
    if (m_autoRefresh)
        return;
    m_autoRefresh = true;
    refreshOnce();
}

void ScreenShareDiscoveryService::stopAutoRefresh()
{
    m_autoRefresh = false;
    m_tick.stop();
    ++m_generation;
    setCatalog(ShareableCatalog::empty());
    setLastErrorMessage(std::nullopt);
    setRefreshing(false);
}

void ScreenShareDiscoveryService::refreshOnce()
{
    if (m_isRefreshing)
        return;
    setRefreshing(true);
    const quint64 generation = m_generation;
    QPointer<ScreenShareDiscoveryService> self(this);
    m_backend.getShareableContent(true, false,
                                  [self, generation](std::optional<ShareableContent> content,
                                                     std::optional<PlatformError> error) {
                                      if (self)
                                          self->finishPass(generation, std::move(content),
                                                           std::move(error));
                                  });
}

void ScreenShareDiscoveryService::finishPass(quint64 generation,
                                             std::optional<ShareableContent> content,
                                             std::optional<PlatformError> error)
{
    if (generation != m_generation || !m_isRefreshing)
        return; // overtaken by a stop
    if (!error && !content)
        error = missingShareableContentError();
    if (error) {
        qCCritical(lcDiscovery, "Discovery refresh failed: %s",
                   qUtf8Printable(error->localizedDescription));
        setCatalog(ShareableCatalog::empty());
        setLastErrorMessage(error->localizedDescription);
    } else {
        const QSet<quint32> own = m_ownWindows ? m_ownWindows->ownWindowNumbers() : QSet<quint32>();
        setCatalog(ShareableCatalog::fromContent(*content, m_selfProcessID, m_selfBundleIdentifier,
                                                 own, m_screens.screens()));
        setLastErrorMessage(std::nullopt);
    }
    setRefreshing(false);
    if (m_autoRefresh)
        m_tick.start();
    Q_EMIT refreshFinished();
}

void ScreenShareDiscoveryService::setCatalog(ShareableCatalog catalog)
{
    m_catalog = std::move(catalog);
    Q_EMIT catalogChanged(m_catalog);
}

void ScreenShareDiscoveryService::setRefreshing(bool refreshing)
{
    updateProperty(this, m_isRefreshing, refreshing,
                   &ScreenShareDiscoveryService::isRefreshingChanged);
}

void ScreenShareDiscoveryService::setLastErrorMessage(const std::optional<QString>& message)
{
    updateProperty(this, m_lastErrorMessage, message,
                   &ScreenShareDiscoveryService::lastErrorMessageChanged);
}

} // namespace vistrel
