// vistrel: builds the environment, shows the output window and starts
// discovery and capture.

#include "app/AppEnvironment.h"
#include "app/PlatformServices.h"
#include "coordination/MainViewModel.h"
#include "presentation/OutputWindow.h"

#include <QApplication>
#include <QLoggingCategory>
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
    QApplication app(argc, argv);
    QApplication::setApplicationName(u"Vistrel"_s);
    QGuiApplication::setDesktopFileName(u"vistrel"_s);

    vistrel::AppEnvironment environment(vistrel::createPlatformServices());
    ExitHook exitHook(environment);

    vistrel::OutputWindow outputWindow(environment.outputViewModel(), environment.windowRegistry());
    outputWindow.show();
    // Nothing is discovered or captured before the first window is up.
    environment.mainViewModel().start();

    return app.exec();
}
