#include "capture/ShareableCatalog.h"

#include <QTest>

using namespace vistrel;
using namespace Qt::StringLiterals;

namespace {

constexpr qint32 selfPid = 100;

LiveApplication app(qint32 pid, const QString& name, std::optional<QString> bundle = std::nullopt)
{
    return LiveApplication{pid, std::move(bundle), name};
}

LiveWindow window(quint32 id, std::optional<LiveApplication> owner,
                  std::optional<QString> title = u"Doc"_s, QRectF frame = QRectF(10, 10, 200, 100))
{
    LiveWindow w;
    w.windowID = id;
    w.owningApplication = std::move(owner);
    w.title = std::move(title);
    w.frame = frame;
    w.isOnScreen = true;
    return w;
}

LiveDisplay display(quint32 id, QRectF frame)
{
    return LiveDisplay{
        id, frame, frame.width(), frame.height(), frame.width() * 2, frame.height() * 2};
}

ShareableCatalog catalogOf(const ShareableContent& content, QSet<quint32> own = {},
                           std::optional<QString> selfBundle = u"org.vistrel"_s,
                           QList<ScreenInfo> screens = {})
{
    return ShareableCatalog::fromContent(content, selfPid, selfBundle, own, screens);
}

QList<quint32> ids(const QList<LiveWindow>& windows)
{
    QList<quint32> result;
    for (const LiveWindow& w : windows)
        result.append(w.windowID);
    return result;
}

QList<quint32> ids(const QList<ShareableWindow>& windows)
{
    QList<quint32> result;
    for (const ShareableWindow& w : windows)
        result.append(w.id);
    return result;
}

QStringList names(const QList<ShareableApp>& apps)
{
    QStringList result;
    for (const ShareableApp& a : apps)
        result.append(a.applicationName);
    return result;
}

QList<qint32> pids(const QList<LiveApplication>& apps)
{
    QList<qint32> result;
    for (const LiveApplication& a : apps)
        result.append(a.processID);
    return result;
}

// Two displays side by side: 1 at (0,0) and 2 at (1000,0), both 1000 x 800.
ShareableContent twoDisplays()
{
    ShareableContent content;
    content.displays = {display(2, QRectF(1000, 0, 1000, 800)),
                        display(1, QRectF(0, 0, 1000, 800))};
    return content;
}

} // namespace

