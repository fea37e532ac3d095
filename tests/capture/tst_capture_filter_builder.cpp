#include "capture/CaptureFilterBuilder.h"
#include "platform/sim/SimComposer.h"
#include "platform/sim/SimScreenProvider.h"

#include <QTest>

using namespace vistrel;
using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(vistrel::CaptureBuildResult)

namespace {

constexpr qint32 selfPid = 100;

const LiveApplication self{selfPid, u"org.vistrel"_s, u"Vistrel"_s};
const LiveApplication editor{7, u"org.editor"_s, u"Editor"_s};
const LiveApplication mail{8, std::nullopt, u"Mail"_s};
const LiveApplication browserA{9, u"org.browser"_s, u"Browser"_s};
const LiveApplication browserB{10, u"org.browser"_s, u"Browser"_s};
const LiveApplication terminal{11, std::nullopt, u"Terminal"_s};

const AppIdentity editorId{u"org.editor"_s, u"Editor"_s};
const AppIdentity mailId{std::nullopt, u"Mail"_s};
const AppIdentity browserId{u"org.browser"_s, u"Browser"_s};
const AppIdentity terminalId{std::nullopt, u"terminal"_s};
const AppIdentity selfId{u"org.vistrel"_s, u"Vistrel"_s};
const AppIdentity ghostId{u"org.ghost"_s, u"Ghost"_s};

LiveWindow window(quint32 id, const LiveApplication& owner, const QString& title, QRectF frame)
{
    LiveWindow w;
    w.windowID = id;
    w.owningApplication = owner;
    w.title = title;
    w.frame = frame;
    w.isOnScreen = true;
    return w;
}

// Display 1: 1440 x 900 points at 2x, a 25-point panel on top. Display 2:
// 1920 x 1080 to its right, unknown to the screen list.
ShareableContent content()
{
    ShareableContent c;
    c.displays = {LiveDisplay{1, QRectF(0, 0, 1440, 900), 1440, 900, 2880, 1800},
                  LiveDisplay{2, QRectF(1440, 0, 1920, 1080), 1920, 1080, 1920, 1080}};
    c.applications = {self, editor, mail, browserA, browserB, terminal};
    c.windows = {
        window(1, self, u"Vistrel"_s, QRectF(20, 20, 300, 200)),
        window(21, editor, u"Draft"_s, QRectF(100, 100, 600, 400)),
        window(22, editor, u"Notes"_s, QRectF(1500, 50, 400, 300)),
        window(31, mail, u"Inbox"_s, QRectF(50, 500, 300, 200)),
        window(41, browserA, u"Docs"_s, QRectF(800, 200, 500, 500)),
        window(42, browserB, u"News"_s, QRectF(800, 700, 300, 300)),
    };
    return c;
}

// The registry publishes window 77, which no snapshot holds yet.
ShareableCatalog catalogOf(const ShareableContent& c, qint32 pid = selfPid)
{
    return ShareableCatalog::fromContent(c, pid, std::nullopt, {77}, {});
}

// Every form names Vistrel itself: its process, its window in the snapshot
// and the registry's window not yet discovered.
ContentFilter expectedFilter(ContentFilterForm form, quint32 display, QList<qint32> pids,
                             QList<quint32> windows, bool menuBar,
                             QList<AppIdentity> applications = {}, qint32 own = selfPid,
                             QList<quint32> ownWindows = {1, 77})
{
    ContentFilter f;
    f.form = form;
    f.displayID = display;
    f.processIDs = std::move(pids);
    f.windowIDs = std::move(windows);
    f.includeMenuBar = menuBar;
    f.applications = std::move(applications);
    f.ownProcessID = own;
    f.ownWindowIDs = std::move(ownWindows);
    return f;
}

SimScreenProvider screens()
{
    return SimScreenProvider({ScreenInfo{.displayID = 1,
                                         .localizedName = u"Built-in"_s,
                                         .frame = QRectF(0, 0, 1440, 900),
                                         .visibleFrame = QRectF(0, 25, 1440, 875),
                                         .maximumFramesPerSecond = 60}});
}

VisibilityPolicy allow(QList<AppIdentity> apps, QList<WindowIdentity> windows = {})
{
    VisibilityPolicy policy;
    policy.mode = VisibilityMode::allowList;
    policy.allowList.applications = QSet<AppIdentity>(apps.begin(), apps.end());
    policy.allowList.windows = QSet<WindowIdentity>(windows.begin(), windows.end());
    return policy;
}

VisibilityPolicy block(QList<AppIdentity> apps, QList<WindowIdentity> windows = {})
{
    VisibilityPolicy policy;
    policy.mode = VisibilityMode::blockList;
    policy.blockList.applications = QSet<AppIdentity>(apps.begin(), apps.end());
    policy.blockList.windows = QSet<WindowIdentity>(windows.begin(), windows.end());
    return policy;
}

ShareableDisplay displayOf(QRectF frame, QSizeF pixels = {})
{
    return ShareableDisplay{7, u"D"_s, frame, frame.size(),
                            pixels.isEmpty() ? frame.size() : pixels};
}

// Display 1 at (1000, 0), 400 x 300; no two windows overlap.
SimScene pictureScene()
{
    SimScene s;
    SimDisplay display = makeSimDisplay(1, QRectF(1000, 0, 400, 300), u"Main"_s);
    display.desktopColor = QColor(0x20, 0x40, 0x60);
    s.displays = {display};
    s.applications = {{selfPid, u"org.vistrel"_s, u"Vistrel"_s},
                      {7, u"org.editor"_s, u"Editor"_s},
                      {8, std::nullopt, u"Mail"_s},
                      {9, u"org.browser"_s, u"Browser"_s},
                      {30, std::nullopt, u"Panel"_s}};
    SimWindow dock = makeSimWindow(90, 30, QRectF(1000, 280, 400, 20), Qt::yellow, u"panel"_s);
    dock.windowLayer = 20;
    s.windows = {
        makeSimWindow(11, 7, QRectF(1020, 40, 80, 60), Qt::red, u"Draft"_s),
        makeSimWindow(12, 7, QRectF(1120, 40, 80, 60), Qt::darkRed, u"Notes"_s),
        makeSimWindow(21, 8, QRectF(1220, 40, 80, 60), Qt::green, u"Inbox"_s),
        makeSimWindow(31, 9, QRectF(1020, 160, 80, 60), Qt::blue, u"Docs"_s),
        makeSimWindow(1, selfPid, QRectF(1300, 160, 80, 60), Qt::gray, u"Vistrel"_s),
        dock,
    };
    return s;
}

} // namespace

