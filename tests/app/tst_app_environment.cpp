// The environment as the application builds it, on Qt's offscreen platform:
// the backend choice, the whole pipeline on the scripted demo desktop up to
// the output window's pixels, the clean failure when nothing can be
// captured, the application menu and the one-instance guard, the camera
// bubble, and the preview panel over the control window.

#include "app/AppEnvironment.h"
#include "app/AppLifecycleController.h"
#include "app/AppMenu.h"
#include "app/AppTray.h"
#include "app/AppWindows.h"
#include "app/PlatformServices.h"
#include "app/SingleInstance.h"
#include "capture/OutputRenderer.h"
#include "control/MainControlWindow.h"
#include "coordination/MainViewModel.h"
#include "coordination/OutputViewModel.h"
#include "coordination/PresetModel.h"
#include "platform/camera/TestPatternCamera.h"
#include "presentation/CameraPreviewView.h"
#include "presentation/ManagedWindowKind.h"
#include "presentation/OutputStage.h"
#include "presentation/OutputWindow.h"
#include "presentation/PopoverHub.h"
#include "presentation/PreviewChips.h"
#include "presentation/PreviewPanel.h"
#include "presentation/PreviewPanelController.h"
#include "presentation/VideoLayerWidget.h"
#include "presentation/WindowRegistry.h"

#include <QAbstractButton>
#include <QAction>
#include <QDir>
#include <QFile>
#include <QMenu>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

using namespace Qt::StringLiterals;
using namespace vistrel;

namespace {

// Colours of the demo desktop's windows.
const QRgb editorMain = qRgb(0x40, 0xc0, 0x60);
const QRgb browser = qRgb(0x30, 0x90, 0xe0);
const QRgb chat = qRgb(0xe0, 0x40, 0x40);

int countNear(const QImage& image, QRgb colour)
{
    int count = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const QRgb p = image.pixel(x, y);
            if (std::abs(qRed(p) - qRed(colour)) <= 12 &&
                std::abs(qGreen(p) - qGreen(colour)) <= 12 &&
                std::abs(qBlue(p) - qBlue(colour)) <= 12)
                ++count;
        }
    return count;
}

bool writeState(const QTemporaryDir& root, const QByteArray& document)
{
    QDir().mkpath(root.filePath(u"Vistrel"_s));
    QFile file(root.filePath(u"Vistrel/VistrelState.json"_s));
    return file.open(QIODevice::WriteOnly) && file.write(document) == document.size();
}

PlatformChoiceInputs inputs(const QString& forced, const QString& platform,
                            std::optional<QString> missing)
{
    PlatformChoiceInputs result;
    result.forcedBackend = forced;
    result.qtPlatformName = platform;
    result.x11MissingReason = std::move(missing);
    return result;
}

const QRect control{700, 770, 520, 170};

ShareableDisplay display(qreal width, qreal height)
{
    ShareableDisplay result;
    result.logicalSize = QSizeF(width, height);
    return result;
}

SharePreset preset(const QString& id, bool saved)
{
    SharePreset result;
    result.id = id;
    result.title = id.toUpper();
    if (saved)
        result.lastUpdated = QDateTime(QDate(2026, 11, 1), QTime(9, 0), Qt::UTC);
    return result;
}

} // namespace

