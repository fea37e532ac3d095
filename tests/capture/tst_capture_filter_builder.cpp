#include "capture/CaptureFilterBuilder.h"
#include "platform/sim/SimComposer.h"
#include "platform/sim/SimScreenProvider.h"
#include "platform/sim/support_desktop.h"

#include <QTest>

using namespace vistrel;
using namespace vistrel::test;
using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(vistrel::CaptureBuildResult)

namespace {

ShareableCatalog catalogOf(const SimScene& scene, qint32 self = selfPid)
{
    return ShareableCatalog::fromContent(scene.toContent(), self, std::nullopt, {registryWindow},
                                         scene.toScreens());
}

VisibilityPolicy policy(VisibilityMode mode, QList<AppIdentity> apps,
                        QList<WindowIdentity> windows = {})
{
    VisibilityPolicy result;
    result.mode = mode;
    RuleSet& rules = mode == VisibilityMode::allowList ? result.allowList : result.blockList;
    rules.applications = QSet<AppIdentity>(apps.begin(), apps.end());
    rules.windows = QSet<WindowIdentity>(windows.begin(), windows.end());
    return result;
}

VisibilityPolicy allow(QList<AppIdentity> apps, QList<WindowIdentity> windows = {})
{
    return policy(VisibilityMode::allowList, std::move(apps), std::move(windows));
}

VisibilityPolicy block(QList<AppIdentity> apps, QList<WindowIdentity> windows = {})
{
    return policy(VisibilityMode::blockList, std::move(apps), std::move(windows));
}

ShareableDisplay displayOf(QRectF frame)
{
    return ShareableDisplay{7, u"D"_s, frame, frame.size(), frame.size()};
}

const WindowIdentity draft(editorId, u"Draft"_s, 21u);

} // namespace

class TestCaptureFilterBuilder : public QObject {
    Q_OBJECT

private:
    const SimScene scene = desktopScene();
    const SimScreenProvider screens = SimScreenProvider::fromScene(scene);
    const CaptureFilterBuilder builder{screens};

    CaptureBuildResult build(const VisibilityPolicy& policy, quint32 display, OutputFrameMode frame,
                             OutputContentMode content, const SimScene& from,
                             qint32 self = selfPid) const
    {
        return builder.build(policy, display, catalogOf(from, self), false, frame, content);
    }

private Q_SLOTS:
    void decisionOrder_data()
    {
        QTest::addColumn<ShareableCatalog>("catalog");
        QTest::addColumn<std::optional<quint32>>("display");
        QTest::addColumn<bool>("panic");
        QTest::addColumn<OutputContentMode>("contentMode");
        QTest::addColumn<OutputBlankReason>("expected");

        const ShareableCatalog full = catalogOf(scene);
        ShareableCatalog notLive = full;
        notLive.liveDisplaysByID.remove(1);
        ShareableCatalog notListed = full;
        notListed.displays.removeIf([](const ShareableDisplay& d) { return d.id == 1; });
        const ShareableCatalog empty = ShareableCatalog::empty();
        const auto sanitized = OutputContentMode::sanitized;
        const auto desktop = OutputContentMode::fullDesktop;
        const std::optional<quint32> one = 1u, none;
        using R = OutputBlankReason;

        QTest::newRow("panic wins without a display")
            << empty << none << true << sanitized << R::panicHidden;
        QTest::newRow("panic wins over full desktop")
            << full << one << true << desktop << R::panicHidden;
        QTest::newRow("no display, empty catalog")
            << empty << none << false << sanitized << R::noDisplaySelected;
        QTest::newRow("empty catalog") << empty << one << false << desktop << R::contentUnavailable;
        QTest::newRow("display not live")
            << notLive << one << false << desktop << R::contentUnavailable;
        QTest::newRow("display not listed")
            << notListed << one << false << desktop << R::contentUnavailable;
        QTest::newRow("unknown display")
            << full << std::optional<quint32>(5u) << false << sanitized << R::contentUnavailable;
        QTest::newRow("allow list with nothing")
            << full << one << false << sanitized << R::nothingSelected;
    }

