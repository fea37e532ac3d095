#include "coordination/MainViewModel.h"

#include "capture/CaptureEngine.h"
#include "capture/CaptureFilterBuilder.h"
#include "capture/ScreenShareDiscoveryService.h"
#include "coordination/DebouncedJob.h"
#include "coordination/PresetStore.h"
#include "model/ObservableProperty.h"

#include <QDir>
#include <QLoggingCategory>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace vistrel {

namespace {
Q_LOGGING_CATEGORY(lcMainViewModel, "quorbit.Vistrel.MainViewModel")
} // namespace

MainViewModel::MainViewModel(PermissionManager& permissionManager,
                             ScreenShareDiscoveryService& discoveryService,
                             const CaptureFilterBuilder& filterBuilder,
                             CaptureEngine& captureEngine, PresetStore& presetStore, Clock& clock,
                             QObject* parent)
    : QObject(parent), m_appListViewModel(new AppListViewModel(this)), m_clock(clock),
      m_permissionManager(permissionManager), m_discoveryService(discoveryService),
      m_filterBuilder(filterBuilder), m_captureEngine(captureEngine), m_presetStore(presetStore),
      m_captureUpdateJob(new DebouncedJob(
          captureUpdateDelay, [this] { runCaptureUpdate(); }, clock, this)),
      m_persistenceJob(new DebouncedJob(
          persistenceDelay, [this] { runPersistence(); }, clock, this))
{
    const PersistedAppState state = m_presetStore.load();
    m_configuration = state.configuration;
    m_presetModel = new PresetModel(state.presets, this);
    m_isAlwaysOnTop = state.isAlwaysOnTop;
    m_cameraOverlay = state.cameraOverlay;
    m_permissionState = m_permissionManager.state();
    m_streamStatus = m_captureEngine.streamStatus();

    describeRejectedState();
    connect(&m_presetStore, &PresetStore::rejectedStateKept, this,
            &MainViewModel::describeRejectedState);

    pushCanvasSettings();
    subscribe();
}

void MainViewModel::describeRejectedState()
{
    const std::optional<PresetStore::RejectedState> rejected = m_presetStore.rejectedState();
    if (!rejected)
        return;
    const QString kept =
        rejected->keptCopy
            ? tr("A copy was kept as %1.").arg(QDir::toNativeSeparators(*rejected->keptCopy))
            : tr("The file stays as it is until Vistrel saves; it is then kept beside the new "
                 "one as VistrelState.rejected-<time>.json.");
    updateProperty(this, m_settingsNotice,
                   std::optional(tr("Your earlier settings could not be read (%1). Vistrel "
                                    "started with the default settings. %2")
                                     .arg(rejected->reason, kept)),
                   &MainViewModel::settingsNoticeChanged);
}

void MainViewModel::dismissSettingsNotice()
{
    updateProperty(this, m_settingsNotice, std::optional<QString>(),
                   &MainViewModel::settingsNoticeChanged);
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
    connect(m_presetModel, &PresetModel::edited, this, &MainViewModel::schedulePersistence);
}

// ---- start and service handlers ---------------------------------------------

void MainViewModel::start()
{
    if (m_hasStarted)
        return;
    updateProperty(this, m_hasStarted, true, &MainViewModel::hasStartedChanged);
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
    const std::optional<quint32> selected = selectedDisplayID();
    const bool stillThere =
        selected && std::any_of(catalog.displays.cbegin(), catalog.displays.cend(),
                                [&](const ShareableDisplay& d) { return d.id == *selected; });
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
    if (displayID == selectedDisplayID())
        return;
    setSelectedDisplayID(displayID);
    syncSourceList();
    pushCanvasSettings();
    scheduleCaptureUpdate();
    schedulePersistence();
}

void MainViewModel::setVisibilityMode(VisibilityMode mode)
{
    if (mode == policy().mode)
        return;
    VisibilityPolicy policy = m_configuration.policy;
    policy.setMode(mode);
    setPolicy(policy);
    syncSourceList();
    scheduleCaptureUpdate();
    schedulePersistence();
}