class TestCaptureFilterBuilder : public QObject {
    Q_OBJECT

private:
    SimScreenProvider screenList = screens();
    CaptureFilterBuilder builder{screenList};

    CapturePlan planOf(const CaptureBuildResult& result)
    {
        if (const auto* plan = std::get_if<CapturePlan>(&result))
            return *plan;
        QTest::qFail(qPrintable(u"blank: "_s + toString(std::get<OutputBlankReason>(result))),
                     __FILE__, __LINE__);
        return {};
    }

private Q_SLOTS:
    void decisionOrder_data()
    {
        QTest::addColumn<ShareableCatalog>("catalog");
        QTest::addColumn<std::optional<quint32>>("display");
        QTest::addColumn<bool>("panic");
        QTest::addColumn<OutputContentMode>("contentMode");
        QTest::addColumn<OutputBlankReason>("expected");

        const ShareableCatalog full = catalogOf(content());
        ShareableCatalog notLive = full;
        notLive.liveDisplaysByID.remove(1);
        ShareableCatalog notListed = full;
        notListed.displays.removeIf([](const ShareableDisplay& d) { return d.id == 1; });
        const auto sanitized = OutputContentMode::sanitized;
        const auto desktop = OutputContentMode::fullDesktop;
        const std::optional<quint32> one = 1u;
        const std::optional<quint32> none;

        QTest::newRow("panic wins without a display")
            << ShareableCatalog::empty() << none << true << sanitized
            << OutputBlankReason::panicHidden;
        QTest::newRow("panic wins over full desktop")
            << full << one << true << desktop << OutputBlankReason::panicHidden;
        QTest::newRow("no display, empty catalog")
            << ShareableCatalog::empty() << none << false << sanitized
            << OutputBlankReason::noDisplaySelected;
        QTest::newRow("empty catalog") << ShareableCatalog::empty() << one << false << desktop
                                       << OutputBlankReason::contentUnavailable;
        QTest::newRow("display not live")
            << notLive << one << false << desktop << OutputBlankReason::contentUnavailable;
        QTest::newRow("display not listed")
            << notListed << one << false << desktop << OutputBlankReason::contentUnavailable;
        QTest::newRow("unknown display") << full << std::optional<quint32>(5u) << false << sanitized
                                         << OutputBlankReason::contentUnavailable;
        QTest::newRow("allow list with nothing")
            << full << one << false << sanitized << OutputBlankReason::nothingSelected;
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

    void fullDesktopIgnoresListsAndFrameMode()
    {
        const ShareableCatalog catalog = catalogOf(content());
        const CapturePlan plan =
            planOf(builder.build(allow({editorId}), 1u, catalog, false, OutputFrameMode::dynamic,
                                 OutputContentMode::fullDesktop));
        QCOMPARE(plan.signature, u"fullDesktop:allowList:screen:1:2880x1800:apps[100]:windows[]:"
                                 "0.00,0.00,1440.00,900.00"_s);
        QCOMPARE(plan.filter, expectedFilter(ContentFilterForm::displayExcludingApplications, 1,
                                             {selfPid}, {}, true));
        QCOMPARE(plan.sourceRect, QRectF(0, 0, 1440, 900));
        QCOMPARE(plan.canvasLogicalSize, QSizeF(1440, 900));
        QVERIFY(plan.isFullDesktopCapture);
        QVERIFY(!plan.usesTransparentCanvas);
        QCOMPARE(plan.display.name, u"Display 1"_s);

        // Without an own process in the snapshot, the plain form.
        const CapturePlan bare =
            planOf(builder.build(block({mailId}), 2u, catalogOf(content(), 999), false,
                                 OutputFrameMode::screen, OutputContentMode::fullDesktop));
        QCOMPARE(bare.signature, u"fullDesktop:blockList:screen:2:1920x1080:apps[]:windows[]:"
                                 "0.00,0.00,1920.00,1080.00"_s);
        QCOMPARE(bare.filter, expectedFilter(ContentFilterForm::displayExcludingWindows, 2, {}, {},
                                             true, {}, 999, {77}));
    }

    void blockListExcludesAppsWindowsAndSelf()
    {
        const ShareableCatalog catalog = catalogOf(content());
        const VisibilityPolicy policy =
            block({mailId, ghostId}, {WindowIdentity(editorId, u"Draft"_s, 21u),
                                      WindowIdentity(editorId, u"draft"_s, std::nullopt),
                                      WindowIdentity(editorId, u"Notes"_s, 22u)});
        const CapturePlan plan = planOf(builder.build(
            policy, 1u, catalog, false, OutputFrameMode::screen, OutputContentMode::sanitized));
        // Notes lives on the other display; Draft matched twice counts once.
        QCOMPARE(plan.signature, u"sanitized:blockList:screen:1:2880x1800:apps[8,100]:windows[21]:"
                                 "0.00,25.00,1440.00,875.00"_s);
        QCOMPARE(plan.filter, expectedFilter(ContentFilterForm::displayExcludingApplications, 1,
                                             {8, selfPid}, {21}, true, {mailId, ghostId}));
        QCOMPARE(plan.canvasLogicalSize, QSizeF(1440, 875));
        QVERIFY(plan.usesTransparentCanvas);
        QVERIFY(!plan.isFullDesktopCapture);

        // Dynamic: Docs and News remain; News is clipped by the bottom edge.
        const CapturePlan dynamic = planOf(builder.build(
            policy, 1u, catalog, false, OutputFrameMode::dynamic, OutputContentMode::sanitized));
        QCOMPARE(dynamic.signature,
                 u"sanitized:blockList:dynamic:1:2880x1800:apps[8,100]:windows[21]:"
                 "788.00,188.00,524.00,712.00"_s);
        QCOMPARE(dynamic.canvasLogicalSize, QSizeF(524, 712));
    }

    void emptyBlockListStillCaptures()
    {
        const CapturePlan plan =
            planOf(builder.build(block({}), 2u, catalogOf(content()), false,
                                 OutputFrameMode::screen, OutputContentMode::sanitized));
        QCOMPARE(plan.signature, u"sanitized:blockList:screen:2:1920x1080:apps[100]:windows[]:"
                                 "0.00,0.00,1920.00,1080.00"_s);
    }

    void allowListSplitsAppsAndExtraWindows()
    {
        const ShareableCatalog catalog = catalogOf(content());
        const VisibilityPolicy policy =
            allow({browserId, editorId}, {WindowIdentity(mailId, u"Inbox"_s, 31u),
                                          WindowIdentity(editorId, u"Draft"_s, 21u)});
        const CapturePlan plan = planOf(builder.build(
            policy, 1u, catalog, false, OutputFrameMode::screen, OutputContentMode::sanitized));
        QCOMPARE(plan.signature,
                 u"sanitized:allowList:screen:1:2880x1800:apps[7,9,10]:windows[21,31,41,42]:"
                 "0.00,25.00,1440.00,875.00"_s);
        QCOMPARE(plan.filter.form, ContentFilterForm::displayIncludingApplications);
        QCOMPARE(plan.filter.windowIDs, QList<quint32>{31}); // Draft comes with Editor
        QList<qint32> pids = plan.filter.processIDs;
        std::sort(pids.begin(), pids.end());
        QCOMPARE(pids, (QList<qint32>{7, 9, 10}));
        QVERIFY(!plan.filter.includeMenuBar);

        // The individually allowed window still shapes the dynamic frame.
        const CapturePlan onlyDraft = planOf(
            builder.build(allow({editorId}, {WindowIdentity(editorId, u"Draft"_s, 21u)}), 1u,
                          catalog, false, OutputFrameMode::dynamic, OutputContentMode::sanitized));
        QCOMPARE(onlyDraft.signature,
                 u"sanitized:allowList:dynamic:1:2880x1800:apps[7]:windows[21]:"
                 "88.00,88.00,624.00,424.00"_s);
        QVERIFY(onlyDraft.filter.windowIDs.isEmpty());
    }

    void allowListEdgeCases_data()
    {
        QTest::addColumn<VisibilityPolicy>("policy");
        QTest::addColumn<QString>("expected"); // signature, or the blank reason

        QTest::newRow("not running, window elsewhere")
            << allow({ghostId}, {WindowIdentity(editorId, u"Notes"_s, 22u)})
            << u"nothingSelected"_s;
        QTest::newRow("own application only") << allow({selfId}) << u"nothingSelected"_s;
        QTest::newRow("own window by title")
            << allow({}, {WindowIdentity(selfId, u"Vistrel"_s, std::nullopt)})
            << u"nothingSelected"_s;
        QTest::newRow("running app without windows here")
            << allow({terminalId})
            << u"sanitized:allowList:screen:1:2880x1800:apps[11]:windows[]:"
               "0.00,25.00,1440.00,875.00"_s;
        QTest::newRow("window alone, by title")
            << allow({}, {WindowIdentity(mailId, u" inbox "_s, std::nullopt)})
            << u"sanitized:allowList:screen:1:2880x1800:apps[]:windows[31]:"
               "0.00,25.00,1440.00,875.00"_s;
        QTest::newRow("same processes by bundle and by name")
            << allow({browserId, AppIdentity{std::nullopt, u"BROWSER"_s}})
            << u"sanitized:allowList:screen:1:2880x1800:apps[9,10]:windows[41,42]:"
               "0.00,25.00,1440.00,875.00"_s;
    }

    void allowListEdgeCases()
    {
        QFETCH(VisibilityPolicy, policy);
        QFETCH(QString, expected);
        const CaptureBuildResult result =
            builder.build(policy, 1u, catalogOf(content()), false, OutputFrameMode::screen,
                          OutputContentMode::sanitized);
        if (const auto* reason = std::get_if<OutputBlankReason>(&result)) {
            QCOMPARE(toString(*reason), expected);
        } else {
            const CapturePlan& plan = std::get<CapturePlan>(result);
            QCOMPARE(plan.signature, expected);
            // No process or window is listed twice.
            QCOMPARE(
                QSet<qint32>(plan.filter.processIDs.begin(), plan.filter.processIDs.end()).size(),
                plan.filter.processIDs.size());
            QVERIFY(plan.filter.windowIDs.isEmpty() || plan.filter.windowIDs == QList<quint32>{31});
        }
    }

    void signatureIgnoresDiscoveryOrder()
    {
        ShareableContent reversed = content();
        std::reverse(reversed.windows.begin(), reversed.windows.end());
        std::reverse(reversed.applications.begin(), reversed.applications.end());
        const VisibilityPolicy policy = allow({browserId, mailId});
        const auto signatureOf = [&](const ShareableContent& c, OutputFrameMode mode) {
            return planOf(builder.build(policy, 1u, catalogOf(c), false, mode,
                                        OutputContentMode::sanitized))
                .signature;
        };
        for (OutputFrameMode mode : allOutputFrameModes)
            QCOMPARE(signatureOf(reversed, mode), signatureOf(content(), mode));

        // Moving a window by one point changes only the rectangle.
        ShareableContent moved = content();
        moved.windows[3].frame.translate(1, 0);
        const QString before = signatureOf(content(), OutputFrameMode::dynamic);
        const QString after = signatureOf(moved, OutputFrameMode::dynamic);
        QCOMPARE(before, u"sanitized:allowList:dynamic:1:2880x1800:apps[8,9,10]:windows[31,41,42]:"
                         "38.00,188.00,1274.00,712.00"_s);
        QCOMPARE(after, u"sanitized:allowList:dynamic:1:2880x1800:apps[8,9,10]:windows[31,41,42]:"
                        "39.00,188.00,1273.00,712.00"_s);
        QCOMPARE(signatureOf(moved, OutputFrameMode::screen),
                 signatureOf(content(), OutputFrameMode::screen));
    }

    void makeSignatureFormatsEveryPiece()
    {
        const ShareableDisplay display{4294967295u, u"Big"_s, QRectF(0, 0, 10, 10), QSizeF(10, 10),
                                       QSizeF(2879.9, 1799.5)};
        QList<LiveApplication> apps{{30, {}, u"c"_s}, {-1, {}, u"a"_s}, {4, {}, u"b"_s}};
        QList<LiveWindow> windows;
        for (quint32 id : {900u, 12u, 4000000000u}) {
            LiveWindow w;
            w.windowID = id;
            windows.append(w);
        }
        QCOMPARE(CaptureFilterBuilder::makeSignature(
                     QRectF(0.125, 1.005, 99.999, 2.5), OutputContentMode::sanitized,
                     VisibilityMode::blockList, OutputFrameMode::dynamic, display, apps, windows),
                 u"sanitized:blockList:dynamic:4294967295:2879x1799:apps[-1,4,30]:"
                 "windows[12,900,4000000000]:0.12,1.00,100.00,2.50"_s);
    }

    void dynamicCropRect_data()
    {
        QTest::addColumn<QRectF>("displayFrame");
        QTest::addColumn<QList<QRectF>>("frames");
        QTest::addColumn<QList<bool>>("onScreen");
        QTest::addColumn<QRectF>("expected");
        const QRectF right(1440, 100, 1000, 800); // a display away from the origin

        QTest::newRow("padded") << right << QList{QRectF(1640, 300, 100, 50)} << QList{true}
                                << QRectF(188, 188, 124, 74);
        QTest::newRow("off-screen only falls back") << right << QList{QRectF(1640, 300, 100, 50)}
                                                    << QList{false} << QRectF(0, 0, 1000, 800);
        QTest::newRow("slivers fall back")
            << right << QList{QRectF(1439, 300, 2, 50), QRectF(1600, 899, 80, 30)}
            << QList{true, true} << QRectF(0, 0, 1000, 800);
        QTest::newRow("no windows")
            << right << QList<QRectF>{} << QList<bool>{} << QRectF(0, 0, 1000, 800);
        QTest::newRow("edge clips the padding")
            << right << QList{QRectF(1400, 50, 200, 200)} << QList{true} << QRectF(0, 0, 172, 162);
        QTest::newRow("fractions become integral")
            << right << QList{QRectF(1600.4, 300.6, 10.2, 10.2)} << QList{true}
            << QRectF(148, 188, 35, 35);
        QTest::newRow("union of two, one skipped")
            << right
            << QList{QRectF(1500, 200, 100, 100), QRectF(2200, 700, 100, 100),
                     QRectF(1900, 150, 10, 10)}
            << QList{true, true, false} << QRectF(48, 88, 824, 624);
    }

    void dynamicCropRect()
    {
        QFETCH(QRectF, displayFrame);
        QFETCH(QList<QRectF>, frames);
        QFETCH(QList<bool>, onScreen);
        QFETCH(QRectF, expected);
        QList<LiveWindow> windows;
        for (qsizetype i = 0; i < frames.size(); ++i) {
            LiveWindow w;
            w.windowID = quint32(i + 1);
            w.frame = frames[i];
            w.isOnScreen = onScreen[i];
            windows.append(w);
        }
        QCOMPARE(CaptureFilterBuilder::dynamicCropRect(displayOf(displayFrame), windows), expected);
    }

    void usableDisplayRectIsTopLeftAndLocal_data()
    {
        QTest::addColumn<QList<ScreenInfo>>("screens");
        QTest::addColumn<QRectF>("expected");
        const QRectF frame(1440, 100, 1000, 800);
        QTest::newRow("panel on top and dock on the left")
            << QList{ScreenInfo{7u, u"x"_s, frame, QRectF(1510, 125, 930, 775), 60}}
            << QRectF(70, 25, 930, 775);
        QTest::newRow("dock at the bottom")
            << QList{ScreenInfo{7u, u"x"_s, frame, QRectF(1440, 100, 1000, 740), 60}}
            << QRectF(0, 0, 1000, 740);
        QTest::newRow("screen without id is skipped")
            << QList{ScreenInfo{std::nullopt, u"x"_s, frame, QRectF(1440, 150, 1000, 750), 60}}
            << QRectF(0, 0, 1000, 800);
        QTest::newRow("other screen only")
            << QList{ScreenInfo{8u, u"x"_s, frame, QRectF(1440, 150, 1000, 750), 60}}
            << QRectF(0, 0, 1000, 800);
    }

    void usableDisplayRectIsTopLeftAndLocal()
    {
        QFETCH(QList<ScreenInfo>, screens);
        QFETCH(QRectF, expected);
        SimScreenProvider provider(screens);
        const CaptureFilterBuilder local(provider);
        QCOMPARE(local.usableDisplayRect(displayOf(QRectF(1440, 100, 1000, 800))), expected);
    }

    void frameShowsWhatThePlanShares_data()
    {
        QTest::addColumn<VisibilityPolicy>("policy");
        QTest::addColumn<OutputContentMode>("contentMode");
        QTest::addColumn<QList<quint32>>("shown");

        VisibilityPolicy allow;
        allow.mode = VisibilityMode::allowList;
        allow.allowList.applications = {editorId};
        allow.allowList.windows = {WindowIdentity(mailId, u"Inbox"_s, 21u)};
        QTest::newRow("allow an app and a window")
            << allow << OutputContentMode::sanitized << QList<quint32>{11, 12, 21};

        VisibilityPolicy block;
        block.mode = VisibilityMode::blockList;
        block.blockList.applications = {mailId};
        block.blockList.windows = {WindowIdentity(editorId, u"Notes"_s, 12u)};
        QTest::newRow("block an app and a window")
            << block << OutputContentMode::sanitized << QList<quint32>{11, 31, 90};

        // A window rule left over next to its application's rule: still hidden.
        VisibilityPolicy both = block;
        both.blockList.applications.insert(editorId);
        QTest::newRow("block a window of a blocked app")
            << both << OutputContentMode::sanitized << QList<quint32>{31, 90};

        QTest::newRow("full desktop without us")
            << allow << OutputContentMode::fullDesktop << QList<quint32>{11, 12, 21, 31, 90};
    }

    // From scene to frame: the scripted stream, given the plan, shows exactly
    // the windows the plan shares.
    void frameShowsWhatThePlanShares()
    {
        QFETCH(VisibilityPolicy, policy);
        QFETCH(OutputContentMode, contentMode);
        QFETCH(QList<quint32>, shown);

        const SimScene s = pictureScene();
        const SimScreenProvider screens = SimScreenProvider::fromScene(s);
        const ShareableCatalog catalog = ShareableCatalog::fromContent(
            s.toContent(), selfPid, std::nullopt, {}, screens.screens());
        const CaptureFilterBuilder local(screens);
        const CaptureBuildResult result =
            local.build(policy, 1u, catalog, false, OutputFrameMode::screen, contentMode);
        QVERIFY(std::holds_alternative<CapturePlan>(result));
        const CapturePlan& plan = std::get<CapturePlan>(result);

        StreamConfiguration configuration;
        configuration.sourceRect = plan.sourceRect;
        configuration.width = int(plan.canvasLogicalSize.width());
        configuration.height = int(plan.canvasLogicalSize.height());
        const QImage frame = simComposeFrame(s, plan.filter, configuration);
        QCOMPARE(frame.size(), QSize(400, 300));

        for (const SimWindow& window : s.windows) {
            const QPoint centre = (window.frame.center() - s.displays[0].frame.topLeft()).toPoint();
            const QColor seen = QColor::fromRgba(frame.pixel(centre));
            if (shown.contains(window.windowID))
                QCOMPARE(seen, window.color);
            else
                QVERIFY2(seen != window.color, qPrintable(QString::number(window.windowID)));
        }
    }
};

QTEST_GUILESS_MAIN(TestCaptureFilterBuilder)
#include "tst_capture_filter_builder.moc"
