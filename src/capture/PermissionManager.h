#pragma once

// Knows whether the display may be captured, re-checks whenever the
// application becomes active, asks on request and opens the page that
// explains how access is granted.
//
// Main thread only. The prompting request runs on a pool thread; its answer
// comes back to the main thread and is dropped if the manager is gone.

#include "platform/ScreenCapturePermission.h"

#include <QObject>
#include <QString>
#include <memory>

namespace vistrel {

enum class ScreenRecordingPermissionState {
    checking, // only during construction
    granted,
    missing,
};

QString caseName(ScreenRecordingPermissionState state);

class PermissionManager : public QObject {
    Q_OBJECT
    Q_PROPERTY(vistrel::ScreenRecordingPermissionState state READ state NOTIFY stateChanged)

public:
    // The permission is shared with the pool thread that runs a request, so a
    // request in flight keeps it alive past the manager.
    PermissionManager(std::shared_ptr<ScreenCapturePermission> permission,
                      std::shared_ptr<UrlOpener> urlOpener, QObject* parent = nullptr);
    ~PermissionManager() override;

    ScreenRecordingPermissionState state() const { return m_state; }

    // Re-reads the permission without asking; publishes even when unchanged.
    void refreshState();
    // Asks for the permission away from the main thread; the outcome is
    // logged and published on the main thread.
    void requestAccess();
    // Opens the settings address when there is a valid one. The state is
    // re-checked when the user comes back to the application.
    void openSystemSettings();

Q_SIGNALS:
    void stateChanged(vistrel::ScreenRecordingPermissionState state);

private:
    void publish(ScreenRecordingPermissionState state);

    ScreenRecordingPermissionState m_state = ScreenRecordingPermissionState::checking;
    std::shared_ptr<ScreenCapturePermission> m_permission;
    std::shared_ptr<UrlOpener> m_urlOpener;
};

} // namespace vistrel
