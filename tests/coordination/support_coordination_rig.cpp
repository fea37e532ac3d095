#include "support_coordination_rig.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTest>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace vistrel::test {

SimScene standardScene()
{
    SimScene s;
    s.displays = {makeSimDisplay(scene::leftDisplay, QRectF(0, 0, 1920, 1080), u"Left"_s),
                  makeSimDisplay(scene::rightDisplay, QRectF(1920, 0, 1920, 1080), u"Right"_s)};
    s.applications = {{scene::mailPid, u"org.example.mail"_s, u"Mail"_s},
                      {scene::terminalPid, std::nullopt, u"Terminal"_s},
                      {scene::editorPid, u"org.example.editor"_s, u"Editor"_s}};
    s.windows = {
        makeSimWindow(scene::inboxWindow, scene::mailPid, QRectF(100, 100, 800, 600), Qt::red,
                      u"Inbox"_s),
        makeSimWindow(scene::draftWindow, scene::mailPid, QRectF(200, 200, 600, 400), Qt::green,
                      u"Draft"_s),
        makeSimWindow(scene::shellWindow, scene::terminalPid, QRectF(1000, 100, 600, 400), Qt::blue,
                      u"Shell"_s),
        makeSimWindow(scene::editorWindow, scene::editorPid, QRectF(2100, 100, 800, 600),
                      Qt::yellow, u"Notes"_s),
    };
    return s;
}

quint64 fileInode(const QString& path)
{
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_ino : 0;
}

CoordinationRig::CoordinationRig(SimScene scene, bool permissionGranted)
    : world(scene), screens(SimScreenProvider::fromScene(scene)),
      permission(std::make_shared<SimPermission>(permissionGranted)),
      urlOpener(std::make_shared<SimUrlOpener>()), permissionManager(permission, urlOpener),
      // No process of the scene is ours.
      discovery(nullptr, backend, screens, 4242), presetStore(dataRoot.path())
{
    backend.setStreamsDeliverFrameOnStart(true);
}

CoordinationRig::~CoordinationRig()
{
    // The models subscribe to the services; they go first.
    outputViewModel.reset();
    mainViewModel.reset();
}

MainViewModel& CoordinationRig::makeMainViewModel()
{
    mainViewModel = std::make_unique<MainViewModel>(permissionManager, discovery, filterBuilder,
                                                    engine, presetStore, clock);
    return *mainViewModel;
}

OutputViewModel& CoordinationRig::makeOutputViewModel()
{
    if (!mainViewModel)
        makeMainViewModel();
    outputViewModel = std::make_unique<OutputViewModel>(permissionManager, *mainViewModel, engine,
                                                        renderer, cameraSessionManager);
    return *outputViewModel;
}

bool CoordinationRig::startAndDiscover()
{
    if (!mainViewModel)
        makeMainViewModel();
    QSignalSpy displays(mainViewModel.get(), &MainViewModel::displaysChanged);
    mainViewModel->start();
    return displays.wait(5000);
}

void CoordinationRig::runJobs()
{
    settle();
    clock.advance(MainViewModel::persistenceDelay);
    settle();
}

bool CoordinationRig::quiet()
{
    runJobs();
    // The engine answers from its own thread.
    QTest::qWait(50);
    settle();
    return !mainViewModel->hasPendingCaptureUpdate();
}

bool CoordinationRig::startSharing(qint32 processID)
{
    if (!startAndDiscover())
        return false;
    freezeDiscovery();
    mainViewModel->toggleApplication(application(processID));
    runJobs();
    return QTest::qWaitFor([&] { return engine.streamStatus() == StreamStatus::running(); },
                           5000) &&
           quiet();
}

ShareableApp CoordinationRig::application(qint32 processID) const
{
    for (const ShareableApp& app : discovery.catalog().applications) {
        if (app.processID == processID)
            return app;
    }
    qWarning("no application with pid %d in the catalog", processID);
    return {};
}

ShareableWindow CoordinationRig::window(quint32 windowID) const
{
    for (const ShareableApp& app : discovery.catalog().applications) {
        for (const ShareableWindow& window : app.windows) {
            if (window.id == windowID)
                return window;
        }
    }
    qWarning("no window %u in the catalog", windowID);
    return {};
}

void settle()
{
    // Deliveries may post further deliveries; a few rounds reach the end.
    for (int round = 0; round < 5; ++round)
        QCoreApplication::processEvents(QEventLoop::AllEvents);
}

} // namespace vistrel::test
