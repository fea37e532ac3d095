#include "coordination/MainViewModel.h"

#include "capture/CaptureEngine.h"
#include "capture/CaptureFilterBuilder.h"
#include "capture/ScreenShareDiscoveryService.h"
#include "coordination/DebouncedJob.h"
#include "coordination/PresetStore.h"

#include <QLoggingCategory>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {
Q_LOGGING_CATEGORY(lcMainViewModel, "quorbit.Vistrel.MainViewModel")

// Stores the value when it differs; the caller notifies only then.
template<typename T> bool assign(T& member, const T& value)
{
    if (member == value)
        return false;
    member = value;
    return true;
}
} // namespace

MainViewModel::MainViewModel(PermissionManager& permissionManager,
                             ScreenShareDiscoveryService& discoveryService,
                             const CaptureFilterBuilder& filterBuilder,
                             CaptureEngine& captureEngine, PresetStore& presetStore,
                             QObject* parent)
    : QObject(parent), m_appListViewModel(new AppListViewModel(this)),
      m_permissionManager(permissionManager), m_discoveryService(discoveryService),
      m_filterBuilder(filterBuilder), m_captureEngine(captureEngine), m_presetStore(presetStore),
      m_captureUpdateJob(new DebouncedJob(
          captureUpdateDelay, [this] { runCaptureUpdate(); }, this)),
      m_persistenceJob(new DebouncedJob(
          persistenceDelay, [this] { runPersistence(); }, this))
{
    const PersistedAppState state = m_presetStore.load();
    m_policy = state.policy;
    m_selectedDisplayID = state.selectedDisplayID;
    m_presets = state.presets;
    m_isAlwaysOnTop = state.isAlwaysOnTop;
    m_outputFrameMode = state.outputFrameMode;
    m_outputContentMode = state.outputContentMode;
    m_canvasBackground = state.canvasBackground;
    m_cameraOverlay = state.cameraOverlay;
    m_permissionState = m_permissionManager.state();
    m_streamStatus = m_captureEngine.streamStatus();

    setActivePresetID(std::nullopt);
    pushCanvasSettings();
    subscribe();
}

MainViewModel::~MainViewModel() = default;

void MainViewModel::subscribe()
{
    // `this` as context: queued deliveries are dropped once the model is gone.
    connect(&m_permissionManager, &PermissionManager::stateChanged, this,
            &MainViewModel::handlePermissionState, Qt::QueuedConnection);
    connect(&m_discoveryService, &ScreenShareDiscoveryService::catalogChanged, this,
            &MainViewModel::handleCatalog, Qt::QueuedConnection);
    connect(&m_discoveryService, &ScreenShareDiscoveryService::lastErrorMessageChanged, this,
            &MainViewModel::setDiscoveryErrorMessage, Qt::QueuedConnection);
    connect(&m_discoveryService, &ScreenShareDiscoveryService::isRefreshingChanged, this,
            &MainViewModel::setRefreshing, Qt::QueuedConnection);
    connect(&m_captureEngine, &CaptureEngine::streamStatusChanged, this,
            &MainViewModel::setStreamStatus, Qt::QueuedConnection);
}

// ---- start and service handlers ---------------------------------------------

void MainViewModel::start()
{
    if (m_hasStarted)
        return;
    setHasStarted(true);
    m_permissionManager.refreshState();
    if (m_permissionManager.state() == ScreenRecordingPermissionState::granted)
        m_discoveryService.startAutoRefresh();
    else
        scheduleCaptureUpdate(); // blanks the output for the missing permission
}

void MainViewModel::handlePermissionState(ScreenRecordingPermissionState state)
{
    setPermissionState(state);
    if (!m_hasStarted)
        return;
    switch (state) {
    case ScreenRecordingPermissionState::granted:
        m_discoveryService.startAutoRefresh();
        break;
    case ScreenRecordingPermissionState::missing:
        m_discoveryService.stopAutoRefresh();
        break;
    case ScreenRecordingPermissionState::checking:
        break;
    }
    scheduleCaptureUpdate();
}

