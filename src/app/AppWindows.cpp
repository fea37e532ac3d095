#include "app/AppWindows.h"

#include "app/AppEnvironment.h"
#include "app/AppLifecycleController.h"
#include "app/AppMenu.h"
#include "app/AppTray.h"
#include "app/PlatformServices.h"
#include "control/MainControlWindow.h"
#include "control/SourcePickerView.h"
#include "coordination/MainViewModel.h"
#include "coordination/OutputViewModel.h"
#include "coordination/PresetStore.h"
#include "presentation/OutputWindow.h"
#include "presentation/PopoverHub.h"
#include "presentation/PreviewPanel.h"
#include "presentation/PreviewPanelController.h"
#include "presentation/WindowFrameStore.h"
#include "presentation/WindowPlacementController.h"
#include "presentation/WindowRegistry.h"

#include <QAction>
#include <QDir>
#include <QIcon>
#include <QPointer>

using namespace Qt::StringLiterals;

namespace vistrel {

AppWindows::AppWindows(AppEnvironment& environment, AppLifecycleController& lifecycle,
                       QObject* parent)
    : QObject(parent), m_environment(environment), m_lifecycle(lifecycle),
      m_frames(std::make_unique<WindowFrameStore>(
          QDir(environment.presetStore().applicationDirectory()).filePath(u"WindowFrames.ini"_s))),
      m_menu(std::make_unique<AppMenu>(environment.mainViewModel()))
{
    QPointer<AppLifecycleController> lifecycleRef = &lifecycle;
    m_popoverHub = std::make_unique<PopoverHub>();
    WindowRegistry* registry = &environment.windowRegistry();
    ControlDeck::Actions actions;
    actions.togglePreview = [registry] {
        registry->setPreviewVisible(!registry->isPreviewVisible());
    };
    actions.quit = [lifecycleRef] {
        if (lifecycleRef)
            lifecycleRef->terminate();
    };
    actions.menu = m_menu->menu();
    MainViewModel* model = &environment.mainViewModel();
    actions.makeSourcePicker = [model](QWidget* popover) -> QWidget* {
        return new SourcePickerView(*model, popover);
    };
    const PlatformServices& platform = environment.platform();
    actions.camera.port = platform.camera.get();
    actions.camera.session = &environment.cameraSessionManager();
    // The help beside the one on capture access.
    QUrl cameraHelp = platform.permission->settingsUrl();
    cameraHelp.setFragment(u"camera-access"_s);
    actions.camera.openAccessHelp = [opener = platform.urlOpener, cameraHelp] {
        if (opener)
            opener->openUrl(cameraHelp);
    };
    GlobalShortcut* panicKey = platform.panicShortcut.get();
    actions.panicKeyProblem = [panicKey] {
        return panicKey ? panicKey->problem() : QString();
    };
    m_control = std::make_unique<MainControlWindow>(environment.mainViewModel(), *registry,
                                                    *m_popoverHub, std::move(actions));
    m_control->addAction(m_menu->panicAction());
    // The same command as the menu item, from anywhere on the display.
    if (panicKey)
        connect(panicKey, &GlobalShortcut::activated, m_menu->panicAction(), &QAction::trigger);
    m_controlPlacement = new WindowPlacementController(
        m_control.get(), ManagedWindowKind::simpleControl,
        PlacementServices{environment.windowRegistry(), *environment.platform().screens,
                          *environment.platform().windowSystem, *m_frames, [lifecycleRef] {
                              return lifecycleRef && lifecycleRef->isTerminating();
                          }});
    connect(&environment.mainViewModel(), &MainViewModel::isAlwaysOnTopChanged, this,
            &AppWindows::describeControl);
    connect(m_control.get(), &MainControlWindow::preferredHeightChanged, this,
            &AppWindows::describeControl);
    describeControl();
    m_preview = std::make_unique<PreviewPanelController>(*registry, environment.outputViewModel(),
                                                         environment.mainViewModel(), *m_popoverHub,
                                                         m_control.get());

    // Where the desktop has a tray, the menu is also there.
    m_tray = std::make_unique<AppTray>(*m_menu, *registry, environment.mainViewModel(), lifecycle);
}

AppWindows::~AppWindows() = default;

QIcon AppWindows::applicationIcon()
{
    return QIcon::fromTheme(u"com.quorbit.vistrel"_s,
                            QIcon(u":/vistrel/com.quorbit.vistrel.svg"_s));
}

void AppWindows::prepareLaunch()
{
    if (m_hasPreparedLaunchWindows)
        return;
    m_hasPreparedLaunchWindows = true;
    m_environment.mainViewModel().start();

    WindowRegistry& registry = m_environment.windowRegistry();
    if (!registry.isVisible(ManagedWindowKind::simpleControl)) {
        if (!registry.hasWindow(ManagedWindowKind::simpleControl))
            m_control->show();
        else
            registry.show(ManagedWindowKind::simpleControl, true);
    }
    if (!registry.hasWindow(ManagedWindowKind::output))
        createOutputWindow();
    registry.hide(ManagedWindowKind::output);
}

void AppWindows::createOutputWindow()
{
    QPointer<AppLifecycleController> lifecycleRef = &m_lifecycle;
    m_output = std::make_unique<OutputWindow>(m_environment.outputViewModel(),
                                              m_environment.windowRegistry());
    m_output->addAction(m_menu->panicAction());
    m_outputPlacement = new WindowPlacementController(
        m_output.get(), ManagedWindowKind::output,
        PlacementServices{m_environment.windowRegistry(), *m_environment.platform().screens,
                          *m_environment.platform().windowSystem, *m_frames, [lifecycleRef] {
                              return lifecycleRef && lifecycleRef->isTerminating();
                          }});
    const OutputViewModel& model = m_environment.outputViewModel();
    connect(&model, &OutputViewModel::outputRecenterTokenChanged, this,
            &AppWindows::describeOutput);
    connect(&model, &OutputViewModel::presentationChanged, this, &AppWindows::describeOutput);
    connect(&m_environment.windowRegistry(), &WindowRegistry::outputPresentationChanged, this,
            &AppWindows::describeOutput);
    describeOutput();
    // Shown at once, docked: a meeting application can pick it as its source
    // before the user brings it forward.
    m_output->show();
}

void AppWindows::describeControl()
{
    WindowDescription description;
    description.isAlwaysOnTop = m_environment.mainViewModel().isAlwaysOnTop();
    description.preferredSimpleWindowHeight = m_control->preferredHeight();
    m_controlPlacement->update(description);
}

void AppWindows::describeOutput()
{
    const OutputViewModel& model = m_environment.outputViewModel();
    WindowDescription description;
    const QSizeF canvas = model.canvasSize();
    if (!canvas.isEmpty())
        description.contentAspectRatio = canvas;
    description.outputRecenterToken = model.outputRecenterToken();
    description.outputPresentation = m_environment.windowRegistry().outputPresentation();
    m_outputPlacement->update(description);
}

} // namespace vistrel
