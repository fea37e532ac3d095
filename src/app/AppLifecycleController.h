#pragma once

// The application's answers to the desktop: closing the last window never
// quits; starting the program again brings the control window back; quitting
// first marks the application as terminating, so that the windows' close
// interception lets them close instead of hiding them.
//
// Main thread only. One instance, built before the environment.

#include "presentation/WindowRegistry.h"

#include <QObject>
#include <QPointer>

namespace vistrel {

class AppLifecycleController : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isTerminating READ isTerminating NOTIFY isTerminatingChanged)

public:
    explicit AppLifecycleController(QObject* parent = nullptr);

    // Set once the environment exists; a weak reference.
    void setSharedWindowRegistry(WindowRegistry* registry) { m_registry = registry; }

    // Only ever moves from false to true.
    bool isTerminating() const { return m_isTerminating; }

    // The program was started again: shows the preferred control window and
    // activates it. False when there is no such window (nothing is shown).
    bool reopen();

    // Every quit path comes here: marks the application as terminating, lets
    // the windows close and ends the event loop.
    void terminate();

Q_SIGNALS:
    void isTerminatingChanged(bool isTerminating);

private:
    void markTerminating();

    QPointer<WindowRegistry> m_registry;
    bool m_isTerminating = false;
};

} // namespace vistrel
