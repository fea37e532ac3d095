#pragma once

// A scripted capture permission for tests and demos. Like the X11 backend
// there is no prompt: by default a request answers what preflight answers.
// Thread-safe: preflight and request may run on any thread.

#include "platform/ScreenCapturePermission.h"

#include <QMutex>
#include <QThread>
#include <QUrl>
#include <QWaitCondition>
#include <optional>

namespace vistrel {

class SimPermission final : public ScreenCapturePermission {
public:
    explicit SimPermission(bool granted = false);

    void setGranted(bool granted);
    // What requests answer from now on; none means "whatever preflight says".
    // A request that answers true also grants later preflights.
    void setRequestOutcome(std::optional<bool> outcome);
    void setSettingsUrl(const QUrl& url);

    // While held, request() blocks until releaseRequests(), so a test can
    // finish or destroy the caller before the answer arrives.
    void holdRequests();
    void releaseRequests();

    int preflightCount() const;
    int requestCount() const;
    // The thread that ran the latest request.
    QThread* lastRequestThread() const;

    bool preflight() const override;
    bool request() override;
    QUrl settingsUrl() const override;

private:
    mutable QMutex m_mutex;
    QWaitCondition m_released;
    bool m_granted;
    std::optional<bool> m_requestOutcome;
    QUrl m_settingsUrl;
    bool m_held = false;
    mutable int m_preflightCount = 0;
    int m_requestCount = 0;
    QThread* m_lastRequestThread = nullptr;
};

} // namespace vistrel