class TestAppEnvironment : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void choosesTheBackend_data()
    {
        QTest::addColumn<PlatformChoiceInputs>("given");
        QTest::addColumn<PlatformBackendKind>("kind");
        QTest::addColumn<QString>("reasonPart");

        const QString noDisplay = u"No X display could be opened."_s;
        QTest::newRow("xcb") << inputs({}, u"xcb"_s, std::nullopt) << PlatformBackendKind::x11
                             << u"X11 session"_s;
        // Our windows are X windows even when the extensions are missing: the
        // permission then explains.
        QTest::newRow("xcb without capture access")
            << inputs({}, u"xcb"_s, noDisplay) << PlatformBackendKind::x11 << u"X11"_s;
        QTest::newRow("wayland with an X display beside it")
            << inputs({}, u"wayland"_s, std::nullopt) << PlatformBackendKind::x11
            << u"\"wayland\""_s;
        QTest::newRow("wayland without X")
            << inputs({}, u"wayland"_s, noDisplay) << PlatformBackendKind::unavailable << noDisplay;
        QTest::newRow("forced sim needs no display")
            << inputs(u"sim"_s, u"wayland"_s, noDisplay) << PlatformBackendKind::sim
            << u"VISTREL_BACKEND=sim"_s;
        QTest::newRow("forced x11") << inputs(u"x11"_s, u"offscreen"_s, noDisplay)
                                    << PlatformBackendKind::x11 << u"forced"_s;
        QTest::newRow("unknown forced value is named and ignored")
            << inputs(u"metal"_s, u"offscreen"_s, noDisplay) << PlatformBackendKind::unavailable
            << u"\"metal\""_s;
    }

    void choosesTheBackend()
    {
        QFETCH(PlatformChoiceInputs, given);
        QFETCH(PlatformBackendKind, kind);
        QFETCH(QString, reasonPart);
        const PlatformChoice choice = choosePlatformBackend(given);
        QCOMPARE(caseName(choice.kind), caseName(kind));
        QVERIFY2(choice.reason.contains(reasonPart), qPrintable(choice.reason));
    }

    void outputWindowShowsTheAllowedApplication_data()
    {
        QTest::addColumn<QByteArray>("canvas");
        QTest::addColumn<QColor>("top");
        QTest::addColumn<QColor>("bottom");

        QTest::newRow("white canvas")
            << QByteArray(R"({ "mode": "white" })") << QColor(Qt::white) << QColor(Qt::white);
        // Top half magenta, bottom half cyan: the image fills the window
        // behind the transparent parts of the picture.
        QTest::newRow("image canvas")
            << QByteArray(R"({ "mode": "customImage", "imageDisplayName": "Backdrop.png",
                               "imageRelativePath": "CanvasBackgrounds/backdrop.png" })")
            << QColor(Qt::magenta) << QColor(Qt::cyan);
    }

    // The allowed application's windows reach the output window's pixels on
    // the canvas; nothing else does, and the picture keeps the canvas's
    // aspect ratio with the canvas in the bars.
    void outputWindowShowsTheAllowedApplication()
    {
        QFETCH(QByteArray, canvas);
        QFETCH(QColor, top);
        QFETCH(QColor, bottom);

        QTemporaryDir root;
        QVERIFY(writeState(root, R"({ "policy": { "mode": "allowList",
                 "allowList": { "applications": [ { "applicationName": "Editor",
                                  "bundleIdentifier": "org.example.Editor" } ], "windows": [] },
                 "blockList": { "applications": [], "windows": [] } },
               "outputFrameMode": "screen", "outputContentMode": "sanitized",
               "canvasBackground": )" +
                                     canvas + "}"));
        QImage backdrop(1600, 900, QImage::Format_RGB32);
        backdrop.fill(Qt::cyan);
        for (int y = 0; y < 450; ++y)
            for (int x = 0; x < 1600; ++x)
                backdrop.setPixel(x, y, qRgb(255, 0, 255));
        QVERIFY(QDir().mkpath(root.filePath(u"Vistrel/CanvasBackgrounds"_s)));
        QVERIFY(backdrop.save(root.filePath(u"Vistrel/CanvasBackgrounds/backdrop.png"_s)));

        AppEnvironment environment(createPlatformServices({PlatformBackendKind::sim, u"test"_s}),
                                   root.path());
        OutputWindow window(environment.outputViewModel(), environment.windowRegistry());
        QCOMPARE(window.windowTitle(), u"Vistrel Output"_s);
        QCOMPARE(window.size(), QSize(1280, 780));
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QVERIFY(environment.windowRegistry().hasWindow(ManagedWindowKind::output));
        QVERIFY(environment.windowRegistry().windowNumbers().contains(quint32(window.winId())));
        // Hidden until there is something live to show.
        QVERIFY(!window.videoWidget()->isVisible());

        environment.mainViewModel().start();
        QImage picture;
        QVERIFY(QTest::qWaitFor(
            [&] {
                picture = window.grab().toImage();
                return countNear(picture, editorMain) > 10000;
            },
            10000));
        QVERIFY(window.videoWidget()->isVisible());
        QCOMPARE(countNear(picture, browser), 0);
        QCOMPARE(countNear(picture, chat), 0);

        // The 1920 x 1048 usable area letter-boxed into 1280 x 780: bars of
        // about 40 pixels above and below, the picture between; the canvas
        // shows in the bars and where no window is.
        const QRect video = window.videoWidget()->geometry();
        QVERIFY2(qAbs(video.height() - 699) <= 1 && video.width() == 1280,
                 qPrintable(u"%1x%2"_s.arg(video.width()).arg(video.height())));
        QCOMPARE(QColor(picture.pixel(640, 20)), top);
        QCOMPARE(QColor(picture.pixel(640, 760)), bottom);
        QCOMPARE(QColor(picture.pixel(1200, 300)), top);
        QVERIFY(!environment.outputViewModel().showsNotice());
    }

    // No capture at all: the permission reads as missing and the output
    // window says so instead of staying black.
    void unavailableBackendExplainsTheMissingAccess()
    {
        QTemporaryDir root;
        AppEnvironment environment(createPlatformServices({PlatformBackendKind::unavailable,
                                                           u"No X display could be opened."_s}),
                                   root.path());
        OutputWindow window(environment.outputViewModel(), environment.windowRegistry());
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        environment.mainViewModel().start();
        OutputViewModel& output = environment.outputViewModel();
        // The engine is told to blank one debounce delay after start.
        QTRY_VERIFY_WITH_TIMEOUT(output.streamStatus().isBlank(), 5000);
        QVERIFY(output.showsNotice());
        QCOMPARE(output.noticeTitle(), u"Screen Recording Permission Required"_s);
        QVERIFY(!window.videoWidget()->isVisible());
        // The notice's light text on the black canvas, in the middle band.
        const QImage middle = window.grab(QRect(0, 300, 1280, 180)).toImage();
        int light = 0;
        for (int y = 0; y < middle.height(); ++y)
            for (int x = 0; x < middle.width(); ++x)
                light += qGray(middle.pixel(x, y)) > 160;
        QVERIFY2(light > 200, qPrintable(QString::number(light)));
    }

    // The panic item's title follows the state both ways, whoever changes it;
    // one "Load <title> Preset" item per built-in preset, in order, applies it.
    void menuFollowsPanicAndPresets()
    {
        QTemporaryDir root;
        AppEnvironment environment(createPlatformServices({PlatformBackendKind::sim, u"test"_s}),
                                   root.path());
        MainViewModel& model = environment.mainViewModel();
        AppMenu menu(model);
        QAction* panic = menu.panicAction();
        QCOMPARE(panic->text(), u"Panic Hide Output"_s);
        QCOMPARE(panic->shortcut(), QKeySequence(u"Ctrl+Shift+H"_s));
        QCOMPARE(panic->shortcutContext(), Qt::ApplicationShortcut);
        panic->trigger();
        QVERIFY(model.isPanicHidden());
        QCOMPARE(panic->text(), u"Resume Vistrel Output"_s);
        model.setPanicHidden(false);
        QCOMPARE(panic->text(), u"Panic Hide Output"_s);

        const QList<QAction*> items = menu.menu()->actions();
        const QList<SharePreset> builtIn = model.presetModel()->builtInPresets();
        QCOMPARE(items.size(), 2 + builtIn.size());
        QVERIFY(items[1]->isSeparator());
        for (qsizetype i = 0; i < builtIn.size(); ++i)
            QCOMPARE(items[2 + i]->text(), u"Load %1 Preset"_s.arg(builtIn[i].title));
        model.setPanicHidden(true);
        items.last()->trigger();
        QCOMPARE(model.presetModel()->activePresetID(), std::optional(builtIn.last().id));
        QVERIFY(!model.isPanicHidden());

        // The tray: the same items, then the windows and Quit; its icon
        // follows panic.
        AppLifecycleController lifecycle;
        AppTray tray(menu, environment.windowRegistry(), model, lifecycle);
        QStringList titles;
        for (const QAction* action : tray.menu()->actions())
            titles << (action->isSeparator() ? u"-"_s : action->text());
        QStringList expected{u"Panic Hide Output"_s, u"-"_s};
        for (const SharePreset& preset : builtIn)
            expected << u"Load %1 Preset"_s.arg(preset.title);
        expected << u"-"_s << u"Show Controls"_s << u"Show Output"_s << u"-"_s << u"Quit Vistrel"_s;
        QCOMPARE(titles, expected);
        QCOMPARE(tray.iconSymbol(), u"com.quorbit.vistrel"_s);
        // Built in, for desktops whose icon theme does not have it.
        QVERIFY(!AppWindows::applicationIcon().pixmap(32).isNull());
        tray.menu()->actions().first()->trigger();
        QCOMPARE(tray.iconSymbol(), u"eye.slash"_s);
        tray.rebuildMenu();
        QCOMPARE(tray.menu()->actions().first()->text(), u"Resume Vistrel Output"_s);
        tray.menu()->actions().last()->trigger();
        QVERIFY(lifecycle.isTerminating());
    }

    // A state file with a typo: the defaults, a kept copy, and a notice that
    // names it until the user puts it away.
    void rejectedStateIsKeptAndSaid()
    {
        QTemporaryDir root;
        QVERIFY(writeState(root, R"({ "policy": { "mode": "alowList" } })"));
        AppEnvironment environment(createPlatformServices({PlatformBackendKind::sim, u"test"_s}),
                                   root.path());
        MainViewModel& model = environment.mainViewModel();
        const QString notice = model.settingsNotice().value_or(QString());
        QVERIFY2(notice.contains(u"could not be read"_s) &&
                     notice.contains(u"VistrelState.rejected-"_s),
                 qPrintable(notice));
        // The control window grows for the notice, and shrinks once it is put away.
        PopoverHub hub;
        MainControlWindow window(model, environment.windowRegistry(), hub, {});
        QCOMPARE(window.preferredHeight(), MainControlWindow::noticeHeight);
        model.dismissSettingsNotice();
        QCOMPARE(model.settingsNotice(), std::optional<QString>());
        QCOMPARE(window.preferredHeight(), MainControlWindow::compactHeight);
    }

    // A second start finds the first and asks it to show itself; a lock left
    // by a process that is gone is taken over.
    void oneInstancePerUser()
    {
        QTemporaryDir runtime;
        SingleInstance first(runtime.path());
        QCOMPARE(first.claim(), SingleInstance::Role::primary);
        QSignalSpy reopened(&first, &SingleInstance::reopenRequested);
        QSignalSpy panicked(&first, &SingleInstance::panicRequested);
        // Later starts ask from a thread of their own, as another process
        // would, while this thread answers: "vistrel", then "vistrel --panic".
        for (const auto request : {SingleInstance::Request::show, SingleInstance::Request::panic}) {
            SingleInstance::Role second = SingleInstance::Role::primary;
            std::unique_ptr<QThread> asker(QThread::create([&] {
                SingleInstance other(runtime.path());
                second = other.claim(request);
            }));
            asker->start();
            QTRY_VERIFY(asker->isFinished());
            QCOMPARE(second, SingleInstance::Role::secondary);
        }
        QCOMPARE(reopened.size(), 1);
        QCOMPARE(panicked.size(), 1);

        QTemporaryDir crashed;
        QFile stale(crashed.filePath(u"Vistrel.lock"_s));
        QVERIFY(stale.open(QIODevice::WriteOnly));
        stale.write("999999999\nvistrel\n" + QSysInfo::machineHostName().toUtf8() + "\n");
        stale.close();
        SingleInstance recovered(crashed.path());
        QCOMPARE(recovered.claim(), SingleInstance::Role::primary);
    }

    // The bubble shows the running camera, shaped, mirrored and placed as
    // configured.
    void cameraBubbleShowsTheCamera()
    {
        qputenv("VISTREL_TEST_CAMERA", "1");
        QTemporaryDir root;
        AppEnvironment environment(createPlatformServices({PlatformBackendKind::sim, u"test"_s}),
                                   root.path());
        qunsetenv("VISTREL_TEST_CAMERA");
        OutputWindow window(environment.outputViewModel(), environment.windowRegistry());
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        CameraOverlayConfiguration camera;
        camera.isEnabled = true;
        camera.cameraDeviceID = TestPatternCameraPort::deviceID(0);
        camera.shape = CameraShape::square;
        camera.isMirrored = true;
        environment.mainViewModel().setCameraOverlay(camera);
        QTRY_VERIFY_WITH_TIMEOUT(window.cameraBubble()->isVisible(), 5000);

        const QRect bubble = window.cameraBubble()->geometry();
        QCOMPARE(bubble, OutputStage::cameraBubbleRect(environment.outputViewModel().canvasSize(),
                                                       window.rect(), camera)
                             .toRect());
        // Mirrored: the camera's right half on the left, into the corners.
        QTRY_COMPARE_WITH_TIMEOUT(QColor(window.grab(bubble).toImage().pixel(3, 3)),
                                  TestPatternCameraPort::rightColor(0), 5000);
        QCOMPARE(QColor(window.grab(bubble).toImage().pixel(bubble.width() - 4, 3)),
                 TestPatternCameraPort::leftColor(0));
    }

    void previewFrameKeepsTheAspectRatio_data()
    {
        QTest::addColumn<std::optional<QSizeF>>("canvas");
        QTest::addColumn<std::optional<ShareableDisplay>>("active");
        QTest::addColumn<std::optional<ShareableDisplay>>("preferred");
        QTest::addColumn<int>("height");

        using Screen = std::optional<ShareableDisplay>;
        QTest::newRow("4:3 canvas")
            << std::optional(QSizeF(1024, 768)) << Screen(display(1920, 1080)) << Screen() << 390;
        QTest::newRow("active display") << std::optional<QSizeF>() << Screen(display(2560, 1600))
                                        << Screen(display(1920, 1080)) << 325;
        QTest::newRow("an empty canvas counts as none")
            << std::optional(QSizeF(0, 768)) << Screen() << Screen(display(1440, 900)) << 325;
        QTest::newRow("nothing: 16:9") << std::optional<QSizeF>() << Screen() << Screen() << 293;
        QTest::newRow("a flat display: 16:9")
            << std::optional<QSizeF>() << Screen(display(1920, 0)) << Screen() << 293;
    }

    void previewFrameKeepsTheAspectRatio()
    {
        QFETCH(std::optional<QSizeF>, canvas);
        QFETCH(std::optional<ShareableDisplay>, active);
        QFETCH(std::optional<ShareableDisplay>, preferred);
        QFETCH(int, height);
        const QSizeF ratio = PreviewPanelController::aspectRatio(canvas, active, preferred);
        // As wide as the control window, 4 above its top edge.
        QCOMPARE(PreviewPanelController::panelFrame(control, ratio),
                 QRect(700, 770 - 4 - height, 520, height));
    }

    void previewChipsForSavedPresetsOnly()
    {
        const QList<SharePreset> presets{preset(u"a"_s, true), preset(u"b"_s, false),
                                         preset(u"c"_s, true)};
        QCOMPARE(previewChips(presets, u"c"_s),
                 (QList<PreviewChip>{{u"a"_s, u"A"_s, false}, {u"c"_s, u"C"_s, true}}));
        QCOMPARE(previewChips(presets, u"b"_s).size(), 2);
        QVERIFY(previewChips({preset(u"b"_s, false)}, std::nullopt).isEmpty());
    }

    void previewPanelActs()
    {
        QTemporaryDir root;
        AppEnvironment environment(createPlatformServices({PlatformBackendKind::sim, u"test"_s}),
                                   root.path());
        MainViewModel& model = environment.mainViewModel();
        WindowRegistry& registry = environment.windowRegistry();
        model.start();
        PopoverHub hub;
        QWidget controlWindow;
        controlWindow.setGeometry(control);
        controlWindow.show();
        PreviewPanelController controller(registry, environment.outputViewModel(), model, hub,
                                          &controlWindow);
        QVERIFY(!controller.panel());

        // Shown twice: one panel, over the control window.
        registry.setPreviewVisible(true);
        registry.setPreviewVisible(false);
        registry.setPreviewVisible(true);
        PreviewPanel* panel = controller.panel();
        QVERIFY(panel && panel->isVisible());
        QCOMPARE(controlWindow.findChildren<PreviewPanel*>().size(), 1);
        QCOMPARE(panel->windowTitle(), u"Vistrel Preview"_s);
        // Client areas: the offscreen platform gives windows a frame.
        const auto attached = [&] {
            const QRect c = controlWindow.geometry();
            return panel->geometry() == QRect(c.left(), c.top() - 4 - 293, 520, 293);
        };
        QVERIFY(attached());

        // A press on it closes the popovers. (Following the control window
        // and moving it by a drag are checked with a real window manager.)
        QSignalSpy closeRequests(&hub, &PopoverHub::closePopovers);
        QTest::mouseClick(panel, Qt::LeftButton, {}, QPoint(200, 100));
        QCOMPARE(closeRequests.size(), 1);

        // The camera button flips the bubble.
        const bool cameraWasOn = model.cameraOverlay().isEnabled;
        panel->cameraButton()->click();
        QCOMPARE(model.cameraOverlay().isEnabled, !cameraWasOn);

        // A chip per saved preset; a chip applies its preset.
        QVERIFY(panel->chips().isEmpty());
        const QList<SharePreset> builtIns = model.presetModel()->builtInPresets();
        model.savePreset(builtIns.at(0).id);
        model.savePreset(builtIns.at(1).id);
        QCOMPARE(panel->chips().size(), 2);
        panel->chips().at(0)->click();
        QCOMPARE(model.presetModel()->activePresetID(), std::optional(builtIns.at(0).id));

        // Hidden with the control window and when not wanted; a later move
        // does not bring it back.
        controlWindow.hide();
        QVERIFY(!panel->isVisible());
        controlWindow.show();
        QVERIFY(panel->isVisible());
        registry.setPreviewVisible(false);
        QVERIFY(!panel->isVisible());
        controlWindow.move(300, 600);
        QVERIFY(!panel->isVisible());
    }
};

QTEST_MAIN(TestAppEnvironment)
#include "tst_app_environment.moc"
