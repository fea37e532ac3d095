#pragma once

// The coordinator between the user's choices and the capture pipeline. It
// owns the live configuration (what is shared and how, the camera overlay,
// the presets through its preset model), mirrors the permission, discovery
// and capture services for the interface, and turns every change into two
// debounced jobs: a capture update 120 ms after the last change (build a plan
// and hand it to the engine) and a save of the state file 300 ms after the
// last persistent change. It also feeds the source list model.
//
// Nothing is discovered or captured until start(). Setters return early on
// an unchanged value, so a no-op schedules nothing.
//
// The application's own windows are kept out of capture by discovery (which
// reads them from the window registry); this model needs nothing from the
// registry and does not take it.
//
// Threading: main thread only. The services' changes reach this model through
// queued connections: one turn of the main loop later, never inside the
// service's own change, and not at all once the model is gone.
// Collaborators must outlive the model.

#include "capture/PermissionManager.h"
#include "capture/StreamStatus.h"
#include "coordination/AppListViewModel.h"
#include "coordination/Clock.h"
#include "coordination/PresetModel.h"
#include "model/OutputSettings.h"
#include "model/PersistedAppState.h"
#include "model/ShareConfiguration.h"
#include "model/SharePreset.h"
#include "model/SourceIdentity.h"
#include "model/VisibilityPolicy.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>
#include <chrono>
#include <optional>

namespace vistrel {

class CaptureEngine;
class CaptureFilterBuilder;
class DebouncedJob;
class PresetStore;
class ScreenShareDiscoveryService;
struct ShareableCatalog;

class MainViewModel : public QObject {
    Q_OBJECT
    // The five values below as one; each of them also has its own property.
    Q_PROPERTY(
        vistrel::ShareConfiguration configuration READ configuration NOTIFY configurationChanged)
    Q_PROPERTY(vistrel::VisibilityPolicy policy READ policy NOTIFY policyChanged)
    Q_PROPERTY(std::optional<quint32> selectedDisplayID READ selectedDisplayID NOTIFY
                   selectedDisplayIDChanged)
    Q_PROPERTY(QList<vistrel::ShareableDisplay> displays READ displays NOTIFY displaysChanged)
    Q_PROPERTY(vistrel::ScreenRecordingPermissionState permissionState READ permissionState NOTIFY
                   permissionStateChanged)
    Q_PROPERTY(vistrel::StreamStatus streamStatus READ streamStatus NOTIFY streamStatusChanged)
    Q_PROPERTY(std::optional<QString> discoveryErrorMessage READ discoveryErrorMessage NOTIFY
                   discoveryErrorMessageChanged)
    // Set when the state file could not be read at start: what happened and
    // where the user's file was kept. Cleared by dismissSettingsNotice().
    Q_PROPERTY(
        std::optional<QString> settingsNotice READ settingsNotice NOTIFY settingsNoticeChanged)
    Q_PROPERTY(bool hasStarted READ hasStarted NOTIFY hasStartedChanged)
    Q_PROPERTY(bool isRefreshing READ isRefreshing NOTIFY isRefreshingChanged)
    // Never saved: every launch starts unhidden.
    Q_PROPERTY(
        bool isPanicHidden READ isPanicHidden WRITE setPanicHidden NOTIFY isPanicHiddenChanged)
    Q_PROPERTY(
        bool isAlwaysOnTop READ isAlwaysOnTop WRITE setAlwaysOnTop NOTIFY isAlwaysOnTopChanged)
    Q_PROPERTY(vistrel::OutputFrameMode outputFrameMode READ outputFrameMode WRITE
                   setOutputFrameMode NOTIFY outputFrameModeChanged)
    Q_PROPERTY(vistrel::OutputContentMode outputContentMode READ outputContentMode WRITE
                   setOutputContentMode NOTIFY outputContentModeChanged)
    Q_PROPERTY(vistrel::CanvasBackgroundSelection canvasBackground READ canvasBackground NOTIFY
                   canvasBackgroundChanged)
    Q_PROPERTY(vistrel::CameraOverlayConfiguration cameraOverlay READ cameraOverlay WRITE
                   setCameraOverlay NOTIFY cameraOverlayChanged)
    Q_PROPERTY(vistrel::AppListViewModel* appListViewModel READ appListViewModel CONSTANT)
    Q_PROPERTY(vistrel::PresetModel* presetModel READ presetModel CONSTANT)

public:
    static constexpr std::chrono::milliseconds captureUpdateDelay{120};
    static constexpr std::chrono::milliseconds persistenceDelay{300};

