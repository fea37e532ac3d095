#include "app/PlatformServices.h"

#include "platform/camera/CameraPortFactory.h"
#include "platform/sim/SimCaptureBackend.h"
#include "platform/sim/SimGlobalShortcut.h"
#include "platform/sim/SimPermission.h"
#include "platform/sim/SimScene.h"
#include "platform/sim/SimScreenProvider.h"
#include "platform/sim/SimWindowSystem.h"
#include "platform/sim/SimWorld.h"
#include "platform/x11/X11CaptureBackend.h"
#include "platform/x11/X11GlobalShortcut.h"
#include "platform/x11/X11Permission.h"
#include "platform/x11/X11ScreenProvider.h"
#include "platform/x11/X11UrlOpener.h"
#include "platform/x11/X11VideoPlane.h"
#include "platform/x11/X11WindowSystem.h"

#include <QGuiApplication>
#include <QLoggingCategory>
#include <QPointer>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace vistrel {

Q_LOGGING_CATEGORY(lcPlatformChoice, "quorbit.Vistrel.Permission")

QString caseName(PlatformBackendKind kind)
{
    switch (kind) {
    case PlatformBackendKind::x11:
        return u"x11"_s;
    case PlatformBackendKind::sim:
        return u"sim"_s;
    case PlatformBackendKind::unavailable:
        return u"unavailable"_s;
    }
    return {};
}

PlatformChoiceInputs PlatformChoiceInputs::fromEnvironment()
{
    PlatformChoiceInputs inputs;
    inputs.forcedBackend = qEnvironmentVariable("VISTREL_BACKEND").trimmed().toLower();
    inputs.qtPlatformName = QGuiApplication::platformName();
    // The sim backend never touches the X display, so do not probe it then.
    if (inputs.forcedBackend != u"sim"_s)
        inputs.x11MissingReason = x11::X11Permission().missingReason();
    return inputs;
}

PlatformChoice choosePlatformBackend(const PlatformChoiceInputs& inputs)
{
    if (inputs.forcedBackend == u"sim"_s)
        return {PlatformBackendKind::sim, u"Scripted demo desktop (VISTREL_BACKEND=sim)."_s};
    if (inputs.forcedBackend == u"x11"_s)
        return {PlatformBackendKind::x11, u"X11 backend forced (VISTREL_BACKEND=x11)."_s};
    QString note;
    if (!inputs.forcedBackend.isEmpty())
        note = u"Unknown VISTREL_BACKEND \"%1\" ignored. "_s.arg(inputs.forcedBackend);
    // On xcb our own windows are X windows, so the X11 backend is right even
    // when capture access is missing: its permission then says why.
    if (inputs.qtPlatformName == u"xcb"_s)
        return {PlatformBackendKind::x11, note + u"X11 session."_s};
    if (!inputs.x11MissingReason)
        return {PlatformBackendKind::x11,
                note + u"X display reachable beside the \"%1\" platform: only X11 clients can "
                       "be captured."_s.arg(inputs.qtPlatformName)};
    return {PlatformBackendKind::unavailable,
            note + u"Vistrel needs an X11 session to capture windows (platform \"%1\"): %2"_s.arg(
                       inputs.qtPlatformName, *inputs.x11MissingReason)};
}

namespace {

// The scripted backend with a running frame clock, so that the demo output
// moves like a live desktop instead of waiting for a test to push frames.
class SimDemoBackend final : public CaptureBackend {
public:
    explicit SimDemoBackend(SimWorld& world) : m_backend(world)
    {
        m_backend.setStreamsDeliverFrameOnStart(true);
    }

    void getShareableContent(bool excludingDesktopWindows, bool onScreenWindowsOnly,
                             ContentCompletion completion) override
    {
        m_backend.getShareableContent(excludingDesktopWindows, onScreenWindowsOnly,
                                      std::move(completion));
    }

    std::unique_ptr<CaptureStream>
    createStream(const ContentFilter& filter, const StreamConfiguration& configuration,
                 std::weak_ptr<CaptureStreamDelegate> delegate) override
    {
        auto stream = m_backend.createStream(filter, configuration, std::move(delegate));
        if (const auto controller = m_backend.latestStream())
            controller->setFrameInterval(100);
        return stream;
    }

private:
    SimCaptureBackend m_backend;
};

SimScene demoScene()
{
    SimScene scene;
    SimDisplay display = makeSimDisplay(1, QRectF(0, 0, 1920, 1080), u"Demo Display"_s);
    display.visibleFrame = QRectF(0, 32, 1920, 1048);
    scene.displays = {display};
    scene.applications = {
        {4101, u"org.example.Editor"_s, u"Editor"_s},
        {4102, u"org.example.Browser"_s, u"Browser"_s},
        {4103, std::nullopt, u"Chat"_s},
        {4900, std::nullopt, u"Panel"_s},
    };
    scene.windows = {
        makeSimWindow(301, 4103, QRectF(1280, 620, 560, 380), QColor(0xe0, 0x40, 0x40),
                      u"Team chat"_s),
        makeSimWindow(201, 4102, QRectF(760, 140, 900, 620), QColor(0x30, 0x90, 0xe0),
                      u"Documentation"_s),
        makeSimWindow(101, 4101, QRectF(120, 100, 820, 640), QColor(0x40, 0xc0, 0x60),
                      u"main.cpp"_s),
        makeSimWindow(102, 4101, QRectF(160, 780, 600, 240), QColor(0x90, 0xd0, 0x70),
                      u"Terminal"_s),
    };
    SimWindow panel =
        makeSimWindow(900, 4900, QRectF(0, 0, 1920, 32), QColor(0x28, 0x28, 0x30), u"Panel"_s);
    panel.windowLayer = 20;
    scene.windows.append(panel);
    return scene;
}

// Completes every operation with the same error, on a later turn as the port asks.
class UnavailableStream final : public CaptureStream {
public:
    explicit UnavailableStream(PlatformError error) : m_error(std::move(error)) {}

