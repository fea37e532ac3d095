// The X11 capture stream against a real X server (Xvfb + openbox) and real
// client processes: which windows reach a frame under each filter form, what
// shows behind excluded windows, popups, shapes, off-screen parts, updates
// without restart, idle behaviour and failures.

#include "x11_capture_harness.h"

#include <QProcess>
#include <QTest>

using namespace vistrel;
using namespace vistrel::x11test;
using namespace Qt::StringLiterals;

namespace {

constexpr quint32 desktop = 0x204060;
constexpr quint32 red = 0xd02020;
constexpr quint32 green = 0x20d020;
constexpr quint32 blue = 0x2020d0;
constexpr quint32 yellow = 0xd0d020;
constexpr quint32 magenta = 0xd020d0;
constexpr quint32 cyan = 0x20d0d0;

int countColour(const QImage& image, quint32 rgb)
{
    int n = 0;
    for (int y = 0; y < image.height(); ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        for (int x = 0; x < image.width(); ++x)
            n += (line[x] & 0xffffff) == rgb && qAlpha(line[x]) == 255;
    }
    return n;
}

ContentFilter allowList(QList<qint32> pids, QList<quint32> windows = {})
{
    ContentFilter f;
    f.form = ContentFilterForm::displayIncludingApplications;
    f.processIDs = std::move(pids);
    f.windowIDs = std::move(windows);
    return f;
}

ContentFilter blockList(QList<qint32> pids, QList<quint32> windows = {})
{
    ContentFilter f;
    f.form = ContentFilterForm::displayExcludingApplications;
    f.processIDs = std::move(pids);
    f.windowIDs = std::move(windows);
    f.includeMenuBar = true;
    return f;
}

StreamConfiguration quietConfiguration()
{
    StreamConfiguration c;
    c.showsCursor = false;
    c.queueDepth = 3;
    return c;
}

} // namespace

class TestX11Capture : public QObject {
    Q_OBJECT

    XSession m_session;
    std::unique_ptr<Client> m_a; // red
    std::unique_ptr<Client> m_b; // green
    quint32 m_aWindow = 0;
    quint32 m_bWindow = 0;

    std::unique_ptr<X11CaptureStream> stream(const ContentFilter& filter,
                                             std::shared_ptr<FrameSink> sink,
                                             StreamConfiguration c = quietConfiguration())
    {
        return std::make_unique<X11CaptureStream>(m_session.display(), filter, c, sink);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(m_session.start(), "Xvfb and openbox must start");
        m_session.warpPointer(1919, 1079);
        m_a = std::make_unique<Client>();
        m_b = std::make_unique<Client>();
        QVERIFY(m_a->start(m_session));
        QVERIFY(m_b->start(m_session));
        m_aWindow = m_a->window(red, QRect(100, 100, 400, 300));
        m_bWindow = m_b->window(green, QRect(350, 250, 400, 300));
        QVERIFY(m_aWindow && m_bWindow);
        // Both managed, painted and stacked (b above a) on the real screen.
        auto sink = std::make_shared<FrameSink>();
        auto s = stream(ContentFilter{}, sink);
        QVERIFY(!startStream(*s));
        QVERIFY(sink->waitForFrame([](const QImage& i) {
            return rgbAt(i, 200, 200) == red && rgbAt(i, 600, 450) == green &&
                   rgbAt(i, 450, 350) == green;
        }));
    }

    void startFailsClearly_data()
    {
        QTest::addColumn<QByteArray>("display");
        QTest::addColumn<quint32>("displayID");
        QTest::newRow("no such X display") << QByteArray(":97") << 0u;
        QTest::newRow("no such monitor") << QByteArray() << 0x7777u;
    }

