#pragma once

// The coordination layer on real services over the scripted platform: the
// permission manager, discovery, filter builder, capture engine, renderer,
// preset store (in a temporary folder) and the camera session manager on the
// test-pattern camera. The view models are made on demand, so that a test can
// prepare the state file or the permission first.

#include "capture/CaptureEngine.h"
#include "capture/CaptureFilterBuilder.h"
#include "capture/DisplayLayer.h"
#include "capture/OutputRenderer.h"
#include "capture/PermissionManager.h"
#include "capture/ScreenShareDiscoveryService.h"
#include "capture/support_message_log.h"
#include "coordination/CameraSessionManager.h"
#include "coordination/MainViewModel.h"
#include "coordination/OutputViewModel.h"
#include "coordination/PresetStore.h"
#include "platform/camera/TestPatternCamera.h"
#include "platform/sim/SimCaptureBackend.h"
#include "platform/sim/SimPermission.h"
#include "platform/sim/SimScreenProvider.h"
#include "platform/sim/SimUrlOpener.h"
#include "platform/sim/SimWorld.h"
#include "support_manual_clock.h"

#include <QTemporaryDir>
#include <memory>

namespace vistrel::test {

// Process ids and window ids of the standard scene.
namespace scene {
inline constexpr quint32 leftDisplay = 1;
inline constexpr quint32 rightDisplay = 2;
inline constexpr qint32 mailPid = 10;     // "Mail", org.example.mail
inline constexpr qint32 terminalPid = 11; // "Terminal", no bundle identifier
inline constexpr qint32 editorPid = 12;   // "Editor", org.example.editor; right display
inline constexpr quint32 inboxWindow = 101;
inline constexpr quint32 draftWindow = 102;
inline constexpr quint32 shellWindow = 111;
inline constexpr quint32 editorWindow = 121;
} // namespace scene

// Two side-by-side displays; Mail (two windows) and Terminal on the left,
// Editor on the right.
SimScene standardScene();

// Counts how often the filter builder reads the screen layout: once for
// every plan it builds for the screen frame, so a test can count builds.
class CountingScreenProvider : public ScreenProvider {
public:
    explicit CountingScreenProvider(const ScreenProvider& inner) : m_inner(inner) {}
    QList<ScreenInfo> screens() const override
    {
        ++m_reads;
        return m_inner.screens();
    }
    int reads() const { return m_reads; }

private:
    const ScreenProvider& m_inner;
    mutable int m_reads = 0;
};

// A display layer that accepts every frame, so the renderer reports shown
// frames.
class SinkDisplayLayer final : public DisplayLayer {
public:
    using DisplayLayer::DisplayLayer;
    DisplayLayerStatus status() const override { return DisplayLayerStatus::rendering; }
    void flush() override {}
    void enqueueSampleBuffer(const SampleBuffer&) override { ++frames; }
    void flushAndRemoveImage() override {}
    void setVideoGravity(VideoGravity) override {}
    void setBackgroundColor(const QColor&) override {}
    void setOpaque(bool) override {}
    int frames = 0;
};

// The inode of a file, 0 while there is none: atomic saves replace the file,
// so each save shows as a new inode.
quint64 fileInode(const QString& path);

class CoordinationRig {
public:
    explicit CoordinationRig(SimScene scene = standardScene(), bool permissionGranted = true);
    ~CoordinationRig();

    // Builds the main view model (it loads the state file now).
    MainViewModel& makeMainViewModel();
    // Builds the output view model on the main view model (made when missing).
    OutputViewModel& makeOutputViewModel();

    // Starts the main view model and waits for the first catalog to reach it.
    bool startAndDiscover();
    // Lets both debounced jobs fall due (the clock moves by the longer
    // delay) and the deliveries they cause arrive.
    void runJobs();
    // Keeps discovery from publishing again, so that every capture update a
    // test sees comes from the test's own changes.
    void freezeDiscovery() { backend.setHoldsContentRequests(true); }
    // Runs the pending jobs and lets the engine's answers arrive; true when
    // no capture update is pending after that.
    bool quiet();
    // Started, discovered and frozen, sharing `processID`'s application with
    // the stream running and nothing pending.
    bool startSharing(qint32 processID);

    // Writes a state document as the store would, before the model loads it.
    void writeState(const PersistedAppState& state) { presetStore.save(state); }
    PersistedAppState savedState() { return presetStore.load(); }
    QString stateFilePath() const { return presetStore.stateFilePath(); }

    // The standard scene's applications as the source list offers them.
    ShareableApp application(qint32 processID) const;
    ShareableWindow window(quint32 windowID) const;

    QTemporaryDir dataRoot;
    // The view models' jobs wait on this clock: it moves only by hand.
    ManualClock clock;
    SimWorld world;
    SimScreenProvider screens;
    CountingScreenProvider builderScreens{screens};
    std::shared_ptr<SimPermission> permission;
    std::shared_ptr<SimUrlOpener> urlOpener;
    SimCaptureBackend backend{world};
    PermissionManager permissionManager;
    ScreenShareDiscoveryService discovery;
    CaptureFilterBuilder filterBuilder{builderScreens};
    OutputRenderer renderer;
    CaptureEngine engine{renderer, backend, screens};
    PresetStore presetStore;
    TestPatternCameraPort cameraPort;
    CameraSessionManager cameraSessionManager{cameraPort};
    std::unique_ptr<MainViewModel> mainViewModel;
    std::unique_ptr<OutputViewModel> outputViewModel;
};

// Lets every queued delivery that is already posted arrive.
void settle();

} // namespace vistrel::test