    std::optional<PlatformError> addStreamOutput(SampleOutputType) override { return m_error; }
    void startCapture(Completion completion) override { fail(std::move(completion)); }
    void stopCapture(Completion completion) override
    {
        QTimer::singleShot(0, qApp,
                           [completion = std::move(completion)] { completion(std::nullopt); });
    }
    void updateConfiguration(const StreamConfiguration&, Completion completion) override
    {
        fail(std::move(completion));
    }
    void updateContentFilter(const ContentFilter&, Completion completion) override
    {
        fail(std::move(completion));
    }

private:
    void fail(Completion completion)
    {
        QTimer::singleShot(
            0, qApp, [completion = std::move(completion), error = m_error] { completion(error); });
    }

    PlatformError m_error;
};

class UnavailableBackend final : public CaptureBackend {
public:
    explicit UnavailableBackend(QString reason)
        : m_error{u"quorbit.Vistrel.Platform"_s, 1, std::move(reason)}
    {
    }

    void getShareableContent(bool, bool, ContentCompletion completion) override
    {
        QTimer::singleShot(0, qApp, [completion = std::move(completion), error = m_error] {
            completion(std::nullopt, error);
        });
    }

    std::unique_ptr<CaptureStream> createStream(const ContentFilter&, const StreamConfiguration&,
                                                std::weak_ptr<CaptureStreamDelegate>) override
    {
        return std::make_unique<UnavailableStream>(m_error);
    }

private:
    PlatformError m_error;
};

class UnavailablePermission final : public ScreenCapturePermission {
public:
    bool preflight() const override { return false; }
    bool request() override { return false; }
    QUrl settingsUrl() const override { return x11::X11Permission::defaultHelpUrl(); }
};

class NoScreens final : public ScreenProvider {
public:
    QList<ScreenInfo> screens() const override { return {}; }
};

} // namespace

PlatformServices::PlatformServices() = default;
PlatformServices::~PlatformServices() = default;
PlatformServices::PlatformServices(PlatformServices&&) noexcept = default;
PlatformServices& PlatformServices::operator=(PlatformServices&&) noexcept = default;

PlatformServices createPlatformServices(const PlatformChoice& choice)
{
    PlatformServices services;
    services.choice = choice;
    switch (choice.kind) {
    case PlatformBackendKind::x11:
        qCInfo(lcPlatformChoice, "Capture backend: x11. %s", qUtf8Printable(choice.reason));
        services.screens = std::make_unique<x11::X11ScreenProvider>();
        services.captureBackend = std::make_unique<x11::X11CaptureBackend>();
        services.permission = std::make_shared<x11::X11Permission>();
        services.urlOpener = std::make_shared<x11::X11UrlOpener>();
        break;
    case PlatformBackendKind::sim: {
        qCInfo(lcPlatformChoice, "Capture backend: sim. %s", qUtf8Printable(choice.reason));
        auto world = std::make_unique<SimWorld>(demoScene());
        services.screens =
            std::make_unique<SimScreenProvider>(SimScreenProvider::fromScene(world->scene()));
        services.captureBackend = std::make_unique<SimDemoBackend>(*world);
        services.world = std::move(world);
        services.permission = std::make_shared<SimPermission>(true);
        services.urlOpener = std::make_shared<x11::X11UrlOpener>();
        break;
    }
    case PlatformBackendKind::unavailable:
        qCCritical(lcPlatformChoice, "Capture access is missing: %s",
                   qUtf8Printable(choice.reason));
        services.screens = std::make_unique<NoScreens>();
        services.captureBackend = std::make_unique<UnavailableBackend>(choice.reason);
        services.permission = std::make_shared<UnavailablePermission>();
        services.urlOpener = std::make_shared<x11::X11UrlOpener>();
        break;
    }
    services.camera = createCameraPort(CameraPortOptions::fromEnvironment());
    if (QGuiApplication::platformName() == u"xcb"_s) {
        services.windowSystem = std::make_unique<x11::X11WindowSystem>();
        services.panicShortcut = std::make_unique<x11::X11GlobalShortcut>();
        // VISTREL_VIDEO_PLANE=0 has Qt paint the frames, to compare.
        if (qEnvironmentVariable("VISTREL_VIDEO_PLANE") != u"0"_s)
            services.videoPlanes = x11::X11VideoPlaneFactory::connect();
    } else {
        services.windowSystem = std::make_unique<SimWindowSystem>();
        services.panicShortcut =
            std::make_unique<SimGlobalShortcut>(GlobalShortcutStatus::unavailable);
    }
    return services;
}

PlatformServices createPlatformServices()
{
    return createPlatformServices(choosePlatformBackend(PlatformChoiceInputs::fromEnvironment()));
}

} // namespace vistrel