void MainViewModel::handleCatalog(const ShareableCatalog& catalog)
{
    setDisplays(catalog.displays);
    // Not saved by itself: the next saved change carries the new selection.
    const bool stillThere =
        m_selectedDisplayID &&
        std::any_of(catalog.displays.cbegin(), catalog.displays.cend(),
                    [&](const ShareableDisplay& d) { return d.id == *m_selectedDisplayID; });
    if (!stillThere) {
        setSelectedDisplayID(catalog.displays.isEmpty()
                                 ? std::nullopt
                                 : std::optional<quint32>(catalog.displays.first().id));
    }
    syncSourceList();
    pushCanvasSettings();
    if (m_hasStarted)
        scheduleCaptureUpdate();
}

// ---- operations -------------------------------------------------------------

void MainViewModel::selectDisplay(std::optional<quint32> displayID)
{
    if (displayID == m_selectedDisplayID)
        return;
    setSelectedDisplayID(displayID);
    syncSourceList();
    pushCanvasSettings();
    scheduleCaptureUpdate();
    schedulePersistence();
}

void MainViewModel::setVisibilityMode(VisibilityMode mode)
{
    if (mode == m_policy.mode)
        return;
    VisibilityPolicy policy = m_policy;
    policy.setMode(mode);
    setPolicy(policy);
    syncSourceList();
    scheduleCaptureUpdate();
    schedulePersistence();
}

void MainViewModel::setOutputFrameMode(OutputFrameMode mode)
{
    if (mode == m_outputFrameMode)
        return;
    assignOutputFrameMode(mode);
    scheduleCaptureUpdate();
    schedulePersistence();
}

void MainViewModel::setOutputContentMode(OutputContentMode mode)
{
    if (mode == m_outputContentMode)
        return;
    assignOutputContentMode(mode);
    pushCanvasSettings();
    scheduleCaptureUpdate();
    schedulePersistence();
}

void MainViewModel::setCanvasBackgroundMode(CanvasBackgroundMode mode)
{
    if (mode == m_canvasBackground.mode)
        return;
    CanvasBackgroundSelection selection = m_canvasBackground;
    selection.mode = mode;
    setCanvasBackground(selection);
    pushCanvasSettings();
    schedulePersistence();
}

bool MainViewModel::importCanvasBackground(const QUrl& file)
{
    const CanvasImportResult result = m_presetStore.importCanvasBackground(file);
    if (const auto* error = std::get_if<CanvasImportError>(&result)) {
        qCCritical(lcMainViewModel, "Importing canvas background failed: %s",
                   qUtf8Printable(error->description));
        return false;
    }
    setCanvasBackground(std::get<CanvasBackgroundSelection>(result));
    pushCanvasSettings();
    schedulePersistence();
    return true;
}

void MainViewModel::setAlwaysOnTop(bool onTop)
{
    if (onTop == m_isAlwaysOnTop)
        return;
    m_isAlwaysOnTop = onTop;
    Q_EMIT isAlwaysOnTopChanged(m_isAlwaysOnTop);
    schedulePersistence();
}

void MainViewModel::setCameraOverlay(const CameraOverlayConfiguration& configuration)
{
    if (configuration == m_cameraOverlay)
        return;
    m_cameraOverlay = configuration;
    Q_EMIT cameraOverlayChanged(m_cameraOverlay);
    schedulePersistence();
}

void MainViewModel::setPanicHidden(bool hidden)
{
    if (hidden == m_isPanicHidden)
        return;
    assignPanicHidden(hidden);
    scheduleCaptureUpdate();
}

void MainViewModel::toggleApplication(const ShareableApp& app)
{
    VisibilityPolicy policy = m_policy;
    policy.toggleApplication(app.identity, windowIdentities(app));
    setPolicy(policy);
    syncSourceList();
    scheduleCaptureUpdate();
    schedulePersistence();
}

