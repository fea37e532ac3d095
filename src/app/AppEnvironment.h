#pragma once

// Builds every long-lived service once, in a fixed order, hands each its
// collaborators and keeps them for the life of the process:
//
//   window registry, permission manager, preset store, discovery service,
//   filter builder, output renderer, capture engine, camera session manager,
//   main view model, output view model
//
// Members are declared in that order (after the platform services they all
// stand on), so they are destroyed in reverse: nothing outlives what it uses.
// Building loads the state file (inside the main view model) but neither
// discovers nor captures anything: that starts with mainViewModel().start().
//
// Main thread only; needs a QApplication.

#include "app/PlatformServices.h"

#include <QObject>
#include <memory>

namespace vistrel {

class CameraSessionManager;
class CaptureEngine;
class CaptureFilterBuilder;
class MainViewModel;
class OutputRenderer;
class OutputViewModel;
class PermissionManager;
class PresetStore;
class ScreenShareDiscoveryService;
class WindowRegistry;

class AppEnvironment : public QObject {
    Q_OBJECT

public:
    // dataRoot replaces the user's data folder for the state file (tests);
    // empty means the standard location.
    explicit AppEnvironment(PlatformServices platform, const QString& dataRoot = QString(),
                            QObject* parent = nullptr);
    ~AppEnvironment() override;

    const PlatformServices& platform() const { return m_platform; }
    WindowRegistry& windowRegistry() const { return *m_windowRegistry; }
    PermissionManager& permissionManager() const { return *m_permissionManager; }
    PresetStore& presetStore() const { return *m_presetStore; }
    ScreenShareDiscoveryService& discoveryService() const { return *m_discoveryService; }
    CaptureFilterBuilder& filterBuilder() const { return *m_filterBuilder; }
    OutputRenderer& outputRenderer() const { return *m_outputRenderer; }
    CaptureEngine& captureEngine() const { return *m_captureEngine; }
    CameraSessionManager& cameraSessionManager() const { return *m_cameraSessionManager; }
    MainViewModel& mainViewModel() const { return *m_mainViewModel; }
    OutputViewModel& outputViewModel() const { return *m_outputViewModel; }

    // For a process that ends without unwinding (exit() called from deep
    // inside the event loop, as Qt does when the display connection breaks):
    // writes a pending save at once, stops discovery and the camera, and
    // stops capturing, so that no background thread runs while the process
    // destroys its globals. The services stay usable; nothing is freed.
    void finishBeforeExit();

private:
    PlatformServices m_platform;
    std::unique_ptr<WindowRegistry> m_windowRegistry;
    std::unique_ptr<PermissionManager> m_permissionManager;
    std::unique_ptr<PresetStore> m_presetStore;
    std::unique_ptr<ScreenShareDiscoveryService> m_discoveryService;
    std::unique_ptr<CaptureFilterBuilder> m_filterBuilder;
    std::unique_ptr<OutputRenderer> m_outputRenderer;
    std::unique_ptr<CaptureEngine> m_captureEngine;
    std::unique_ptr<CameraSessionManager> m_cameraSessionManager;
    std::unique_ptr<MainViewModel> m_mainViewModel;
    std::unique_ptr<OutputViewModel> m_outputViewModel;
};

} // namespace vistrel