    // Loads the state document from the store and subscribes to the services;
    // fetches and captures nothing. The jobs wait on `clock`, which also
    // dates saved presets.
    MainViewModel(PermissionManager& permissionManager,
                  ScreenShareDiscoveryService& discoveryService,
                  const CaptureFilterBuilder& filterBuilder, CaptureEngine& captureEngine,
                  PresetStore& presetStore, Clock& clock = Clock::system(),
                  QObject* parent = nullptr);
    // Pending jobs are cancelled.
    ~MainViewModel() override;

    // ---- observable state ----------------------------------------------
    const ShareConfiguration& configuration() const { return m_configuration; }
    const VisibilityPolicy& policy() const { return m_configuration.policy; }
    std::optional<quint32> selectedDisplayID() const { return m_configuration.selectedDisplayID; }
    const QList<ShareableDisplay>& displays() const { return m_displays; }
    ScreenRecordingPermissionState permissionState() const { return m_permissionState; }
    StreamStatus streamStatus() const { return m_streamStatus; }
    std::optional<QString> discoveryErrorMessage() const { return m_discoveryErrorMessage; }
    std::optional<QString> settingsNotice() const { return m_settingsNotice; }
    bool hasStarted() const { return m_hasStarted; }
    bool isRefreshing() const { return m_isRefreshing; }
    bool isPanicHidden() const { return m_isPanicHidden; }
    bool isAlwaysOnTop() const { return m_isAlwaysOnTop; }
    OutputFrameMode outputFrameMode() const { return m_configuration.outputFrameMode; }
    OutputContentMode outputContentMode() const { return m_configuration.outputContentMode; }
    const CanvasBackgroundSelection& canvasBackground() const
    {
        return m_configuration.canvasBackground;
    }
    const CameraOverlayConfiguration& cameraOverlay() const { return m_cameraOverlay; }
    AppListViewModel* appListViewModel() const { return m_appListViewModel; }
    PresetModel* presetModel() const { return m_presetModel; }

    // ---- operations ----------------------------------------------------
    // Checks the permission and, when granted, starts discovery; only the
    // first call has an effect.
    void start();
    void selectDisplay(std::optional<quint32> displayID);
    // Changes only the mode; both rule lists are kept.
    void setVisibilityMode(VisibilityMode mode);
    void setOutputFrameMode(OutputFrameMode mode);
    void setOutputContentMode(OutputContentMode mode);
    // Changes only the mode, keeping the image fields; reconfigures the
    // engine's canvas but rebuilds no capture.
    void setCanvasBackgroundMode(CanvasBackgroundMode mode);
    // Copies the image into the store and makes it the canvas. When the
    // store refuses the file, nothing changes and the reason is logged and
    // returned.
    std::optional<QString> importCanvasBackground(const QUrl& file);
    void setAlwaysOnTop(bool onTop);
    void setCameraOverlay(const CameraOverlayConfiguration& configuration);
    // Each change schedules a capture update; the filter builder answers a
    // hidden output with the panic blank.
    void setPanicHidden(bool hidden);
    void togglePanicHidden() { setPanicHidden(!m_isPanicHidden); }
    void toggleApplication(const ShareableApp& app);
    void toggleWindow(const ShareableWindow& window, const ShareableApp& app);
    // Clears the active rule list and the active preset; nothing without rules.
    void resetRules();
    void scheduleCaptureUpdate();
    // Asks for screen capture access again; opens the help on capture access.
    void requestScreenRecordingAccess();
    void openScreenRecordingSettings();
    void dismissSettingsNotice();
    void schedulePersistence();
    bool hasPendingCaptureUpdate() const;
    bool hasPendingSave() const;

    // ---- queries -------------------------------------------------------
    // The app's windows as listed on the selected display (its own list when
    // the display does not list it), as identities, in order.
    QList<WindowIdentity> windowIdentities(const ShareableApp& app) const;
    bool isApplicationSelected(const ShareableApp& app) const;
    SourceVisibilityState visibilityState(const ShareableApp& app) const;
    // The selected display's name, or "Not Selected".
    QString selectedDisplayName() const;
    // "<n> apps • <m> windows" for the selected display.
    QString sourceSummary() const;
    QString ruleCountText() const { return policy().activeRuleCountText(); }
    bool hasActiveRules() const { return policy().hasActiveRules(); }

