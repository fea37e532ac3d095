#include "app/AppTray.h"

#include "app/AppLifecycleController.h"
#include "app/AppMenu.h"
#include "app/AppWindows.h"
#include "coordination/MainViewModel.h"
#include "presentation/ManagedWindowKind.h"
#include "presentation/SymbolIcon.h"
#include "presentation/WindowRegistry.h"

#include <QIcon>
#include <QMenu>
#include <QSystemTrayIcon>

using namespace Qt::StringLiterals;

namespace vistrel {

AppTray::AppTray(AppMenu& appMenu, WindowRegistry& registry, MainViewModel& model,
                 AppLifecycleController& lifecycle, QObject* parent)
    : QObject(parent), m_appMenu(appMenu), m_registry(registry), m_model(model),
      m_lifecycle(lifecycle), m_menu(std::make_unique<QMenu>(tr("Vistrel")))
{
    connect(m_menu.get(), &QMenu::aboutToShow, this, &AppTray::rebuildMenu);
    rebuildMenu();
    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        m_icon = new QSystemTrayIcon(this);
        m_icon->setToolTip(tr("Vistrel"));
        m_icon->setContextMenu(m_menu.get());
        m_icon->show();
    }
    connect(&model, &MainViewModel::isPanicHiddenChanged, this, &AppTray::syncIcon);
    syncIcon();
}

AppTray::~AppTray() = default;

void AppTray::rebuildMenu()
{
    m_menu->clear();
    m_menu->addActions(m_appMenu.menu()->actions());
    m_menu->addSeparator();
    m_menu->addAction(tr("Show Controls"), this,
                      [this] { m_registry.show(ManagedWindowKind::simpleControl, true); });
    m_menu->addAction(tr("Show Output"), this,
                      [this] { m_registry.show(ManagedWindowKind::output, true); });
    m_menu->addSeparator();
    m_menu->addAction(tr("Quit Vistrel"), this, [this] { m_lifecycle.terminate(); });
}

QString AppTray::iconSymbol() const
{
    return m_model.isPanicHidden() ? u"eye.slash"_s : u"com.quorbit.vistrel"_s;
}

void AppTray::syncIcon()
{
    if (!m_icon)
        return;
    if (m_model.isPanicHidden()) {
        QIcon icon;
        for (const int size : {16, 22, 24, 32, 48})
            icon.addPixmap(
                QPixmap::fromImage(symbolImage(iconSymbol(), size, QColor(0xe0, 0x1b, 0x24), 1.0)));
        m_icon->setIcon(icon);
    } else {
        m_icon->setIcon(AppWindows::applicationIcon());
    }
    m_icon->setToolTip(m_model.isPanicHidden() ? tr("Vistrel: output blanked") : tr("Vistrel"));
}

} // namespace vistrel