    void decisionOrder()
    {
        QFETCH(ShareableCatalog, catalog);
        QFETCH(std::optional<quint32>, display);
        QFETCH(bool, panic);
        QFETCH(OutputContentMode, contentMode);
        QFETCH(OutputBlankReason, expected);
        const CaptureBuildResult result =
            builder.build(VisibilityPolicy::defaultValue(), display, catalog, panic,
                          OutputFrameMode::screen, contentMode);
        QVERIFY(std::holds_alternative<OutputBlankReason>(result));
        QCOMPARE(toString(std::get<OutputBlankReason>(result)), toString(expected));
    }

    // From choice to frame: the plan's signature and, where given, its
    // filter (every form names Vistrel itself: its process, its window in
    // the snapshot and the registry's window not yet discovered; and the
    // rules' applications by identity); and the scripted stream given the
    // plan shows exactly the windows listed (checked at the centre of every
    // window inside the frame), on the desktop or, for an allow list, on
    // transparency.
    void plans_data()
    {
        QTest::addColumn<VisibilityPolicy>("policy");
        QTest::addColumn<quint32>("display");
        QTest::addColumn<OutputFrameMode>("frameMode");
        QTest::addColumn<OutputContentMode>("contentMode");
        QTest::addColumn<QString>("expected"); // signature, or the blank reason
        QTest::addColumn<QList<quint32>>("shown");
        QTest::addColumn<std::optional<ContentFilter>>("filter");
        QTest::addColumn<qint32>("self");
        // In a signature, D1 stands for display 1 and its pixels, U1 for its
        // usable area and D2 for all of display 2.
        const auto row = [](const char* name, const VisibilityPolicy& policy, quint32 display,
                            OutputFrameMode frame, OutputContentMode content, const char* expected,
                            QList<quint32> shown, std::optional<ContentFilter> filter = {},
                            qint32 self = selfPid) {
            const QString signature = QString::fromLatin1(expected)
                                          .replace(u"D1"_s, u"1:2880x1800"_s)
                                          .replace(u"U1"_s, u"0.00,25.00,1440.00,875.00"_s)
                                          .replace(u"D2"_s, u"2:1920x1080"_s);
            QTest::newRow(name) << policy << display << frame << content << signature << shown
                                << filter << self;
        };
        const auto screen = OutputFrameMode::screen;
        const auto dynamic = OutputFrameMode::dynamic;
        const auto sanitized = OutputContentMode::sanitized;
        const auto desktop = OutputContentMode::fullDesktop;
        using F = ContentFilterForm;
        const QList<quint32> own{1, registryWindow};
        const VisibilityPolicy blockMail =
            block({mailId, ghostId}, {draft, WindowIdentity(editorId, u"draft"_s, std::nullopt),
                                      WindowIdentity(editorId, u"Notes"_s, 22u)});
        const VisibilityPolicy allowExtra =
            allow({browserId, editorId}, {WindowIdentity(mailId, u"Inbox"_s, 31u), draft});

        row("full desktop ignores lists and frame mode", allow({editorId}), 1, dynamic, desktop,
            "fullDesktop:allowList:screen:D1:apps[100]:windows[]:0.00,0.00,1440.00,900.00",
            {21, 31, 41, 42, 90},
            ContentFilter{.form = F::displayExcludingApplications,
                          .displayID = 1,
                          .processIDs = {selfPid},
                          .includeMenuBar = true,
                          .ownProcessID = selfPid,
                          .ownWindowIDs = own});
        // Without an own process in the snapshot, the plain form.
        row("full desktop, own process not seen", block({mailId}), 1, screen, desktop,
            "fullDesktop:blockList:screen:D1:apps[]:windows[]:0.00,0.00,1440.00,900.00",
            {1, 21, 31, 41, 42, 90},
            ContentFilter{.form = F::displayExcludingWindows,
                          .displayID = 1,
                          .includeMenuBar = true,
                          .ownProcessID = 998,
                          .ownWindowIDs = {registryWindow}},
            998);
        // Notes lives on the other display; Draft matched twice counts once.
        row("block apps and windows", blockMail, 1, screen, sanitized,
            "sanitized:blockList:screen:D1:apps[8,100]:windows[21]:U1", {41, 42},
            ContentFilter{.form = F::displayExcludingApplications,
                          .displayID = 1,
                          .processIDs = {mailPid, selfPid},
                          .windowIDs = {21},
                          .includeMenuBar = true,
                          .applications = {mailId, ghostId},
                          .ownProcessID = selfPid,
                          .ownWindowIDs = own});
        // Docs and News remain; News is clipped by the bottom edge.
        row("block apps and windows, dynamic", blockMail, 1, dynamic, sanitized,
            "sanitized:blockList:dynamic:D1:apps[8,100]:windows[21]:788.00,188.00,524.00,712.00",
            {41, 42});
        // A window rule left over next to its application's rule: still hidden.
        row("block a window of a blocked app", block({editorId, mailId}, {draft}), 1, screen,
            sanitized, "sanitized:blockList:screen:D1:apps[7,8,100]:windows[21]:U1", {41, 42});
        row("empty block list still captures", block({}), 2, screen, sanitized,
            "sanitized:blockList:screen:D2:apps[100]:windows[]:0.00,0.00,1920.00,1080.00", {22});
        // Draft comes with Editor; the off-screen window is listed, not drawn.
        row("allow apps and extra windows", allowExtra, 1, screen, sanitized,
            "sanitized:allowList:screen:D1:apps[7,9,10]:windows[21,23,31,41,42]:U1",
            {21, 31, 41, 42},
            ContentFilter{.form = F::displayIncludingApplications,
                          .displayID = 1,
                          .processIDs = {editorPid, browserPid, secondBrowserPid},
                          .windowIDs = {31},
                          .applications = {browserId, editorId},
                          .ownProcessID = selfPid,
                          .ownWindowIDs = own});
        row("allowed window shapes the dynamic frame", allow({editorId}, {draft}), 1, dynamic,
            sanitized,
            "sanitized:allowList:dynamic:D1:apps[7]:windows[21,23]:88.00,88.00,624.00,424.00",
            {21});
        row("allow two apps, dynamic", allow({browserId, mailId}), 1, dynamic, sanitized,
            "sanitized:allowList:dynamic:D1:apps[8,9,10]:windows[31,41,42]:38.00,188.00,1274.00,"
            "712.00",
            {31, 41, 42});
        row("not running, window elsewhere",
            allow({ghostId}, {WindowIdentity(editorId, u"Notes"_s, 22u)}), 1, screen, sanitized,
            "nothingSelected", {});
        row("own application only", allow({selfId}), 1, screen, sanitized, "nothingSelected", {});
        row("own window by title", allow({}, {WindowIdentity(selfId, u"Vistrel"_s, std::nullopt)}),
            1, screen, sanitized, "nothingSelected", {});
        row("running app without windows here", allow({terminalId}), 1, screen, sanitized,
            "sanitized:allowList:screen:D1:apps[11]:windows[]:U1", {});
        row("window alone, by title",
            allow({}, {WindowIdentity(mailId, u" inbox "_s, std::nullopt)}), 1, screen, sanitized,
            "sanitized:allowList:screen:D1:apps[]:windows[31]:U1", {31});
        row("same processes by bundle and by name",
            allow({browserId, AppIdentity{std::nullopt, u"BROWSER"_s}}), 1, screen, sanitized,
            "sanitized:allowList:screen:D1:apps[9,10]:windows[41,42]:U1", {41, 42});
    }