    void startFailsClearly()
    {
        QFETCH(QByteArray, display);
        QFETCH(quint32, displayID);
        ContentFilter f;
        f.displayID = displayID;
        auto sink = std::make_shared<FrameSink>();
        X11CaptureStream s(display.isEmpty() ? m_session.display() : display, f,
                           quietConfiguration(), sink);
        const auto error = startStream(s);
        QVERIFY(error);
        QVERIFY(!error->localizedDescription.isEmpty());
        QTest::qWait(100);
        QCOMPARE(sink->frames(), 0);
    }

    void allowListShowsOnlyAdmittedWindowsOnTransparency()
    {
        auto sink = std::make_shared<FrameSink>();
        auto s = stream(allowList({m_a->pid()}), sink);
        QVERIFY(!startStream(*s));
        QVERIFY(sink->waitForFrame([](const QImage& i) { return rgbAt(i, 200, 200) == red; }));
        const QImage frame = sink->last();
        QCOMPARE(frame.size(), QSize(1920, 1080));
        QCOMPARE(countColour(frame, green), 0);
        // Where b covers a on screen, a's own pixels show.
        QCOMPARE(rgbAt(frame, 450, 350), red);
        QCOMPARE(alphaAt(frame, 1500, 900), 0);
        QCOMPARE(alphaAt(frame, 600, 500), 0); // b's place, beyond a
        QCOMPARE(sink->malformed(), 0);
    }

    void allowListShowsNewWindowsAndPopupsOfAnAllowedProcess()
    {
        auto sink = std::make_shared<FrameSink>();
        auto s = stream(allowList({m_a->pid()}), sink);
        QVERIFY(!startStream(*s));
        QVERIFY(sink->waitForFrame([](const QImage& i) { return rgbAt(i, 200, 200) == red; }));

        const quint32 extra = m_a->window(blue, QRect(1000, 600, 300, 200));
        QVERIFY(sink->waitForFrame([](const QImage& i) { return countColour(i, blue) > 50000; }));
        const quint32 menu = m_a->popup(cyan, QRect(120, 130, 150, 200));
        QVERIFY(sink->waitForFrame([](const QImage& i) { return rgbAt(i, 190, 230) == cyan; }));
        // A popup of another process stays out.
        const quint32 foreign = m_b->popup(magenta, QRect(1400, 100, 100, 100));
        m_a->on("color", extra, "2121d1");
        QVERIFY(sink->waitForFrame([](const QImage& i) { return countColour(i, 0x2121d1) > 0; }));
        QCOMPARE(countColour(sink->last(), magenta), 0);

        m_a->on("close", menu);
        QVERIFY(sink->waitForFrame([](const QImage& i) { return rgbAt(i, 190, 230) == red; }));
        m_a->on("close", extra);
        m_b->on("close", foreign);
        QVERIFY(sink->waitForFrame([](const QImage& i) { return alphaAt(i, 1100, 700) == 0; }));
    }

    void popupsOfAnAllowedProcessShowEachTimeTheyOpen_data()
    {
        QTest::addColumn<QByteArray>("flags");
        QTest::newRow("paints on its first Expose") << QByteArray();
        QTest::newRow("paints as soon as it is mapped") << QByteArray("now");
    }

    // Menus opened one after another over a window of a process that is not
    // shared: each must reach the picture whole, however its paint falls
    // against the capture's reset of the fresh pixmap, and no frame may show
    // what lay under it.
    void popupsOfAnAllowedProcessShowEachTimeTheyOpen()
    {
        QFETCH(QByteArray, flags);
        auto sink = std::make_shared<FrameSink>();
        std::atomic<int> leaked{0};
        sink->setCheck([&](const QImage& i) {
            if (countColour(i, green) > 0)
                leaked.fetch_add(1);
        });
        auto s = stream(allowList({m_a->pid()}), sink);
        QVERIFY(!startStream(*s));
        QVERIFY(sink->waitForFrame([](const QImage& i) { return rgbAt(i, 200, 200) == red; }));

        const QRect menuRect(560, 300, 150, 200); // over b only
        const int whole = menuRect.width() * menuRect.height();
        for (int round = 0; round < 8; ++round) {
            const quint32 menu = m_a->popup(cyan, menuRect, flags);
            QVERIFY(menu);
            const bool shown =
                sink->waitForFrame([&](const QImage& i) { return countColour(i, cyan) == whole; });
            m_a->on("close", menu);
            QVERIFY2(shown, qPrintable(u"menu %1 never showed whole"_s.arg(round + 1)));
            QVERIFY(sink->waitForFrame([](const QImage& i) { return countColour(i, cyan) == 0; }));
        }
        QCOMPARE(leaked.load(), 0);
        QCOMPARE(sink->malformed(), 0);
    }

