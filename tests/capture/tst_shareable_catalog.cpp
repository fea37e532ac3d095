#include "capture/ShareableCatalog.h"

#include <QTest>
#include <algorithm>
#include <type_traits>

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

// On two displays side by side: 1 at (0,0) and 2 at (1000,0), both 1000 x 800.
ShareableCatalog catalogOf(QList<LiveApplication> apps, QList<LiveWindow> windows,
                           QSet<quint32> own = {},
                           std::optional<QString> selfBundle = u"org.vistrel"_s)
{
    const ShareableContent content{
        {display(2, QRectF(1000, 0, 1000, 800)), display(1, QRectF(0, 0, 1000, 800))},
        std::move(apps),
        std::move(windows)};
    return ShareableCatalog::fromContent(content, selfPid, selfBundle, own, {});
}

// What names each item of a list: window ids, process ids, application names.
template<class T> auto ids(const QList<T>& items)
{
    const auto id = [](const T& item) {
        if constexpr (std::is_same_v<T, LiveWindow>)
            return item.windowID;
        else if constexpr (std::is_same_v<T, ShareableWindow>)
            return item.id;
        else if constexpr (std::is_same_v<T, LiveApplication>)
            return item.processID;
        else
            return item.applicationName;
    };
    QList<std::invoke_result_t<decltype(id), const T&>> result;
    for (const T& item : items)
        result.append(id(item));
    return result;
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
        const QList<LiveWindow> windows{
            window(1, self, u"Control"_s),
            window(2, helper, u"Helper"_s),     // same bundle, other process
            window(3, editor, u"Registered"_s), // a number the registry knows
            window(4, editor, u"Letter"_s),
            window(5, std::nullopt, u"Ownerless"_s),
        };
        const ShareableCatalog catalog = catalogOf({editor, self, helper}, windows, {3});
        QCOMPARE(ids(catalog.selfWindows), (QList<quint32>{1, 2, 3}));
        QCOMPARE(ids(catalog.liveWindows), QList<quint32>{4});
        QCOMPARE(ids(catalog.selfApplications), (QList<qint32>{selfPid, 101}));
        QCOMPARE(ids(catalog.liveApplications), (QList<qint32>{7, selfPid, 101}));
        QCOMPARE(ids(catalog.applications), QStringList{u"Editor"_s});
        QCOMPARE(ids(catalog.applications.first().windows), QList<quint32>{4});

        // Without a bundle identifier of our own, the helper is somebody else.
        const ShareableCatalog noBundle =
            catalogOf({editor, self, helper}, windows, {}, std::nullopt);
        QCOMPARE(ids(noBundle.selfWindows), QList<quint32>{1});
        QCOMPARE(ids(noBundle.selfApplications), QList<qint32>{selfPid});
        QCOMPARE(ids(noBundle.liveWindows), (QList<quint32>{2, 3, 4}));
    }

    // One application's windows: which are live, which are offered and in
    // what order (active, then on screen, then by title), carried over as
    // reported.
    void offeredWindows_data()
    {
        QTest::addColumn<QList<LiveWindow>>("windows");
        QTest::addColumn<QList<quint32>>("offered"); // empty: no application offered
        QTest::addColumn<int>("live");               // -1: every window
        const auto row = [](const char* name, const QList<LiveWindow>& windows,
                            const QList<quint32>& offered, int live = -1) {
            QTest::newRow(name) << windows << offered << live;
        };
        const LiveApplication a = app(9, u"Tool"_s);
        LiveWindow offBlank = window(2, a, u"  \n"_s);
        offBlank.isOnScreen = false;
        LiveWindow offAbsent = window(3, a, std::nullopt);
        offAbsent.isOnScreen = false;
        LiveWindow offTitled = window(4, a, u"Alpha"_s);
        offTitled.isOnScreen = false;
        LiveWindow active = window(1, a, u"zulu"_s);
        active.isActive = true;
        LiveWindow dock = window(11, a, u"Dock"_s);
        dock.windowLayer = 20;
        LiveWindow below = window(12, a, u"Desktop"_s);
        below.windowLayer = -1;

        row("only normal owned windows are live", {dock, below, window(13, std::nullopt)}, {}, 0);
        row("window titles in any case",
            {window(1, a, u"window"_s), window(5, a, u" WINDOW\n"_s), window(6, a, u"Window"_s)},
            {});
        row("blank off-screen", {offBlank, offAbsent}, {});
        row("on-screen untitled is kept", {window(7, a, std::nullopt), offBlank}, {7});
        row("titled off-screen is kept, after on-screen",
            {offTitled, window(8, a, u"window"_s), window(9, a, u"Zeta"_s)}, {9, 4});
        row("title containing window is a real title", {window(10, a, u"Window 2"_s)}, {10});
        // Untitled sorts first among equals: the empty title.
        row("active, then on screen, then title",
            {window(3, a, u"  charlie"_s), offTitled, window(5, a, u"Bravo"_s), active,
             window(6, a, std::nullopt)},
            {1, 6, 5, 3, 4});
    }

    void offeredWindows()
    {
        QFETCH(QList<LiveWindow>, windows);
        QFETCH(QList<quint32>, offered);
        QFETCH(int, live);
        const ShareableCatalog catalog = catalogOf({app(9, u"Tool"_s)}, windows);
        QCOMPARE(catalog.liveWindows.size(), live < 0 ? windows.size() : live);
        if (offered.isEmpty()) {
            QVERIFY(catalog.applications.isEmpty());
            return;
        }
        QCOMPARE(catalog.applications.size(), 1);
        QCOMPARE(ids(catalog.applications.first().windows), offered);
        // Titles untrimmed, and the state as the snapshot reported it.
        for (const ShareableWindow& shown : catalog.applications.first().windows) {
            const LiveWindow& source = *std::find_if(
                windows.cbegin(), windows.cend(), [&](auto& w) { return w.windowID == shown.id; });
            QCOMPARE(shown.title, source.title.value_or(QString()));
            QCOMPARE(shown.frame, source.frame);
            QCOMPARE(shown.isOnScreen, source.isOnScreen);
            QCOMPARE(shown.isActive, source.isActive);
        }
    }

    void groupingUsesTheTrimmedIdentity()
    {
        const LiveApplication first = app(11, u" Notes "_s, u" org.notes\n"_s);
        const LiveApplication second = app(12, u"Notes"_s, u"org.notes"_s);
        const LiveApplication blankBundle = app(13, u"Term"_s, u"   "_s);
        const LiveApplication noBundle = app(14, u"Term"_s);
        const LiveApplication otherCase = app(15, u"term"_s);
        const ShareableCatalog catalog = catalogOf(
            {first, second, blankBundle, noBundle, otherCase},
            {window(1, second, u"B"_s), window(2, first, u"A"_s), window(3, blankBundle, u"t1"_s),
             window(4, noBundle, u"t2"_s), window(5, otherCase, u"t3"_s)});
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
        QCOMPARE(catalogOf({noBundle}, {window(4, noBundle, u"t2"_s)})
                     .applications.first()
                     .bundleIdentifier,
                 QString());
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
        const ShareableCatalog catalog =
            catalogOf({zed, beta, alpha, nameless, unknown},
                      {window(2, beta, u"b"_s), window(3, alpha, u"a"_s),
                       window(4, nameless, u"n"_s), window(5, unknown, u"u"_s), zedWindow});
        QCOMPARE(ids(catalog.applications), (QStringList{u"zed"_s, u"alpha"_s, u"Beta"_s}));
        QCOMPARE(catalog.liveWindows.size(), 5);
    }

    void displaysAreOrderedAndNamed()
    {
        ShareableContent content;
        content.displays = {display(30, QRectF(1000, 500, 800, 600)),
                            display(10, QRectF(1000, -400, 800, 400)),
                            display(20, QRectF(-800, 0, 800, 600))};
        const QList<ScreenInfo> screens{{10, u"DELL U2720Q"_s, {}, {}},
                                        {std::nullopt, u"Stray"_s, {}, {}}};
        const ShareableCatalog catalog =
            ShareableCatalog::fromContent(content, selfPid, std::nullopt, {}, screens);
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
        QCOMPARE(catalogOf({}, {}).intersectsDisplay(frame, displayID), expected);
    }

    // The lookups the filter builder and the source list make, on one
    // snapshot: Editor on both displays, Mail active on display 2.
    void queries()
    {
        const LiveApplication editor = app(7, u"Editor"_s, u"org.editor"_s);
        const LiveApplication mail = app(8, u"Mail"_s);
        const LiveApplication ant = app(9, u"ant"_s);
        const QRectF right(1100, 10, 200, 100);
        LiveWindow activeRight = window(6, mail, u"Doc"_s, right);
        activeRight.isActive = true;
        const ShareableCatalog catalog =
            catalogOf({editor, mail, ant, app(1, u"Browser"_s, u"org.browser"_s),
                       app(2, u"Browser"_s, u"org.browser"_s), app(4, u"Shell"_s, u"Org.Shell"_s)},
                      {window(1, editor, u" Report \n"_s), window(2, editor, u"report"_s, right),
                       window(3, editor, u"Report"_s), window(4, editor, u"Other"_s),
                       window(5, mail), activeRight, window(7, ant, u"a"_s)});
        const AppIdentity editorIdentity{u"org.editor"_s, u"Editor"_s};
        const AppIdentity mailByName{std::nullopt, u"MAIL"_s};

        // On one display: only the windows there, and sorted by name again
        // (Mail is first overall only because of its window on display 2).
        QCOMPARE(ids(catalog.applications), (QStringList{u"Mail"_s, u"ant"_s, u"Editor"_s}));
        const QList<ShareableApp> onOne = catalog.applicationsOnDisplay(1u);
        QCOMPARE(ids(onOne), (QStringList{u"ant"_s, u"Editor"_s, u"Mail"_s}));
        QCOMPARE(ids(onOne[1].windows), (QList<quint32>{4, 1, 3}));
        const QList<ShareableApp> onTwo = catalog.applicationsOnDisplay(2u);
        QCOMPARE(ids(onTwo), (QStringList{u"Mail"_s, u"Editor"_s}));
        QCOMPARE(ids(onTwo[0].windows), QList<quint32>{6});
        QCOMPARE(catalog.applicationsOnDisplay(std::nullopt), catalog.applications);
        QCOMPARE(catalog.applicationsOnDisplay(99u), catalog.applications);

        // Each process once, in identity order; a bundle matches exactly, a
        // name ignoring case.
        const AppIdentity byBundle{u"org.browser"_s, u"Whatever"_s};
        const AppIdentity byName{std::nullopt, u"BROWSER"_s};
        QCOMPARE(ids(catalog.runningApplications({mailByName, byBundle, byName})),
                 (QList<qint32>{8, 1, 2}));
        QCOMPARE(ids(catalog.runningApplications({byName})), (QList<qint32>{1, 2}));
        QVERIFY(catalog.runningApplications({{u"org.shell"_s, u"Shell"_s}}).isEmpty());
        QVERIFY(catalog.runningApplications({}).isEmpty());

        QCOMPARE(ids(catalog.liveWindowsForApplication(editorIdentity, 1u)),
                 (QList<quint32>{1, 3, 4}));
        QCOMPARE(ids(catalog.liveWindowsForApplication(editorIdentity, std::nullopt)),
                 (QList<quint32>{1, 2, 3, 4}));
        QCOMPARE(ids(catalog.liveWindowsForApplication(mailByName, 1u)), QList<quint32>{5});

        QCOMPARE(ids(catalog.visibleWindows(1u, {}, {})), (QList<quint32>{1, 3, 4, 5, 7}));
        QCOMPARE(ids(catalog.visibleWindows(1u, {window(5, mail)}, {editor})), QList<quint32>{7});
        QCOMPARE(ids(catalog.visibleWindows(std::nullopt, {}, {mail})),
                 (QList<quint32>{1, 2, 3, 4, 7}));

        // A window by its remembered number first: when that one is now on
        // display 2, nothing on display 1, and no title fallback.
        const auto forWindow = [&](const QString& title, std::optional<quint32> number,
                                   std::optional<quint32> display) {
            return ids(catalog.liveWindowsForWindow({editorIdentity, title, number}, display));
        };
        QVERIFY(forWindow(u"Report"_s, 2u, 1u).isEmpty());
        QCOMPARE(forWindow(u"Report"_s, 2u, 2u), QList<quint32>{2});
        QCOMPARE(forWindow(u"Zzz"_s, 4u, std::nullopt), QList<quint32>{4});
        // Gone number, or none: title match, trimmed and ignoring case, on the display.
        QCOMPARE(forWindow(u"  REPORT"_s, 99u, 1u), (QList<quint32>{1, 3}));
        QCOMPARE(forWindow(u"report"_s, std::nullopt, std::nullopt), (QList<quint32>{1, 2, 3}));
        const AppIdentity stranger{u"org.other"_s, u"Editor"_s};
        QVERIFY(catalog.liveWindowsForWindow({stranger, u"Report"_s, std::nullopt}, 1u).isEmpty());
    }

    void emptyCatalogIsEmpty()
    {
        QCOMPARE(ShareableCatalog::empty(), ShareableCatalog{});
        // An empty snapshot still knows who Vistrel is, and holds nothing else.
        ShareableCatalog fromNothing =
            ShareableCatalog::fromContent({}, selfPid, std::nullopt, {4, 2}, {});
        QCOMPARE(fromNothing.selfProcessID, selfPid);
        QCOMPARE(fromNothing.ownWindowNumbers, (QList<quint32>{2, 4}));
        fromNothing.selfProcessID = 0;
        fromNothing.ownWindowNumbers = {};
        QCOMPARE(fromNothing, ShareableCatalog::empty());
    }
};

QTEST_GUILESS_MAIN(TestShareableCatalog)
#include "tst_shareable_catalog.moc"