void MainViewModel::setOutputFrameMode(OutputFrameMode mode)
{
    if (mode == outputFrameMode())
        return;
    ShareConfiguration next = m_configuration;
    next.outputFrameMode = mode;
    setConfiguration(next);
    scheduleCaptureUpdate();
    schedulePersistence();
}

void MainViewModel::setOutputContentMode(OutputContentMode mode)
{
    if (mode == outputContentMode())
        return;
    ShareConfiguration next = m_configuration;
    next.outputContentMode = mode;
    setConfiguration(next);
    pushCanvasSettings();
    scheduleCaptureUpdate();
    schedulePersistence();
}

void MainViewModel::setCanvasBackgroundMode(CanvasBackgroundMode mode)
{
    if (mode == canvasBackground().mode)
        return;
    ShareConfiguration next = m_configuration;
    next.canvasBackground.mode = mode;
    setConfiguration(next);
    pushCanvasSettings();
    schedulePersistence();
}

std::optional<QString> MainViewModel::importCanvasBackground(const QUrl& file)
{
    const CanvasImportResult result = m_presetStore.importCanvasBackground(file);
    if (const auto* error = std::get_if<CanvasImportError>(&result)) {
        qCCritical(lcMainViewModel, "Importing canvas background failed: %s",
                   qUtf8Printable(error->description));
        return error->description;
    }
    ShareConfiguration next = m_configuration;
    next.canvasBackground = std::get<CanvasBackgroundSelection>(result);
    setConfiguration(next);
    pushCanvasSettings();
    schedulePersistence();
    return std::nullopt;
}

void MainViewModel::setAlwaysOnTop(bool onTop)
{
    if (updateProperty(this, m_isAlwaysOnTop, onTop, &MainViewModel::isAlwaysOnTopChanged))
        schedulePersistence();
}

void MainViewModel::setCameraOverlay(const CameraOverlayConfiguration& configuration)
{
    if (updateProperty(this, m_cameraOverlay, configuration, &MainViewModel::cameraOverlayChanged))
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
    VisibilityPolicy policy = m_configuration.policy;
    policy.toggleApplication(app.identity, windowIdentities(app));
    setPolicy(policy);
    syncSourceList();
    scheduleCaptureUpdate();
    schedulePersistence();
}

void MainViewModel::toggleWindow(const ShareableWindow& window, const ShareableApp& app)
{
    VisibilityPolicy policy = m_configuration.policy;
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
    VisibilityPolicy policy = m_configuration.policy;
    policy.clearActiveRules();
    setPolicy(policy);
    m_presetModel->setActivePresetID(std::nullopt);
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
    const ShareConfiguration& c = m_configuration;
    const CaptureBuildResult result =
        m_filterBuilder.build(c.policy, c.selectedDisplayID, m_discoveryService.catalog(),
                              m_isPanicHidden, c.outputFrameMode, c.outputContentMode);
    if (const auto* reason = std::get_if<OutputBlankReason>(&result))
        m_captureEngine.blank(*reason);
    else
        m_captureEngine.apply(std::get<CapturePlan>(result));
}

PersistedAppState MainViewModel::persistedState() const
{
    PersistedAppState state;
    state.configuration = m_configuration;
    state.presets = m_presetModel->presets();
    state.isAlwaysOnTop = m_isAlwaysOnTop;
    state.cameraOverlay = m_cameraOverlay;
    return state;
}

void MainViewModel::runPersistence()
{
    // The store logs its own failures and keeps the previous file.
    m_presetStore.save(persistedState());
}

// ---- source list and canvas -------------------------------------------------

void MainViewModel::syncSourceList()
{
    m_appListViewModel->update(applicationsOnSelectedDisplay(), policy());
}

void MainViewModel::pushCanvasSettings()
{
    const CanvasBackgroundSelection& canvas = canvasBackground();
    m_captureEngine.updateCanvas(outputContentMode(), canvas.mode,
                                 m_presetStore.canvasImageURL(canvas.imageRelativePath));
}