    void allowListExtraWindowOfAnotherProcess()
    {
        auto sink = std::make_shared<FrameSink>();
        auto s = stream(allowList({}, {m_bWindow}), sink);
        QVERIFY(!startStream(*s));
        QVERIFY(sink->waitForFrame([](const QImage& i) { return rgbAt(i, 600, 450) == green; }));
        QCOMPARE(countColour(sink->last(), red), 0);
    }

    void blockListShowsWhatLiesBehind()
    {
        auto sink = std::make_shared<FrameSink>();
        auto s = stream(blockList({m_b->pid()}), sink);
        QVERIFY(!startStream(*s));
        QVERIFY(sink->waitForFrame([](const QImage& i) { return rgbAt(i, 200, 200) == red; }));
        const QImage frame = sink->last();
        QCOMPARE(countColour(frame, green), 0);
        QCOMPARE(rgbAt(frame, 450, 350), red);     // a, behind b
        QCOMPARE(rgbAt(frame, 650, 500), desktop); // the desktop, behind b
        QCOMPARE(alphaAt(frame, 650, 500), 255);
    }

    void blockedApplicationsNewWindowNeverAppears()
    {
        auto sink = std::make_shared<FrameSink>();
        std::atomic<int> leaked{0};
        std::atomic<int> checked{0};
        sink->setCheck([&](const QImage& i) {
            checked.fetch_add(1);
            if (countColour(i, yellow) > 0 || countColour(i, green) > 0)
                leaked.fetch_add(1);
        });
        auto s = stream(blockList({m_b->pid()}), sink);
        QVERIFY(!startStream(*s));
        QVERIFY(sink->waitForFrame([](const QImage& i) { return rgbAt(i, 200, 200) == red; }));

        // Right after the new window appears, a's change forces frames.
        const quint32 fresh = m_b->window(yellow, QRect(150, 150, 300, 300));
        const quint32 popup = m_b->popup(yellow, QRect(800, 700, 200, 100));
        m_a->on("color", m_aWindow, "d12121");
        QVERIFY(sink->waitForFrame([](const QImage& i) { return rgbAt(i, 120, 380) == 0xd12121; }));
        m_a->on("color", m_aWindow, QByteArray::number(red, 16));
        QVERIFY(sink->waitForFrame([](const QImage& i) { return rgbAt(i, 120, 380) == red; }));
        m_b->on("close", fresh);
        m_b->on("close", popup);
        QTest::qWait(200);
        QVERIFY(checked > 1);
        QCOMPARE(leaked.load(), 0);
    }

    // A stock X client of an application the filter names only by its class:
    // a new process of it follows the rule from its first frame on, long
    // before any discovery pass could report its pid.
    void stockClientFollowsItsApplicationRule_data()
    {
        QTest::addColumn<bool>("allowed");
        QTest::newRow("allow list shows it at once") << true;
        QTest::newRow("block list never shows it") << false;
    }

