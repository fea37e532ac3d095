#pragma once

// The application menu "Vistrel": the panic item (its title follows the
// panic state; Ctrl+Shift+H from any window of the application), a
// separator, and one "Load <title> Preset" item per built-in preset, in the
// presets' order. The same menu serves the control window's menu button and
// context menu and the tray icon.
//
// Main thread only. The view model outlives the menu.

#include <QObject>
#include <memory>

class QAction;
class QMenu;

namespace vistrel {

class MainViewModel;

class AppMenu : public QObject {
    Q_OBJECT

public:
    explicit AppMenu(MainViewModel& viewModel, QObject* parent = nullptr);
    ~AppMenu() override;

    QMenu* menu() const { return m_menu.get(); }
    // Add it to every window so that its shortcut works wherever the
    // application has the focus.
    QAction* panicAction() const { return m_panic; }

private:
    void rebuildPresetItems();
    void syncPanicTitle();

    MainViewModel& m_viewModel;
    std::unique_ptr<QMenu> m_menu;
    QAction* m_panic;
};

} // namespace vistrel
