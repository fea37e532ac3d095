#pragma once

// The tray icon, where the desktop has a tray: the "Vistrel" menu's items
// (panic, the built-in presets), then "Show Controls", "Show Output" and
// "Quit Vistrel". The icon turns into a crossed-out eye while panic blanks
// the output. Never the only way to anything: every item is also in the
// control window.
//
// Main thread only; the collaborators must outlive the tray.

#include <QObject>
#include <QString>
#include <memory>

class QMenu;
class QSystemTrayIcon;

namespace vistrel {

class AppLifecycleController;
class AppMenu;
class MainViewModel;
class WindowRegistry;

class AppTray : public QObject {
    Q_OBJECT

public:
    AppTray(AppMenu& appMenu, WindowRegistry& registry, MainViewModel& model,
            AppLifecycleController& lifecycle, QObject* parent = nullptr);
    ~AppTray() override;

    // The menu as it opens (rebuilt then, so the preset items are current).
    QMenu* menu() const { return m_menu.get(); }
    void rebuildMenu();
    // What the icon shows now: the application's icon, or the panic symbol.
    QString iconSymbol() const;

private:
    void syncIcon();

    AppMenu& m_appMenu;
    WindowRegistry& m_registry;
    MainViewModel& m_model;
    AppLifecycleController& m_lifecycle;
    std::unique_ptr<QMenu> m_menu;
    QSystemTrayIcon* m_icon = nullptr;
};

} // namespace vistrel