    void stockClientFollowsItsApplicationRule()
    {
        QFETCH(bool, allowed);
        constexpr quint32 logoBackground = 0xc83c96;
        const AppIdentity logo{std::nullopt, u"XLogo"_s};
        ContentFilter filter = allowed ? allowList({m_a->pid()}) : blockList({});
        filter.applications = {logo};
        auto sink = std::make_shared<FrameSink>();
        std::atomic<int> leaked{0};
        if (!allowed)
            sink->setCheck([&](const QImage& i) { leaked += countColour(i, logoBackground) > 0; });
        auto s = stream(filter, sink);
        QVERIFY(!startStream(*s));
        QVERIFY(sink->waitForFrame([](const QImage& i) { return rgbAt(i, 200, 200) == red; }));
        // What the screen shows, to know when the logo is up.
        auto probeSink = std::make_shared<FrameSink>();
        auto probe = stream(ContentFilter{}, probeSink);
        QVERIFY(!startStream(*probe));

        QProcess xlogo;
        xlogo.setProcessEnvironment(m_session.environment());
        xlogo.start(u"xlogo"_s, {u"-bg"_s, u"#c83c96"_s, u"-fg"_s, u"#3cc896"_s, u"-geometry"_s,
                                 u"240x200+1300+120"_s});
        QVERIFY2(xlogo.waitForStarted(5000), "xlogo (x11-apps) must be installed");
        QVERIFY(probeSink->waitForFrame(
            [](const QImage& i) { return countColour(i, logoBackground) > 20000; }));
        if (allowed) {
            QVERIFY(sink->waitForFrame(
                [](const QImage& i) { return countColour(i, logoBackground) > 20000; }));
        } else {
            // Frames forced while the logo is up must all leave it out.
            m_a->on("color", m_aWindow, "d12121");
            QVERIFY(
                sink->waitForFrame([](const QImage& i) { return rgbAt(i, 120, 380) == 0xd12121; }));
            m_a->on("color", m_aWindow, QByteArray::number(red, 16));
            QVERIFY(sink->waitForFrame([](const QImage& i) { return rgbAt(i, 120, 380) == red; }));
            QCOMPARE(leaked.load(), 0);
        }
        xlogo.kill();
        xlogo.waitForFinished(3000);
        QVERIFY(probeSink->waitForFrame(
            [](const QImage& i) { return countColour(i, logoBackground) == 0; }));
    }

    // Over a window the filter leaves out, the pointer is a plain arrow, not
    // that window's cursor image.
    void pointerOverAHiddenWindowIsAPlainArrow()
    {
        StreamConfiguration c = quietConfiguration();
        c.showsCursor = true;
        auto sink = std::make_shared<FrameSink>();
        auto s = stream(blockList({m_b->pid()}), sink, c);
        const QPoint overHidden(700, 520); // inside b only
        m_session.warpPointer(overHidden.x(), overHidden.y());
        QVERIFY(!startStream(*s));
        // The arrow's outline (white) and inside (black) at its tip.
        const auto arrowAt = [](const QImage& i, QPoint p) {
            return rgbAt(i, p.x(), p.y()) == 0xffffff && rgbAt(i, p.x(), p.y() + 1) == 0xffffff &&
                   rgbAt(i, p.x() + 1, p.y() + 2) == 0x000000 &&
                   rgbAt(i, p.x() + 3, p.y() + 10) == 0x000000 &&
                   rgbAt(i, p.x() + 8, p.y() + 10) == 0xffffff;
        };
        QVERIFY(sink->waitForFrame([&](const QImage& i) { return arrowAt(i, overHidden); }));
        const QPoint overShown(150, 150); // inside a only
        m_session.warpPointer(overShown.x(), overShown.y());
        QVERIFY(sink->waitForFrame([&](const QImage& i) {
            return !arrowAt(i, overShown) && rgbAt(i, overHidden.x(), overHidden.y()) != 0xffffff;
        }));
        m_session.warpPointer(1919, 1079);
    }

    void fullDesktopMinusWindow()
    {
        ContentFilter f;
        f.form = ContentFilterForm::displayExcludingWindows;
        f.windowIDs = {m_bWindow};
        f.includeMenuBar = true;
        auto sink = std::make_shared<FrameSink>();
        auto s = stream(f, sink);
        QVERIFY(!startStream(*s));
        QVERIFY(sink->waitForFrame([](const QImage& i) { return rgbAt(i, 200, 200) == red; }));
        QCOMPARE(countColour(sink->last(), green), 0);
        QCOMPARE(rgbAt(sink->last(), 650, 500), desktop);
    }