class TestShareableCatalog : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void ownWindowsInEveryFormAreSetApart()
    {
        const LiveApplication self = app(selfPid, u"Vistrel"_s, u"org.vistrel"_s);
        const LiveApplication helper = app(101, u"Vistrel Helper"_s, u"org.vistrel"_s);
        const LiveApplication editor = app(7, u"Editor"_s, u"org.editor"_s);
        ShareableContent content = twoDisplays();
        content.applications = {editor, self, helper};
        content.windows = {
            window(1, self, u"Control"_s),
            window(2, helper, u"Helper"_s),     // same bundle, other process
            window(3, editor, u"Registered"_s), // a number the registry knows
            window(4, editor, u"Letter"_s),
            window(5, std::nullopt, u"Ownerless"_s),
        };
        const ShareableCatalog catalog = catalogOf(content, {3});
        QCOMPARE(ids(catalog.selfWindows), (QList<quint32>{1, 2, 3}));
        QCOMPARE(ids(catalog.liveWindows), QList<quint32>{4});
        QCOMPARE(pids(catalog.selfApplications), (QList<qint32>{selfPid, 101}));
        QCOMPARE(pids(catalog.liveApplications), (QList<qint32>{7, selfPid, 101}));
        QCOMPARE(names(catalog.applications), QStringList{u"Editor"_s});
        QCOMPARE(ids(catalog.applications.first().windows), QList<quint32>{4});

        // Without a bundle identifier of our own, the helper is somebody else.
        const ShareableCatalog noBundle = catalogOf(content, {}, std::nullopt);
        QCOMPARE(ids(noBundle.selfWindows), QList<quint32>{1});
        QCOMPARE(pids(noBundle.selfApplications), QList<qint32>{selfPid});
        QCOMPARE(ids(noBundle.liveWindows), (QList<quint32>{2, 3, 4}));
    }

    void onlyNormalOwnedWindowsAreLive()
    {
        const LiveApplication panel = app(8, u"Panel"_s);
        ShareableContent content = twoDisplays();
        content.applications = {panel};
        LiveWindow dock = window(1, panel, u"Dock"_s);
        dock.windowLayer = 20;
        LiveWindow below = window(2, panel, u"Desktop"_s);
        below.windowLayer = -1;
        content.windows = {dock, below, window(3, std::nullopt, u"Orphan"_s)};
        const ShareableCatalog catalog = catalogOf(content);
        QVERIFY(catalog.liveWindows.isEmpty());
        QVERIFY(catalog.applications.isEmpty());
    }

    void placeholderWindowsDoNotMakeAnApplication_data()
    {
        QTest::addColumn<QList<LiveWindow>>("windows");
        QTest::addColumn<QList<quint32>>("offered");
        const LiveApplication a = app(9, u"Tool"_s);
        LiveWindow offBlank = window(2, a, u"  \n"_s);
        offBlank.isOnScreen = false;
        LiveWindow offAbsent = window(3, a, std::nullopt);
        offAbsent.isOnScreen = false;
        LiveWindow offTitled = window(4, a, u"Saved"_s);
        offTitled.isOnScreen = false;
        QTest::newRow("window titles in any case")
            << QList{window(1, a, u"window"_s), window(5, a, u" WINDOW\n"_s),
                     window(6, a, u"Window"_s)}
            << QList<quint32>{};
        QTest::newRow("blank off-screen") << QList{offBlank, offAbsent} << QList<quint32>{};
        QTest::newRow("on-screen untitled is kept")
            << QList{window(7, a, std::nullopt), offBlank} << QList<quint32>{7};
        QTest::newRow("titled off-screen is kept, after on-screen")
            << QList{offTitled, window(8, a, u"window"_s), window(9, a, u"Zeta"_s)}
            << QList<quint32>{9, 4};
        QTest::newRow("title containing window is a real title")
            << QList{window(10, a, u"Window 2"_s)} << QList<quint32>{10};
    }

    void placeholderWindowsDoNotMakeAnApplication()
    {
        QFETCH(QList<LiveWindow>, windows);
        QFETCH(QList<quint32>, offered);
        ShareableContent content = twoDisplays();
        content.applications = {app(9, u"Tool"_s)};
        content.windows = windows;
        const ShareableCatalog catalog = catalogOf(content);
        QCOMPARE(catalog.liveWindows.size(), windows.size());
        if (offered.isEmpty()) {
            QVERIFY(catalog.applications.isEmpty());
        } else {
            QCOMPARE(catalog.applications.size(), 1);
            QCOMPARE(ids(catalog.applications.first().windows), offered);
        }
    }

    void windowsSortActiveThenOnScreenThenTitle()
    {
        const LiveApplication a = app(9, u"Tool"_s);
        LiveWindow active = window(1, a, u"zulu"_s);
        active.isActive = true;
        LiveWindow off = window(2, a, u"Alpha"_s);
        off.isOnScreen = false;
        ShareableContent content = twoDisplays();
        content.applications = {a};
        content.windows = {window(3, a, u"  charlie"_s), off, window(4, a, u"Bravo"_s), active,
                           window(5, a, std::nullopt)};
        const ShareableCatalog catalog = catalogOf(content);
        // Untitled sorts first among equals: the empty title.
        QCOMPARE(ids(catalog.applications.first().windows), (QList<quint32>{1, 5, 4, 3, 2}));
        // Titles are kept as reported, not trimmed.
        QCOMPARE(catalog.applications.first().windows[3].title, u"  charlie"_s);
    }

    void groupingUsesTheTrimmedIdentity()
    {
        const LiveApplication first = app(11, u" Notes "_s, u" org.notes\n"_s);
        const LiveApplication second = app(12, u"Notes"_s, u"org.notes"_s);
        const LiveApplication blankBundle = app(13, u"Term"_s, u"   "_s);
        const LiveApplication noBundle = app(14, u"Term"_s);
        const LiveApplication otherCase = app(15, u"term"_s);
        ShareableContent content = twoDisplays();
        content.applications = {first, second, blankBundle, noBundle, otherCase};
        content.windows = {window(1, second, u"B"_s), window(2, first, u"A"_s),
                           window(3, blankBundle, u"t1"_s), window(4, noBundle, u"t2"_s),
                           window(5, otherCase, u"t3"_s)};
        const ShareableCatalog catalog = catalogOf(content);
        QCOMPARE(catalog.applications.size(), 3);

        const ShareableApp& notes = catalog.applications[0];
        QCOMPARE(notes.identity, (AppIdentity{u"org.notes"_s, u"Notes"_s}));
        QCOMPARE(ids(notes.windows), (QList<quint32>{2, 1}));
        // Process and names come from the group's first window in snapshot order.
        QCOMPARE(notes.processID, 12);
        QCOMPARE(notes.bundleIdentifier, u"org.notes"_s);
        QCOMPARE(notes.windows.first().application, notes.identity);

        // Names differ in case: two groups, ordered case-insensitively (stable).
        const ShareableApp& term = catalog.applications[1];
        QCOMPARE(term.identity, (AppIdentity{std::nullopt, u"Term"_s}));
        QCOMPARE(ids(term.windows), (QList<quint32>{3, 4}));
        QCOMPARE(term.processID, 13);
        QCOMPARE(term.bundleIdentifier, u"   "_s); // as reported
        QCOMPARE(catalog.applications[2].processID, 15);

        // An owner without a bundle identifier still yields a present, empty one.
        const ShareableCatalog single = [&] {
            ShareableContent c = twoDisplays();
            c.applications = {noBundle};
            c.windows = {window(4, noBundle, u"t2"_s)};
            return catalogOf(c);
        }();
        QCOMPARE(single.applications.first().bundleIdentifier, QString());
    }

    void applicationsSortActiveFirstThenByName()
    {
        const LiveApplication zed = app(1, u"zed"_s);
        const LiveApplication beta = app(2, u"Beta"_s);
        const LiveApplication alpha = app(3, u"alpha"_s);
        const LiveApplication nameless = app(4, u"  "_s);
        const LiveApplication unknown = app(5, u"Unknown App"_s);
        LiveWindow zedWindow = window(1, zed, u"z"_s);
        zedWindow.isActive = true;
        ShareableContent content = twoDisplays();
        content.applications = {zed, beta, alpha, nameless, unknown};
        content.windows = {window(2, beta, u"b"_s), window(3, alpha, u"a"_s),
                           window(4, nameless, u"n"_s), window(5, unknown, u"u"_s), zedWindow};
        const ShareableCatalog catalog = catalogOf(content);
        QCOMPARE(names(catalog.applications), (QStringList{u"zed"_s, u"alpha"_s, u"Beta"_s}));
        QCOMPARE(catalog.liveWindows.size(), 5);
    }

    void displaysAreOrderedAndNamed()
    {
        ShareableContent content;
        content.displays = {display(30, QRectF(1000, 500, 800, 600)),
                            display(10, QRectF(1000, -400, 800, 400)),
                            display(20, QRectF(-800, 0, 800, 600))};
        const QList<ScreenInfo> screens = {
            ScreenInfo{.displayID = 10,
                       .localizedName = u"DELL U2720Q"_s,
                       .frame = {},
                       .visibleFrame = {}},
            ScreenInfo{.displayID = std::nullopt,
                       .localizedName = u"Stray"_s,
                       .frame = {},
                       .visibleFrame = {}},
        };
        const ShareableCatalog catalog = catalogOf(content, {}, std::nullopt, screens);
        QCOMPARE(catalog.displays.size(), 3);
        QCOMPARE(catalog.displays[0].id, 20u);
        QCOMPARE(catalog.displays[1].id, 10u); // same x: top first
        QCOMPARE(catalog.displays[2].id, 30u);
        QCOMPARE(catalog.displays[1].name, u"DELL U2720Q"_s);
        QCOMPARE(catalog.displays[0].name, u"Display 20"_s);
        QCOMPARE(catalog.displays[2].logicalSize, QSizeF(800, 600));
        QCOMPARE(catalog.displays[2].pixelSize, QSizeF(1600, 1200));
        QCOMPARE(catalog.liveDisplaysByID.size(), 3);
        QCOMPARE(catalog.liveDisplaysByID.value(30).frame, QRectF(1000, 500, 800, 600));
    }

    void intersectsDisplayNeedsMoreThanASliver_data()
    {
        QTest::addColumn<QRectF>("frame");
        QTest::addColumn<std::optional<quint32>>("displayID");
        QTest::addColumn<bool>("expected");
        const std::optional<quint32> one = 1u;
        QTest::newRow("inside") << QRectF(10, 10, 50, 50) << one << true;
        QTest::newRow("other display") << QRectF(1100, 10, 50, 50) << one << false;
        QTest::newRow("one point wide") << QRectF(999, 10, 100, 50) << one << false;
        QTest::newRow("just over a point") << QRectF(998.5, 10, 100, 50) << one << true;
        QTest::newRow("one point high") << QRectF(10, 799, 50, 50) << one << false;
        QTest::newRow("touching edge") << QRectF(1000, 10, 50, 50) << one << false;
        QTest::newRow("no display") << QRectF(5000, 5000, 5, 5) << std::optional<quint32>() << true;
        QTest::newRow("unknown display")
            << QRectF(5000, 5000, 5, 5) << std::optional<quint32>(77) << true;
    }

    void intersectsDisplayNeedsMoreThanASliver()
    {
        QFETCH(QRectF, frame);
        QFETCH(std::optional<quint32>, displayID);
        QFETCH(bool, expected);
        const ShareableCatalog catalog = catalogOf(twoDisplays());
        QCOMPARE(catalog.intersectsDisplay(frame, displayID), expected);
    }

    // On one display: only the windows there, and sorted by name again
    // (Both is first overall only because it is active).
    void applicationsOnDisplayKeepOnlyTheirWindowsThere()
    {
        const LiveApplication left = app(1, u"Left"_s);
        const LiveApplication both = app(2, u"Both"_s);
        const LiveApplication ant = app(3, u"ant"_s);
        ShareableContent content = twoDisplays();
        content.applications = {left, both, ant};
        LiveWindow activeRight = window(4, both, u"r"_s, QRectF(1200, 10, 100, 100));
        activeRight.isActive = true;
        content.windows = {window(1, left, u"l"_s), window(3, both, u"l"_s), activeRight,
                           window(5, ant, u"a"_s)};
        const ShareableCatalog catalog = catalogOf(content);
        QCOMPARE(names(catalog.applications), (QStringList{u"Both"_s, u"ant"_s, u"Left"_s}));

        const QList<ShareableApp> onOne = catalog.applicationsOnDisplay(1u);
        QCOMPARE(names(onOne), (QStringList{u"ant"_s, u"Both"_s, u"Left"_s}));
        QCOMPARE(ids(onOne[1].windows), QList<quint32>{3});
        const QList<ShareableApp> onTwo = catalog.applicationsOnDisplay(2u);
        QCOMPARE(names(onTwo), QStringList{u"Both"_s});
        QCOMPARE(ids(onTwo[0].windows), QList<quint32>{4});
        QCOMPARE(catalog.applicationsOnDisplay(std::nullopt), catalog.applications);
        QCOMPARE(catalog.applicationsOnDisplay(99u), catalog.applications);
    }

    void runningApplicationsMatchEachProcessOnce()
    {
        ShareableContent content = twoDisplays();
        content.applications = {app(1, u"Browser"_s, u"org.browser"_s),
                                app(2, u"Browser"_s, u"org.browser"_s), app(3, u"mail"_s),
                                app(4, u"Shell"_s, u"Org.Shell"_s)};
        const ShareableCatalog catalog = catalogOf(content);
        const AppIdentity byBundle{u"org.browser"_s, u"Whatever"_s};
        const AppIdentity byName{std::nullopt, u"BROWSER"_s};
        const AppIdentity mail{std::nullopt, u"Mail"_s};
        const AppIdentity wrongCase{u"org.shell"_s, u"Shell"_s};
        QCOMPARE(pids(catalog.runningApplications({mail, byBundle, byName})),
                 (QList<qint32>{3, 1, 2}));
        QCOMPARE(pids(catalog.runningApplications({byName})), (QList<qint32>{1, 2}));
        QVERIFY(catalog.runningApplications({wrongCase}).isEmpty());
        QVERIFY(catalog.runningApplications({}).isEmpty());
    }

    void liveWindowsForWindowPrefersTheRememberedNumber()
    {
        const LiveApplication editor = app(7, u"Editor"_s, u"org.editor"_s);
        ShareableContent content = twoDisplays();
        content.applications = {editor};
        content.windows = {
            window(1, editor, u" Report \n"_s),
            window(2, editor, u"report"_s, QRectF(1100, 10, 200, 100)),
            window(3, editor, u"Report"_s),
            window(4, editor, u"Other"_s),
        };
        const ShareableCatalog catalog = catalogOf(content);
        const AppIdentity identity{u"org.editor"_s, u"Editor"_s};

        // Remembered window now on display 2: nothing on display 1, no title fallback.
        QVERIFY(catalog.liveWindowsForWindow({identity, u"Report"_s, 2u}, 1u).isEmpty());
        QCOMPARE(ids(catalog.liveWindowsForWindow({identity, u"Report"_s, 2u}, 2u)),
                 QList<quint32>{2});
        QCOMPARE(ids(catalog.liveWindowsForWindow({identity, u"Zzz"_s, 4u}, std::nullopt)),
                 QList<quint32>{4});
        // Gone number, or none: title match, trimmed and ignoring case, on the display.
        QCOMPARE(ids(catalog.liveWindowsForWindow({identity, u"  REPORT"_s, 99u}, 1u)),
                 (QList<quint32>{1, 3}));
        QCOMPARE(
            ids(catalog.liveWindowsForWindow({identity, u"report"_s, std::nullopt}, std::nullopt)),
            (QList<quint32>{1, 2, 3}));
        const AppIdentity stranger{u"org.other"_s, u"Editor"_s};
        QVERIFY(catalog.liveWindowsForWindow({stranger, u"Report"_s, std::nullopt}, 1u).isEmpty());
    }

    void liveWindowsForApplicationAndVisibleWindows()
    {
        const LiveApplication editor = app(7, u"Editor"_s, u"org.editor"_s);
        const LiveApplication mail = app(8, u"Mail"_s);
        ShareableContent content = twoDisplays();
        content.applications = {editor, mail};
        content.windows = {window(1, editor), window(2, mail),
                           window(3, editor, u"r"_s, QRectF(1100, 0, 50, 50)), window(4, mail)};
        const ShareableCatalog catalog = catalogOf(content);
        const AppIdentity editorIdentity{u"org.editor"_s, u"Editor"_s};
        QCOMPARE(ids(catalog.liveWindowsForApplication(editorIdentity, 1u)), QList<quint32>{1});
        QCOMPARE(ids(catalog.liveWindowsForApplication(editorIdentity, std::nullopt)),
                 (QList<quint32>{1, 3}));
        QCOMPARE(ids(catalog.liveWindowsForApplication({std::nullopt, u"MAIL"_s}, 1u)),
                 (QList<quint32>{2, 4}));

        QCOMPARE(ids(catalog.visibleWindows(1u, {}, {})), (QList<quint32>{1, 2, 4}));
        QCOMPARE(ids(catalog.visibleWindows(1u, {window(2, mail)}, {editor})), QList<quint32>{4});
        QCOMPARE(ids(catalog.visibleWindows(std::nullopt, {}, {mail})), (QList<quint32>{1, 3}));
    }

    void emptyCatalogIsEmpty()
    {
        const ShareableCatalog catalog = ShareableCatalog::empty();
        QVERIFY(catalog.displays.isEmpty() && catalog.applications.isEmpty() &&
                catalog.liveDisplaysByID.isEmpty() && catalog.liveWindows.isEmpty());
        // An empty snapshot still knows who Vistrel is.
        ShareableCatalog fromNothing = catalogOf(ShareableContent{});
        QVERIFY(fromNothing.selfProcessID != 0);
        fromNothing.selfProcessID = 0;
        fromNothing.ownWindowNumbers.clear();
        QCOMPARE(catalog, fromNothing);
        QVERIFY(catalogOf(twoDisplays()) != catalog);
    }
};

QTEST_GUILESS_MAIN(TestShareableCatalog)
#include "tst_shareable_catalog.moc"
