#include "app/AppLifecycleController.h"

#include "presentation/WindowRegistry.h"

#include <QApplication>

namespace vistrel {

AppLifecycleController::AppLifecycleController(QObject* parent) : QObject(parent)
{
    QGuiApplication::setQuitOnLastWindowClosed(false);
    // The session manager (logout) and QCoreApplication::quit() end the loop
    // without asking; they count as quitting too.
    if (auto* app = qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
        connect(app, &QGuiApplication::commitDataRequest, this,
                &AppLifecycleController::markTerminating);
        connect(app, &QCoreApplication::aboutToQuit, this,
                &AppLifecycleController::markTerminating);
    }
}

bool AppLifecycleController::reopen()
{
    if (!m_registry)
        return false;
    const ManagedWindowKind kind = m_registry->preferredControlKind();
    if (!m_registry->hasWindow(kind))
        return false;
    m_registry->show(kind, true);
    return true;
}

void AppLifecycleController::terminate()
{
    markTerminating();
    QApplication::closeAllWindows();
    QCoreApplication::quit();
}

void AppLifecycleController::markTerminating()
{
    if (m_isTerminating)
        return;
    m_isTerminating = true;
    Q_EMIT isTerminatingChanged(true);
}

} // namespace vistrel