    void windowPartlyOutsideTheScreen()
    {
        const quint32 edge = m_a->window(magenta, QRect(1800, 950, 300, 300), "or");
        auto sink = std::make_shared<FrameSink>();
        auto s = stream(allowList({m_a->pid()}), sink);
        QVERIFY(!startStream(*s));
        QVERIFY(
            sink->waitForFrame([](const QImage& i) { return rgbAt(i, 1900, 1050) == magenta; }));
        QCOMPARE(countColour(sink->last(), magenta), 120 * 130);
        QCOMPARE(alphaAt(sink->last(), 1790, 1000), 0);
        m_a->on("close", edge);
    }

    void shapedWindowLeaksNothingOutsideItsShape_data()
    {
        QTest::addColumn<QByteArray>("flags");
        QTest::newRow("override-redirect") << QByteArray("or ellipse");
        QTest::newRow("managed") << QByteArray("ellipse");
    }

    void shapedWindowLeaksNothingOutsideItsShape()
    {
        QFETCH(QByteArray, flags);
        auto sink = std::make_shared<FrameSink>();
        auto s = stream(blockList({m_b->pid()}), sink);
        QVERIFY(!startStream(*s));
        // Over a's red window and the desktop; the ellipse's box corners must
        // show what is under them, not the ellipse's own unshaped pixels.
        const QRect box(1000, 500, 400, 300);
        const quint32 shaped = m_a->window(magenta, box, flags);
        QVERIFY(sink->waitForFrame([&](const QImage& i) { return countColour(i, magenta) > 0; }));
        QVERIFY(sink->waitForFrame([&](const QImage& i) {
            // Wherever openbox placed it, find the ellipse's bounding box.
            QRect found;
            for (int y = 0; y < i.height(); y += 2)
                for (int x = 0; x < i.width(); x += 2)
                    if (rgbAt(i, x, y) == magenta)
                        found |= QRect(x, y, 1, 1);
            if (found.width() < 380 || found.height() < 280)
                return false;
            const QPoint corner = found.topLeft() + QPoint(10, 10);
            return rgbAt(i, corner.x(), corner.y()) != magenta &&
                   rgbAt(i, found.right() - 10, found.bottom() - 10) != magenta &&
                   rgbAt(i, found.center().x(), found.center().y()) == magenta;
        }));
        const QImage frame = sink->last();
        // An ellipse covers pi/4 of its box: far fewer than the whole box.
        const int pixels = countColour(frame, magenta);
        QVERIFY2(pixels < int(box.width() * box.height() * 0.80),
                 qPrintable(QString::number(pixels)));
        m_a->on("close", shaped);
    }

    void unmappedWindowVanishesAndReturns()
    {
        auto sink = std::make_shared<FrameSink>();
        auto s = stream(allowList({m_a->pid()}), sink);
        QVERIFY(!startStream(*s));
        QVERIFY(sink->waitForFrame([](const QImage& i) { return rgbAt(i, 200, 200) == red; }));
        m_a->on("unmap", m_aWindow);
        QVERIFY(sink->waitForFrame([](const QImage& i) { return countColour(i, red) == 0; }));
        m_a->on("map", m_aWindow);
        QVERIFY(sink->waitForFrame([](const QImage& i) { return rgbAt(i, 200, 200) == red; }));
    }

