#pragma once

// Owns the current discovery snapshot. While running it takes one pass every
// 2 seconds, each started 2 seconds after the previous one ended, so passes
// never overlap; every pass replaces the catalog whole. A failed pass
// publishes the empty catalog and the error text; the next good pass clears
// the text. Stopping publishes the empty catalog.
//
// Threading: main thread. The backend's completion arrives on a later turn
// of the main loop; one that arrives after a stop, a restart or the
// service's destruction is ignored.

#include "capture/ShareableCatalog.h"
#include "platform/CaptureBackend.h"
#include "platform/PlatformError.h"
#include "platform/ScreenProvider.h"

#include <QObject>
#include <QTimer>
#include <chrono>
#include <optional>

namespace vistrel {

class OwnWindowSource;

class ScreenShareDiscoveryService : public QObject {
    Q_OBJECT
    // Published after every pass and every stop, also when unchanged: the
    // screen layout read alongside it may have changed.
    Q_PROPERTY(vistrel::ShareableCatalog catalog READ catalog NOTIFY catalogChanged)
    Q_PROPERTY(bool isRefreshing READ isRefreshing NOTIFY isRefreshingChanged)
    Q_PROPERTY(std::optional<QString> lastErrorMessage READ lastErrorMessage NOTIFY
                   lastErrorMessageChanged)

public:
    static constexpr std::chrono::milliseconds refreshInterval{2000};

    // ownWindows may be null (no windows of our own known); backend and
    // screens must outlive the service.
    ScreenShareDiscoveryService(OwnWindowSource* ownWindows, CaptureBackend& backend,
                                const ScreenProvider& screens, qint32 selfProcessID,
                                std::optional<QString> selfBundleIdentifier = std::nullopt,
                                QObject* parent = nullptr);
    // Uses the running process's identifier.
    ScreenShareDiscoveryService(OwnWindowSource* ownWindows, CaptureBackend& backend,
                                const ScreenProvider& screens, QObject* parent = nullptr);
    ~ScreenShareDiscoveryService() override;

    const ShareableCatalog& catalog() const { return m_catalog; }
    bool isRefreshing() const { return m_isRefreshing; }
    std::optional<QString> lastErrorMessage() const { return m_lastErrorMessage; }
    bool isAutoRefreshing() const { return m_autoRefresh; }
    qint32 selfProcessID() const { return m_selfProcessID; }

    // Starts the loop with an immediate pass; no effect while it runs.
    void startAutoRefresh();
    // Ends the loop and publishes the empty catalog, no error, not refreshing.
    void stopAutoRefresh();
    // One pass; no effect while a pass runs.
    void refreshOnce();

    // What a content request completed with neither content nor error means.
    static PlatformError missingShareableContentError();

Q_SIGNALS:
    void catalogChanged(const vistrel::ShareableCatalog& catalog);
    void isRefreshingChanged(bool isRefreshing);
    void lastErrorMessageChanged(const std::optional<QString>& lastErrorMessage);
    // A pass ended (successfully or not).
    void refreshFinished();

private:
    void finishPass(quint64 generation, std::optional<ShareableContent> content,
                    std::optional<PlatformError> error);
    void setCatalog(ShareableCatalog catalog);
    void setRefreshing(bool refreshing);
    void setLastErrorMessage(const std::optional<QString>& message);

    ShareableCatalog m_catalog;
    bool m_isRefreshing = false;
    std::optional<QString> m_lastErrorMessage;
    OwnWindowSource* m_ownWindows;
    CaptureBackend& m_backend;
    const ScreenProvider& m_screens;
    qint32 m_selfProcessID;
    std::optional<QString> m_selfBundleIdentifier;
    bool m_autoRefresh = false;
    QTimer m_tick;
    // Bumped by every stop: completions of earlier passes are stale.
    quint64 m_generation = 0;
};

} // namespace vistrel
