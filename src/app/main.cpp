// vistrel: builds the environment, shows the output window and starts
// discovery and capture.

#include "app/AppEnvironment.h"
#include "app/PlatformServices.h"
#include "coordination/MainViewModel.h"
#include "presentation/OutputWindow.h"

#include <QApplication>
#include <QLoggingCategory>
#include <cstdio>
#include <cstdlib>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcApp, "quorbit.Vistrel.App")

// Qt's xcb plugin calls exit() when the display connection breaks, from deep
// inside the event loop, so main() never unwinds and the capture and camera
// threads would still run while the process destroys its globals. While an
// environment is registered here, such an exit first lets it save and stop
// its threads.
vistrel::AppEnvironment* liveEnvironment = nullptr;

void finishLiveEnvironment()
{
    if (auto* environment = std::exchange(liveEnvironment, nullptr)) {
        qCInfo(lcApp, "Exit from inside the event loop: saving and stopping capture first.");
        environment->finishBeforeExit();
    }
}

// Qt aborts when it finds no display to open windows on. That is the user's
// set-up, not a crash: while the application object is being built, a fatal
// message ends the process with a hint and status 1 instead.
QtMessageHandler previousMessageHandler = nullptr;

void startupMessageHandler(QtMsgType type, const QMessageLogContext& context,
                           const QString& message)
{
    if (type != QtFatalMsg) {
        previousMessageHandler(type, context, message);
        return;
    }
    std::fprintf(stderr,
                 "%s\nvistrel: no display to show its windows on. Run it in an X11 session "
                 "(DISPLAY set to a reachable X server).\n",
                 qUtf8Printable(message));
    std::fflush(stderr);
    std::_Exit(1);
}

class ExitHook {
public:
    explicit ExitHook(vistrel::AppEnvironment& environment)
    {
        // The category exists before the hook, so it is still there when the
        // hook runs (exit handlers run in reverse order of registration).
        lcApp();
        static const bool registered = std::atexit(finishLiveEnvironment) == 0;
        Q_UNUSED(registered);
        liveEnvironment = &environment;
    }
    ~ExitHook() { liveEnvironment = nullptr; }
    ExitHook(const ExitHook&) = delete;
    ExitHook& operator=(const ExitHook&) = delete;
};

} // namespace

int main(int argc, char** argv)
{
    previousMessageHandler = qInstallMessageHandler(startupMessageHandler);
    QApplication app(argc, argv);
    qInstallMessageHandler(previousMessageHandler);
    QApplication::setApplicationName(u"Vistrel"_s);
    QGuiApplication::setDesktopFileName(u"vistrel"_s);

    vistrel::AppEnvironment environment(vistrel::createPlatformServices());
    ExitHook exitHook(environment);

    vistrel::OutputWindow outputWindow(environment.outputViewModel(), environment.windowRegistry());
    outputWindow.show();
    // Nothing is discovered or captured before the first window is up.
    environment.mainViewModel().start();

    // Closing the output window, the only window so far, quits.
    return app.exec();
}