    void plans()
    {
        QFETCH(VisibilityPolicy, policy);
        QFETCH(quint32, display);
        QFETCH(OutputFrameMode, frameMode);
        QFETCH(OutputContentMode, contentMode);
        QFETCH(QString, expected);
        QFETCH(QList<quint32>, shown);
        QFETCH(std::optional<ContentFilter>, filter);
        QFETCH(qint32, self);

        const CaptureBuildResult result =
            build(policy, display, frameMode, contentMode, scene, self);
        if (const auto* reason = std::get_if<OutputBlankReason>(&result)) {
            QCOMPARE(toString(*reason), expected);
            return;
        }
        const CapturePlan& plan = std::get<CapturePlan>(result);
        QCOMPARE(plan.signature, expected);
        const bool full = contentMode == OutputContentMode::fullDesktop;
        QCOMPARE(plan.isFullDesktopCapture, full);
        QCOMPARE(plan.usesTransparentCanvas, !full);
        QCOMPARE(plan.canvasLogicalSize, plan.sourceRect.size());
        QCOMPARE(plan.display.id, display);
        const QList<qint32>& pids = plan.filter.processIDs;
        QCOMPARE(QSet<qint32>(pids.begin(), pids.end()).size(), pids.size());
        if (filter) {
            ContentFilter sorted = plan.filter;
            std::sort(sorted.processIDs.begin(), sorted.processIDs.end());
            QCOMPARE(sorted, *filter);
        }

        // Discovery order changes nothing.
        SimScene reversed = scene;
        reversed.windows = {scene.windows.rbegin(), scene.windows.rend()};
        reversed.applications = {scene.applications.rbegin(), scene.applications.rend()};
        QCOMPARE(
            std::get<CapturePlan>(build(policy, display, frameMode, contentMode, reversed, self))
                .signature,
            expected);

        StreamConfiguration configuration;
        configuration.sourceRect = plan.sourceRect;
        configuration.width = int(plan.canvasLogicalSize.width());
        configuration.height = int(plan.canvasLogicalSize.height());
        const QImage frame = simComposeFrame(scene, plan.filter, configuration);
        const QPointF origin = plan.display.frame.topLeft() + plan.sourceRect.topLeft();
        int checked = 0;
        for (const SimWindow& window : scene.windows) {
            const QPointF centre = window.frame.center() - origin;
            if (!QRectF(QPointF(), plan.sourceRect.size()).contains(centre))
                continue;
            const QColor seen = QColor::fromRgba(frame.pixel(centre.toPoint()));
            QVERIFY2((seen == window.color) == shown.contains(window.windowID),
                     qPrintable(QString::number(window.windowID)));
            checked += shown.contains(window.windowID) ? 1 : 0;
        }
        QCOMPARE(checked, shown.size());
        // Where no window is: the desktop's colour, or nothing.
        const bool onDesktop = contentMode == OutputContentMode::fullDesktop ||
                               policy.mode == VisibilityMode::blockList;
        for (const QPointF uncovered : {QPointF(1380, 400), QPointF(3000, 800)}) {
            const QPointF at = uncovered - origin;
            if (QRectF(QPointF(), plan.sourceRect.size()).contains(at))
                QCOMPARE(QColor::fromRgba(frame.pixel(at.toPoint())),
                         onDesktop ? scene.displays[0].desktopColor : QColor(Qt::transparent));
        }
    }

