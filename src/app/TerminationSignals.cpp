#include "app/TerminationSignals.h"

#include <QLoggingCategory>
#include <QSocketNotifier>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace vistrel {

namespace {

Q_LOGGING_CATEGORY(lcSignals, "quorbit.Vistrel.App")

// [0] written by the handler, [1] read by the event loop.
int signalPipe[2] = {-1, -1};

void onSignal(int number)
{
    const char byte = char(number);
    // Async-signal-safe; a full pipe already holds a pending request.
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[0], &byte, 1);
}

} // namespace

TerminationSignals::TerminationSignals(std::function<void()> terminate, QObject* parent)
    : QObject(parent), m_terminate(std::move(terminate))
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, signalPipe) != 0) {
        qCWarning(lcSignals, "No pipe for termination signals; SIGTERM ends Vistrel at once.");
        return;
    }
    m_notifier = new QSocketNotifier(signalPipe[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] {
        char byte = 0;
        while (::read(signalPipe[1], &byte, 1) == 1) {
            qCInfo(lcSignals, "Signal %d: quitting.", int(byte));
            m_terminate();
        }
    });
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int number : {SIGTERM, SIGINT, SIGHUP})
        ::sigaction(number, &action, nullptr);
}

TerminationSignals::~TerminationSignals()
{
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    for (int number : {SIGTERM, SIGINT, SIGHUP})
        ::sigaction(number, &action, nullptr);
    delete m_notifier;
    for (int& fd : signalPipe)
        if (fd >= 0)
            ::close(std::exchange(fd, -1));
}

} // namespace vistrel
