// vistrel: one instance per user; builds the environment and the windows,
// then starts discovery and capture with the launch sequence.

#include "app/AppEnvironment.h"
#include "app/AppLifecycleController.h"
#include "app/AppWindows.h"
#include "app/PlatformServices.h"
#include "app/SingleInstance.h"
#include "app/TerminationSignals.h"
#include "coordination/MainViewModel.h"

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
    QGuiApplication::setDesktopFileName(u"com.quorbit.vistrel"_s);
    QApplication::setWindowIcon(vistrel::AppWindows::applicationIcon());
    // The desktop entry's "Panic Hide Output" action.
    const bool panicAtOnce = QCoreApplication::arguments().contains(u"--panic"_s);

    // A second start only brings the running instance's control window back.
    vistrel::SingleInstance instance;
    switch (instance.claim(panicAtOnce ? vistrel::SingleInstance::Request::panic
                                       : vistrel::SingleInstance::Request::show)) {
    case vistrel::SingleInstance::Role::primary:
        break;
    case vistrel::SingleInstance::Role::secondary:
        if (!instance.errorString().isEmpty())
            qCWarning(lcApp, "Vistrel is already running, but %s.",
                      qUtf8Printable(instance.errorString()));
        return 0;
    case vistrel::SingleInstance::Role::unchecked:
        qCWarning(lcApp, "Cannot make sure that only one Vistrel runs: %s.",
                  qUtf8Printable(instance.errorString()));
        break;
    }

    vistrel::AppLifecycleController lifecycle;
    vistrel::AppEnvironment environment(vistrel::createPlatformServices());
    lifecycle.setSharedWindowRegistry(&environment.windowRegistry());
    ExitHook exitHook(environment);
    QObject::connect(&instance, &vistrel::SingleInstance::reopenRequested, &lifecycle,
                     &vistrel::AppLifecycleController::reopen);
    vistrel::MainViewModel& model = environment.mainViewModel();
    const auto blank = [&model] {
        model.setPanicHidden(true);
        model.scheduleCaptureUpdate();
    };
    QObject::connect(&instance, &vistrel::SingleInstance::panicRequested, &model, blank);
    if (panicAtOnce)
        blank();

    vistrel::TerminationSignals signals([&lifecycle] { lifecycle.terminate(); });

    vistrel::AppWindows windows(environment, lifecycle);
    // Nothing is discovered or captured before the control window is up.
    QMetaObject::invokeMethod(&windows, &vistrel::AppWindows::prepareLaunch, Qt::QueuedConnection);
    const int status = app.exec();
    // A change made just before quitting is still waiting for its save.
    environment.finishBeforeExit();
    return status;
}