    // ---- presets and the live configuration ----------------------------
    // Names, creation, renaming, deletion and order are the preset model's.
    // Makes the preset's configuration live and ends panic hide.
    void applyPreset(const QString& id);
    // Stores the live configuration into the preset and makes it active.
    void savePreset(const QString& id);
    // Resets a saved preset to empty; the live configuration stays.
    void clearPreset(const QString& id);
    bool presetMatchesCurrentState(const SharePreset& preset) const;
    // The active preset's title while the live configuration matches it.
    std::optional<QString> activePresetTitle() const;

    // The document the save job writes.
    PersistedAppState persistedState() const;

Q_SIGNALS:
    void policyChanged(const vistrel::VisibilityPolicy& policy);
    void selectedDisplayIDChanged(std::optional<quint32> selectedDisplayID);
    void displaysChanged(const QList<vistrel::ShareableDisplay>& displays);
    void permissionStateChanged(vistrel::ScreenRecordingPermissionState permissionState);
    void streamStatusChanged(const vistrel::StreamStatus& streamStatus);
    void discoveryErrorMessageChanged(const std::optional<QString>& discoveryErrorMessage);
    void settingsNoticeChanged(const std::optional<QString>& settingsNotice);
    void hasStartedChanged(bool hasStarted);
    void isRefreshingChanged(bool isRefreshing);
    void isPanicHiddenChanged(bool isPanicHidden);
    void isAlwaysOnTopChanged(bool isAlwaysOnTop);
    void outputFrameModeChanged(vistrel::OutputFrameMode outputFrameMode);
    void outputContentModeChanged(vistrel::OutputContentMode outputContentMode);
    void canvasBackgroundChanged(const vistrel::CanvasBackgroundSelection& canvasBackground);
    // After the signals of the single values that changed.
    void configurationChanged(const vistrel::ShareConfiguration& configuration);
    void cameraOverlayChanged(const vistrel::CameraOverlayConfiguration& cameraOverlay);

private:
    void subscribe();
    void handlePermissionState(ScreenRecordingPermissionState state);
    void handleCatalog(const ShareableCatalog& catalog);
    // Hands the selected display's applications and the policy to the
    // source list, which re-applies its query.
    void syncSourceList();
    // The engine's canvas inputs: content mode, background mode, image file.
    void pushCanvasSettings();
    QList<ShareableApp> applicationsOnSelectedDisplay() const;
    void runCaptureUpdate();
    void runPersistence();

    // Announces each value that differs, then the whole configuration.
    void setConfiguration(const ShareConfiguration& configuration);
    void setPolicy(const VisibilityPolicy& policy);
    void setSelectedDisplayID(std::optional<quint32> displayID);
    void setDisplays(const QList<ShareableDisplay>& displays);
    void setPermissionState(ScreenRecordingPermissionState state);
    void setStreamStatus(const StreamStatus& status);
    void setDiscoveryErrorMessage(const std::optional<QString>& message);
    void setRefreshing(bool refreshing);
    void describeRejectedState();
    void assignPanicHidden(bool hidden);

    AppListViewModel* m_appListViewModel;
    PresetModel* m_presetModel;
    Clock& m_clock;

    ShareConfiguration m_configuration;
    QList<ShareableDisplay> m_displays;
    ScreenRecordingPermissionState m_permissionState = ScreenRecordingPermissionState::checking;
    StreamStatus m_streamStatus;
    std::optional<QString> m_discoveryErrorMessage;
    std::optional<QString> m_settingsNotice;
    bool m_hasStarted = false;
    bool m_isRefreshing = false;
    bool m_isPanicHidden = false;
    bool m_isAlwaysOnTop = true;
    CameraOverlayConfiguration m_cameraOverlay;

    PermissionManager& m_permissionManager;
    ScreenShareDiscoveryService& m_discoveryService;
    const CaptureFilterBuilder& m_filterBuilder;
    CaptureEngine& m_captureEngine;
    PresetStore& m_presetStore;

    // Children: they die with the model, which cancels what is pending.
    DebouncedJob* m_captureUpdateJob;
    DebouncedJob* m_persistenceJob;
};

} // namespace vistrel