void MainViewModel::toggleWindow(const ShareableWindow& window, const ShareableApp& app)
{
    VisibilityPolicy policy = m_policy;
    policy.toggleWindow(WindowIdentity(window), windowIdentities(app));
    setPolicy(policy);
    syncSourceList();
    scheduleCaptureUpdate();
    schedulePersistence();
}

void MainViewModel::resetRules()
{
    if (!hasActiveRules())
        return;
    VisibilityPolicy policy = m_policy;
    policy.clearActiveRules();
    setPolicy(policy);
    setActivePresetID(std::nullopt);
    syncSourceList();
    scheduleCaptureUpdate();
    schedulePersistence();
}

void MainViewModel::scheduleCaptureUpdate()
{
    m_captureUpdateJob->schedule();
}

void MainViewModel::schedulePersistence()
{
    m_persistenceJob->schedule();
}

bool MainViewModel::hasPendingCaptureUpdate() const
{
    return m_captureUpdateJob->isPending();
}

bool MainViewModel::hasPendingSave() const
{
    return m_persistenceJob->isPending();
}

void MainViewModel::runCaptureUpdate()
{
    switch (m_permissionState) {
    case ScreenRecordingPermissionState::checking:
        return;
    case ScreenRecordingPermissionState::missing:
        // The builder is not asked: without permission there is no catalog
        // worth building from.
        m_captureEngine.blank(OutputBlankReason::permissionMissing);
        return;
    case ScreenRecordingPermissionState::granted:
        break;
    }
    const CaptureBuildResult result =
        m_filterBuilder.build(m_policy, m_selectedDisplayID, m_discoveryService.catalog(),
                              m_isPanicHidden, m_outputFrameMode, m_outputContentMode);
    if (const auto* reason = std::get_if<OutputBlankReason>(&result))
        m_captureEngine.blank(*reason);
    else
        m_captureEngine.apply(std::get<CapturePlan>(result));
}

PersistedAppState MainViewModel::persistedState() const
{
    PersistedAppState state;
    state.policy = m_policy;
    state.selectedDisplayID = m_selectedDisplayID;
    state.presets = m_presets;
    state.isAlwaysOnTop = m_isAlwaysOnTop;
    state.outputFrameMode = m_outputFrameMode;
    state.outputContentMode = m_outputContentMode;
    state.canvasBackground = m_canvasBackground;
    state.cameraOverlay = m_cameraOverlay;
    return state;
}

void MainViewModel::runPersistence()
{
    // The store logs its own failures and keeps the previous file.
    m_presetStore.save(persistedState());
}

// ---- source list and canvas -------------------------------------------------

QList<ShareableApp> MainViewModel::applicationsOnSelectedDisplay() const
{
    return m_discoveryService.catalog().applicationsOnDisplay(m_selectedDisplayID);
}

void MainViewModel::syncSourceList()
{
    m_appListViewModel->update(applicationsOnSelectedDisplay(), m_policy);
}

void MainViewModel::pushCanvasSettings()
{
    m_captureEngine.updateCanvas(
        m_outputContentMode, m_canvasBackground.mode,
        m_presetStore.canvasImageURL(m_canvasBackground.imageRelativePath));
}

// ---- queries ----------------------------------------------------------------

QList<WindowIdentity> MainViewModel::windowIdentities(const ShareableApp& app) const
{
    const QList<ShareableApp> onDisplay = applicationsOnSelectedDisplay();
    const auto listed =
        std::find_if(onDisplay.cbegin(), onDisplay.cend(), [&](const ShareableApp& candidate) {
            return candidate.identity == app.identity;
        });
    const QList<ShareableWindow>& windows =
        listed != onDisplay.cend() ? listed->windows : app.windows;
    QList<WindowIdentity> identities;
    identities.reserve(windows.size());
    for (const ShareableWindow& window : windows)
        identities.append(WindowIdentity(window));
    return identities;
}