    void movingAWindowChangesOnlyTheDynamicRectangle()
    {
        SimScene moved = scene;
        moved.window(31)->frame.translate(1, 0);
        const VisibilityPolicy browserAndMail = allow({browserId, mailId});
        const auto signature = [&](const SimScene& s, OutputFrameMode mode) {
            return std::get<CapturePlan>(
                       build(browserAndMail, 1, mode, OutputContentMode::sanitized, s))
                .signature;
        };
        QCOMPARE(signature(moved, OutputFrameMode::dynamic),
                 u"sanitized:allowList:dynamic:1:2880x1800:apps[8,9,10]:windows[31,41,42]:"
                 "39.00,188.00,1273.00,712.00"_s);
        QCOMPARE(signature(moved, OutputFrameMode::screen),
                 signature(scene, OutputFrameMode::screen));
    }

    void makeSignatureFormatsEveryPiece()
    {
        const ShareableDisplay display{4294967295u, u"Big"_s, QRectF(0, 0, 10, 10), QSizeF(10, 10),
                                       QSizeF(2879.9, 1799.5)};
        const QList<LiveApplication> apps{{30, {}, u"c"_s}, {-1, {}, u"a"_s}, {4, {}, u"b"_s}};
        QList<LiveWindow> windows;
        for (quint32 id : {900u, 12u, 4000000000u})
            windows.emplace_back().windowID = id;
        QCOMPARE(CaptureFilterBuilder::makeSignature(
                     QRectF(0.125, 1.005, 99.999, 2.5), OutputContentMode::sanitized,
                     VisibilityMode::blockList, OutputFrameMode::dynamic, display, apps, windows),
                 u"sanitized:blockList:dynamic:4294967295:2879x1799:apps[-1,4,30]:"
                 "windows[12,900,4000000000]:0.12,1.00,100.00,2.50"_s);
    }