// ---- queries ----------------------------------------------------------------

void MainViewModel::requestScreenRecordingAccess()
{
    m_permissionManager.requestAccess();
}

void MainViewModel::openScreenRecordingSettings()
{
    m_permissionManager.openSystemSettings();
}

// ---- presets and the live configuration -------------------------------------

void MainViewModel::applyPreset(const QString& id)
{
    const SharePreset* found = m_presetModel->preset(id);
    if (!found)
        return;
    ShareConfiguration next = found->configuration;
    // A preset without a display keeps the selection, or takes the first display.
    if (!next.selectedDisplayID)
        next.selectedDisplayID = selectedDisplayID();
    if (!next.selectedDisplayID && !m_displays.isEmpty())
        next.selectedDisplayID = m_displays.first().id;
    setConfiguration(next);
    assignPanicHidden(false);
    m_presetModel->setActivePresetID(id);

    syncSourceList();
    pushCanvasSettings();
    scheduleCaptureUpdate();
    schedulePersistence();
}

void MainViewModel::savePreset(const QString& id)
{
    m_presetModel->savePreset(id, m_configuration, m_clock.now());
}

void MainViewModel::clearPreset(const QString& id)
{
    m_presetModel->clearPreset(id, m_configuration);
}

bool MainViewModel::presetMatchesCurrentState(const SharePreset& preset) const
{
    return preset.configuration.matches(m_configuration);
}

std::optional<QString> MainViewModel::activePresetTitle() const
{
    return m_presetModel->activePresetTitle(m_configuration);
}

// ---- observable setters -----------------------------------------------------

void MainViewModel::setConfiguration(const ShareConfiguration& next)
{
    if (next == m_configuration)
        return;
    ShareConfiguration& c = m_configuration;
    updateProperty(this, c.policy, next.policy, &MainViewModel::policyChanged);
    updateProperty(this, c.selectedDisplayID, next.selectedDisplayID,
                   &MainViewModel::selectedDisplayIDChanged);
    updateProperty(this, c.outputFrameMode, next.outputFrameMode,
                   &MainViewModel::outputFrameModeChanged);
    updateProperty(this, c.outputContentMode, next.outputContentMode,
                   &MainViewModel::outputContentModeChanged);
    updateProperty(this, c.canvasBackground, next.canvasBackground,
                   &MainViewModel::canvasBackgroundChanged);
    Q_EMIT configurationChanged(m_configuration);
}

void MainViewModel::setPolicy(const VisibilityPolicy& policy)
{
    ShareConfiguration next = m_configuration;
    next.policy = policy;
    setConfiguration(next);
}

void MainViewModel::setSelectedDisplayID(std::optional<quint32> displayID)
{
    ShareConfiguration next = m_configuration;
    next.selectedDisplayID = displayID;
    setConfiguration(next);
}

void MainViewModel::setDisplays(const QList<ShareableDisplay>& displays)
{
    updateProperty(this, m_displays, displays, &MainViewModel::displaysChanged);
}

void MainViewModel::setPermissionState(ScreenRecordingPermissionState state)
{
    updateProperty(this, m_permissionState, state, &MainViewModel::permissionStateChanged);
}

void MainViewModel::setStreamStatus(const StreamStatus& status)
{
    updateProperty(this, m_streamStatus, status, &MainViewModel::streamStatusChanged);
}

void MainViewModel::setDiscoveryErrorMessage(const std::optional<QString>& message)
{
    updateProperty(this, m_discoveryErrorMessage, message,
                   &MainViewModel::discoveryErrorMessageChanged);
}

void MainViewModel::setRefreshing(bool refreshing)
{
    updateProperty(this, m_isRefreshing, refreshing, &MainViewModel::isRefreshingChanged);
}

void MainViewModel::assignPanicHidden(bool hidden)
{
    updateProperty(this, m_isPanicHidden, hidden, &MainViewModel::isPanicHiddenChanged);
}

} // namespace vistrel