bool MainViewModel::isApplicationSelected(const ShareableApp& app) const
{
    return m_policy.isApplicationSelected(app.identity, windowIdentities(app));
}

SourceVisibilityState MainViewModel::visibilityState(const ShareableApp& app) const
{
    return m_policy.applicationState(app.identity, windowIdentities(app));
}

QString MainViewModel::selectedDisplayName() const
{
    if (m_selectedDisplayID) {
        for (const ShareableDisplay& display : m_displays) {
            if (display.id == *m_selectedDisplayID)
                return display.name;
        }
    }
    return u"Not Selected"_s;
}

QString MainViewModel::sourceSummary() const
{
    const QList<ShareableApp> applications = applicationsOnSelectedDisplay();
    qsizetype windows = 0;
    for (const ShareableApp& app : applications)
        windows += app.windows.size();
    return u"%1 apps \u2022 %2 windows"_s.arg(applications.size()).arg(windows);
}

// ---- observable setters -----------------------------------------------------

void MainViewModel::setPolicy(const VisibilityPolicy& policy)
{
    if (assign(m_policy, policy))
        Q_EMIT policyChanged(m_policy);
}

void MainViewModel::setSelectedDisplayID(std::optional<quint32> displayID)
{
    if (assign(m_selectedDisplayID, displayID))
        Q_EMIT selectedDisplayIDChanged(m_selectedDisplayID);
}

void MainViewModel::setDisplays(const QList<ShareableDisplay>& displays)
{
    if (assign(m_displays, displays))
        Q_EMIT displaysChanged(m_displays);
}

void MainViewModel::setPresets(const QList<SharePreset>& presets)
{
    if (assign(m_presets, presets))
        Q_EMIT presetsChanged(m_presets);
}

void MainViewModel::setPermissionState(ScreenRecordingPermissionState state)
{
    if (assign(m_permissionState, state))
        Q_EMIT permissionStateChanged(m_permissionState);
}

void MainViewModel::setStreamStatus(const StreamStatus& status)
{
    if (assign(m_streamStatus, status))
        Q_EMIT streamStatusChanged(m_streamStatus);
}

void MainViewModel::setDiscoveryErrorMessage(const std::optional<QString>& message)
{
    if (assign(m_discoveryErrorMessage, message))
        Q_EMIT discoveryErrorMessageChanged(m_discoveryErrorMessage);
}

void MainViewModel::setHasStarted(bool started)
{
    if (assign(m_hasStarted, started))
        Q_EMIT hasStartedChanged(m_hasStarted);
}

void MainViewModel::setRefreshing(bool refreshing)
{
    if (assign(m_isRefreshing, refreshing))
        Q_EMIT isRefreshingChanged(m_isRefreshing);
}

void MainViewModel::assignPanicHidden(bool hidden)
{
    if (assign(m_isPanicHidden, hidden))
        Q_EMIT isPanicHiddenChanged(m_isPanicHidden);
}

void MainViewModel::assignOutputFrameMode(OutputFrameMode mode)
{
    if (assign(m_outputFrameMode, mode))
        Q_EMIT outputFrameModeChanged(m_outputFrameMode);
}

void MainViewModel::assignOutputContentMode(OutputContentMode mode)
{
    if (assign(m_outputContentMode, mode))
        Q_EMIT outputContentModeChanged(m_outputContentMode);
}

void MainViewModel::setCanvasBackground(const CanvasBackgroundSelection& selection)
{
    if (assign(m_canvasBackground, selection))
        Q_EMIT canvasBackgroundChanged(m_canvasBackground);
}

void MainViewModel::setActivePresetID(const std::optional<QString>& id)
{
    if (assign(m_activePresetID, id))
        Q_EMIT activePresetIDChanged(m_activePresetID);
}

} // namespace vistrel