    // On a display away from the origin: (1440, 100), 1000 x 800.
    void dynamicCropRect_data()
    {
        QTest::addColumn<QList<QRectF>>("frames");
        QTest::addColumn<QList<QRectF>>("offScreen"); // after the others
        QTest::addColumn<QRectF>("expected");
        const auto row = [](const char* name, const QList<QRectF>& frames, const QRectF& expected,
                            const QList<QRectF>& offScreen = {}) {
            QTest::newRow(name) << frames << offScreen << expected;
        };
        const QRectF whole(0, 0, 1000, 800);
        row("padded", {QRectF(1640, 300, 100, 50)}, QRectF(188, 188, 124, 74));
        row("off-screen only falls back", {}, whole, {QRectF(1640, 300, 100, 50)});
        row("slivers fall back", {QRectF(1439, 300, 2, 50), QRectF(1600, 899, 80, 30)}, whole);
        row("no windows", {}, whole);
        row("edge clips the padding", {QRectF(1400, 50, 200, 200)}, QRectF(0, 0, 172, 162));
        row("fractions become integral", {QRectF(1600.4, 300.6, 10.2, 10.2)},
            QRectF(148, 188, 35, 35));
        row("union of two, one skipped", {QRectF(1500, 200, 100, 100), QRectF(2200, 700, 100, 100)},
            QRectF(48, 88, 824, 624), {QRectF(1900, 150, 10, 10)});
    }

    void dynamicCropRect()
    {
        QFETCH(QList<QRectF>, frames);
        QFETCH(QList<QRectF>, offScreen);
        QFETCH(QRectF, expected);
        QList<LiveWindow> windows;
        for (const QRectF& frame : frames + offScreen) {
            LiveWindow& window = windows.emplace_back();
            window.windowID = quint32(windows.size());
            window.frame = frame;
            window.isOnScreen = windows.size() <= frames.size();
        }
        QCOMPARE(
            CaptureFilterBuilder::dynamicCropRect(displayOf(QRectF(1440, 100, 1000, 800)), windows),
            expected);
    }

    void usableDisplayRectIsTopLeftAndLocal_data()
    {
        QTest::addColumn<ScreenInfo>("screen");
        QTest::addColumn<QRectF>("expected");
        const auto row = [](const char* name, std::optional<quint32> id, const QRectF& visible,
                            const QRectF& expected, double scale = 1, double width = 1000) {
            ScreenInfo screen{id, u"x"_s, QRectF(1440, 100, width, width * 0.8), visible};
            screen.displayScale = scale;
            QTest::newRow(name) << screen << expected;
        };
        row("panel on top and dock on the left", 7, QRectF(1510, 125, 930, 775),
            QRectF(70, 25, 930, 775));
        row("dock at the bottom", 7, QRectF(1440, 100, 1000, 740), QRectF(0, 0, 1000, 740));
        row("screen without id is skipped", {}, QRectF(1440, 150, 1000, 750),
            QRectF(0, 0, 1000, 800));
        row("other screen only", 8, QRectF(1440, 150, 1000, 750), QRectF(0, 0, 1000, 800));
        // Qt scales the screen's size about its origin; the display keeps pixels.
        row("screen measured at half the display's scale", 7, QRectF(1475, 112, 465, 388),
            QRectF(70, 24, 930, 776), 2, 500);
        row("fractional scale rounds to whole pixels", 7, QRectF(1440, 121, 666.67, 512),
            QRectF(0, 32, 1000, 768), 1.5, 666.67);
    }

    void usableDisplayRectIsTopLeftAndLocal()
    {
        QFETCH(ScreenInfo, screen);
        QFETCH(QRectF, expected);
        const SimScreenProvider provider({screen});
        QCOMPARE(CaptureFilterBuilder(provider).usableDisplayRect(
                     displayOf(QRectF(1440, 100, 1000, 800))),
                 expected);
    }
};

QTEST_GUILESS_MAIN(TestCaptureFilterBuilder)
#include "tst_capture_filter_builder.moc"
