#pragma once

// The application's two windows, built once per run: the control window
// "Vistrel" and the output window "Vistrel Output", each taken over by a
// window placement controller that follows its description (the output
// model's canvas and recentre token, the registry's presentation, the main
// model's "always on top"), plus the application menu and its panic shortcut
// on both windows.
//
// prepareLaunch() runs the launch sequence once: start the main view model
// (discovery and capture begin only now), show the control window, create the
// output window docked out of the way.
//
// Main thread only. The environment and the lifecycle controller outlive it.

#include <QIcon>
#include <QObject>
#include <memory>

namespace vistrel {

class AppEnvironment;
class AppLifecycleController;
class AppMenu;
class AppTray;
class OutputWindow;
class MainControlWindow;
class PopoverHub;
class PreviewPanelController;
class WindowFrameStore;
class WindowPlacementController;

class AppWindows : public QObject {
    Q_OBJECT

public:
    AppWindows(AppEnvironment& environment, AppLifecycleController& lifecycle,
               QObject* parent = nullptr);
    ~AppWindows() override;

    void prepareLaunch();

    MainControlWindow* controlWindow() const { return m_control.get(); }
    OutputWindow* outputWindow() const { return m_output.get(); }
    AppMenu& menu() const { return *m_menu; }

    // The icon theme's, else the one built in.
    static QIcon applicationIcon();

private:
    void createOutputWindow();
    void describeControl();
    void describeOutput();

    AppEnvironment& m_environment;
    AppLifecycleController& m_lifecycle;
    bool m_hasPreparedLaunchWindows = false;
    std::unique_ptr<WindowFrameStore> m_frames;
    std::unique_ptr<AppMenu> m_menu;
    std::unique_ptr<AppTray> m_tray;
    std::unique_ptr<PopoverHub> m_popoverHub;
    std::unique_ptr<MainControlWindow> m_control;
    std::unique_ptr<OutputWindow> m_output;
    // Declared after the control window, so it goes first: the panel is the
    // control window's child.
    std::unique_ptr<PreviewPanelController> m_preview;
    WindowPlacementController* m_controlPlacement = nullptr; // child of its window
    WindowPlacementController* m_outputPlacement = nullptr;
};

} // namespace vistrel
