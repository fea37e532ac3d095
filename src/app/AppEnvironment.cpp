#include "app/AppEnvironment.h"

#include "capture/CaptureEngine.h"
#include "capture/CaptureFilterBuilder.h"
#include "capture/OutputRenderer.h"
#include "capture/PermissionManager.h"
#include "capture/ScreenShareDiscoveryService.h"
#include "coordination/CameraSessionManager.h"
#include "coordination/MainViewModel.h"
#include "coordination/OutputViewModel.h"
#include "coordination/PresetStore.h"
#include "presentation/WindowRegistry.h"

namespace vistrel {

AppEnvironment::AppEnvironment(PlatformServices platform, const QString& dataRoot, QObject* parent)
    : QObject(parent), m_platform(std::move(platform))
{
    m_windowRegistry = std::make_unique<WindowRegistry>();
    m_permissionManager =
        std::make_unique<PermissionManager>(m_platform.permission, m_platform.urlOpener);
    m_presetStore = std::make_unique<PresetStore>(dataRoot);
    // The registry tells discovery which windows are ours, so they never show.
    m_discoveryService = std::make_unique<ScreenShareDiscoveryService>(
        m_windowRegistry.get(), *m_platform.captureBackend, *m_platform.screens);
    m_filterBuilder = std::make_unique<CaptureFilterBuilder>(*m_platform.screens);
    m_outputRenderer = std::make_unique<OutputRenderer>(m_platform.videoPlanes.get());
    m_captureEngine = std::make_unique<CaptureEngine>(*m_outputRenderer, *m_platform.captureBackend,
                                                      *m_platform.screens);
    m_cameraSessionManager = std::make_unique<CameraSessionManager>(*m_platform.camera);
    // Loads the state file.
    m_mainViewModel =
        std::make_unique<MainViewModel>(*m_permissionManager, *m_discoveryService, *m_filterBuilder,
                                        *m_captureEngine, *m_presetStore);
    m_outputViewModel =
        std::make_unique<OutputViewModel>(*m_permissionManager, *m_mainViewModel, *m_captureEngine,
                                          *m_outputRenderer, *m_cameraSessionManager);
}

AppEnvironment::~AppEnvironment() = default;

void AppEnvironment::finishBeforeExit()
{
    if (m_mainViewModel->hasPendingSave())
        m_presetStore->save(m_mainViewModel->persistedState());
    m_discoveryService->stopAutoRefresh();
    m_cameraSessionManager->stop();
    // Stopping the stream joins its worker thread: nothing captures while the
    // process tears down its globals.
    m_captureEngine->blank(OutputBlankReason::contentUnavailable);
}

} // namespace vistrel