    void filterAndConfigurationUpdatesWithoutRestart()
    {
        auto sink = std::make_shared<FrameSink>();
        auto s = stream(allowList({m_a->pid()}), sink);
        QVERIFY(!startStream(*s));
        QVERIFY(sink->waitForFrame([](const QImage& i) { return rgbAt(i, 200, 200) == red; }));

        bool filterDone = false;
        s->updateContentFilter(allowList({m_b->pid()}), [&](std::optional<PlatformError> e) {
            QVERIFY(!e);
            filterDone = true;
        });
        QVERIFY(!filterDone); // never inside the call
        QVERIFY(sink->waitForFrame([](const QImage& i) {
            return countColour(i, red) == 0 && rgbAt(i, 600, 450) == green;
        }));
        QVERIFY(filterDone);

        // Crop to a's client area, scaled to half size.
        StreamConfiguration c = quietConfiguration();
        c.sourceRect = QRectF(150, 150, 200, 100);
        c.width = 100;
        c.height = 50;
        s->updateContentFilter(allowList({m_a->pid()}), {});
        s->updateConfiguration(c, {});
        QVERIFY(sink->waitForFrame([](const QImage& i) {
            return i.size() == QSize(100, 50) && countColour(i, red) == 100 * 50;
        }));
        QCOMPARE(sink->stopError(), QString());
    }

    void idleStreamSendsNoFrames()
    {
        auto sink = std::make_shared<FrameSink>();
        auto s = stream(blockList({m_b->pid()}), sink);
        QVERIFY(!startStream(*s));
        QVERIFY(sink->waitForFrame([](const QImage& i) { return rgbAt(i, 200, 200) == red; }));
        QTest::qWait(300);
        const int settled = sink->frames();
        QTest::qWait(1000);
        QCOMPARE(sink->frames(), settled);
        // A blocked window's change is no reason for a frame either.
        m_b->on("color", m_bWindow, "21d121");
        QTest::qWait(300);
        QCOMPARE(sink->frames(), settled);
        m_b->on("color", m_bWindow, QByteArray::number(green, 16));
    }

    void cursorMotionMakesFramesWhenShown()
    {
        StreamConfiguration c = quietConfiguration();
        c.showsCursor = true;
        auto sink = std::make_shared<FrameSink>();
        auto s = stream(blockList({m_b->pid()}), sink, c);
        m_session.warpPointer(1500, 200);
        QVERIFY(!startStream(*s));
        QVERIFY(sink->waitForFrame([](const QImage& i) { return rgbAt(i, 200, 200) == red; }));
        QTest::qWait(200);
        const QImage before = sink->last();
        const int frames = sink->frames();
        m_session.warpPointer(1600, 300);
        QVERIFY(waitFor([&] { return sink->frames() > frames; }));
        QTest::qWait(100);
        const QImage after = sink->last();
        QVERIFY(before.copy(1590, 290, 40, 40) != after.copy(1590, 290, 40, 40));
        m_session.warpPointer(1919, 1079);
    }

    void stopEndsFrames()
    {
        auto sink = std::make_shared<FrameSink>();
        auto s = stream(blockList({}), sink);
        QVERIFY(!startStream(*s));
        QVERIFY(sink->waitForFrame([](const QImage& i) { return rgbAt(i, 200, 200) == red; }));
        bool stopped = false;
        s->stopCapture([&](std::optional<PlatformError> e) { stopped = !e; });
        QVERIFY(waitFor([&] { return stopped; }));
        const int frames = sink->frames();
        m_a->on("color", m_aWindow, "d12121");
        QTest::qWait(200);
        QCOMPARE(sink->frames(), frames);
        m_a->on("color", m_aWindow, QByteArray::number(red, 16));
    }

    void lostConnectionStopsWithError()
    {
        // A server of its own, killed under the stream.
        XSession doomed;
        QVERIFY(doomed.start(640, 480));
        auto sink = std::make_shared<FrameSink>();
        X11CaptureStream s(doomed.display(), ContentFilter{}, quietConfiguration(), sink);
        QVERIFY(!startStream(s));
        QVERIFY(waitFor([&] { return sink->frames() > 0; }));
        doomed.killServer();
        QVERIFY(waitFor([&] { return !sink->stopError().isEmpty(); }));
    }
};

VISTREL_CAPTURE_TEST_MAIN(TestX11Capture)
#include "tst_x11_capture.moc"
