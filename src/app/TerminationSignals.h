#pragma once

// SIGTERM (logout, `kill`), SIGINT (Ctrl+C in a terminal) and SIGHUP end
// Vistrel the way "Quit" does: on the main thread, through the lifecycle
// controller, so the state is saved and capture stops before the process
// ends. The handler only writes to a pipe; the work happens in the event loop.
//
// One instance per process, on the main thread.

#include <QObject>
#include <functional>

class QSocketNotifier;

namespace vistrel {

class TerminationSignals : public QObject {
    Q_OBJECT

public:
    // `terminate` runs on the main thread once per received signal.
    explicit TerminationSignals(std::function<void()> terminate, QObject* parent = nullptr);
    ~TerminationSignals() override;

private:
    std::function<void()> m_terminate;
    QSocketNotifier* m_notifier = nullptr;
};

} // namespace vistrel
