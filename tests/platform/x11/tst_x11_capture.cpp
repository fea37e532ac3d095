// The X11 capture stream against a real X server (Xvfb + openbox) and real
// client processes: which windows reach a frame under each filter form, what
// shows behind excluded windows, popups, shapes, off-screen parts, updates
// without restart, idle behaviour and failures to start (a lost server is
// in tst_x11_discovery); and the shared-memory frame pool the frames are
// read into.

#include "platform/x11/X11ShmImagePool.h"
#include "platform/x11/XcbResource.h"
#include "platform/x11/x11_harness.h"

#include <QProcess>
#include <QTest>

using namespace vistrel;
using namespace vistrel::x11;
using namespace vistrel::x11test;
using namespace Qt::StringLiterals;

namespace {

constexpr quint32 desktop = 0x204060;
constexpr quint32 red = 0xd02020;
constexpr quint32 redder = 0xd12121;
constexpr quint32 green = 0x20d020;
constexpr quint32 blue = 0x2020d0;
constexpr quint32 yellow = 0xd0d020;
constexpr quint32 magenta = 0xd020d0;
constexpr quint32 cyan = 0x20d0d0;

constexpr auto allowForm = ContentFilterForm::displayIncludingApplications;
constexpr auto blockForm = ContentFilterForm::displayExcludingApplications;

ContentFilter filter(ContentFilterForm form, QList<qint32> pids, QList<quint32> windows = {})
{
    ContentFilter f;
    f.form = form;
    f.processIDs = std::move(pids);
    f.windowIDs = std::move(windows);
    f.includeMenuBar = form != allowForm;
    return f;
}

StreamConfiguration quiet(bool cursor = false)
{
    StreamConfiguration c;
    c.showsCursor = cursor;
    c.queueDepth = 3;
    return c;
}

bool showsA(const QImage& i)
{
    return rgbAt(i, 200, 200) == red;
}

// A pixel a frame must have: transparent, or opaque in a colour.
struct Probe {
    QPoint at;
    std::optional<quint32> rgb; // none: transparent
};

// A stream and the frames it delivers.
struct Capture {
    std::shared_ptr<FrameSink> sink = std::make_shared<FrameSink>();
    std::unique_ptr<X11CaptureStream> stream;
};

// A 32-bit pixmap to read frames from, painted by the test.
class Source {
public:
    static constexpr QSize size{320, 200};
    Source(xcb_connection_t* c, xcb_window_t root)
        : m_c(c), m_pixmap(createPixmap(c, 32, root, size.width(), size.height())),
          m_gc(createGc(c, m_pixmap.get()))
    {
        paint(QRect(QPoint(0, 0), size), 0xff102030);
    }
    void paint(const QRect& r, quint32 argb)
    {
        xcb_change_gc(m_c, m_gc.get(), XCB_GC_FOREGROUND, &argb);
        const xcb_rectangle_t rect{qint16(r.x()), qint16(r.y()), quint16(r.width()),
                                   quint16(r.height())};
        xcb_poly_fill_rectangle(m_c, m_pixmap.get(), m_gc.get(), 1, &rect);
    }
    // What the server holds.
    QImage image() const
    {
        auto [reply, error] = xcbReply(xcb_get_image_reply, m_c,
                                       xcb_get_image(m_c, XCB_IMAGE_FORMAT_Z_PIXMAP, m_pixmap.get(),
                                                     0, 0, size.width(), size.height(), ~0u));
        return reply ? QImage(xcb_get_image_data(reply.get()), size.width(), size.height(),
                              QImage::Format_ARGB32_Premultiplied)
                           .copy()
                     : QImage();
    }
    xcb_pixmap_t pixmap() const { return m_pixmap.get(); }

private:
    xcb_connection_t* m_c;
    XcbPixmap m_pixmap;
    XcbGc m_gc;
};

} // namespace

Q_DECLARE_METATYPE(QList<Probe>)
Q_DECLARE_METATYPE(vistrel::ContentFilter)

class TestX11Capture : public QObject {
    Q_OBJECT

    X11TestSession m_session;
    std::unique_ptr<TestClient> m_a; // red
    std::unique_ptr<TestClient> m_b; // green, above a
    quint32 m_aWindow = 0;
    quint32 m_bWindow = 0;

    // Starts a stream on the session and waits for a first frame that passes `first`.
    bool start(Capture& c, const ContentFilter& f,
               const StreamConfiguration& configuration = quiet(),
               const std::function<bool(const QImage&)>& first = showsA)
    {
        c.stream =
            std::make_unique<X11CaptureStream>(m_session.displayName(), f, configuration, c.sink);
        return !startStream(*c.stream) && c.sink->waitForFrame(first);
    }

    // Frames that must come: a's window changes colour and back.
    bool forceFrames(const FrameSink& sink)
    {
        const auto at = [&](quint32 rgb) {
            return m_a->colour(m_aWindow, rgb) &&
                   sink.waitForFrame([&](const QImage& i) { return rgbAt(i, 120, 380) == rgb; });
        };
        return at(redder) && at(red);
    }

    QImage next(X11ShmImagePool& pool, const Source& source)
    {
        X11ShmImagePool::Buffer* buffer = pool.acquire();
        if (!buffer || !pool.fill(buffer, source.pixmap()))
            return {};
        return pool.wrap(buffer);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(m_session.start(), qPrintable(m_session.errorString()));
        m_session.warpPointer(1919, 1079);
        m_a = m_session.spawnClient();
        m_b = m_session.spawnClient();
        QVERIFY(m_a && m_b);
        m_aWindow = m_a->window(red, QRect(100, 100, 400, 300));
        m_bWindow = m_b->window(green, QRect(350, 250, 400, 300));
        QVERIFY2(m_aWindow && m_bWindow, qPrintable(m_a->lastError() + m_b->lastError()));
        // Both managed, painted and stacked (b above a) on the real screen.
        Capture c;
        QVERIFY(start(c, ContentFilter{}, quiet(), [](const QImage& i) {
            return showsA(i) && rgbAt(i, 600, 450) == green && rgbAt(i, 450, 350) == green;
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
        X11CaptureStream s(display.isEmpty() ? m_session.displayName() : display, f, quiet(), sink);
        const auto error = startStream(s);
        QVERIFY(error);
        QVERIFY(!error->localizedDescription.isEmpty());
        QTest::qWait(100);
        QCOMPARE(sink->frames(), 0);
    }

    // Each form against the two overlapping windows.
    void filterFormsShowWhatTheyAdmit_data()
    {
        QTest::addColumn<ContentFilter>("filter");
        QTest::addColumn<QList<Probe>>("probes"); // the first is waited for
        QTest::addColumn<quint32>("absent");
        const qint32 a = m_a->pid(), b = m_b->pid();
        // Where b covers a on screen, a's own pixels show.
        QTest::newRow("allow list: a on transparency") << filter(allowForm, {a})
                                                       << QList<Probe>{{{200, 200}, red},
                                                                       {{450, 350}, red},
                                                                       {{1500, 900}, {}},
                                                                       {{600, 500}, {}}}
                                                       << green;
        QTest::newRow("allow list: b's window by id")
            << filter(allowForm, {}, {m_bWindow}) << QList<Probe>{{{600, 450}, green}} << red;
        QTest::newRow("block list: a and the desktop behind b")
            << filter(blockForm, {b})
            << QList<Probe>{{{200, 200}, red}, {{450, 350}, red}, {{650, 500}, desktop}} << green;
        QTest::newRow("display minus b's window")
            << filter(ContentFilterForm::displayExcludingWindows, {}, {m_bWindow})
            << QList<Probe>{{{200, 200}, red}, {{650, 500}, desktop}} << green;
    }

    void filterFormsShowWhatTheyAdmit()
    {
        QFETCH(ContentFilter, filter);
        QFETCH(QList<Probe>, probes);
        QFETCH(quint32, absent);
        const auto matches = [](const QImage& i, const Probe& p) {
            return p.rgb ? alphaAt(i, p.at.x(), p.at.y()) == 255 &&
                               rgbAt(i, p.at.x(), p.at.y()) == *p.rgb
                         : alphaAt(i, p.at.x(), p.at.y()) == 0;
        };
        Capture c;
        QVERIFY(start(c, filter, quiet(), [&](const QImage& i) { return matches(i, probes[0]); }));
        const QImage frame = c.sink->last();
        QCOMPARE(frame.size(), QSize(1920, 1080));
        for (const Probe& p : probes)
            QVERIFY2(matches(frame, p),
                     qPrintable(u"at %1,%2: %3"_s.arg(p.at.x()).arg(p.at.y()).arg(frame.pixel(p.at),
                                                                                  8, 16)));
        QCOMPARE(countColour(frame, absent), 0);
        QCOMPARE(c.sink->malformed(), 0);
    }

    // An allowed process's windows as they come, change and go: its new
    // windows and popups show (a window partly off the screen, its visible
    // part), another process's popup does not, an unmapped window vanishes
    // and returns.
    void allowListFollowsTheAllowedProcess()
    {
        Capture c;
        QVERIFY(start(c, filter(allowForm, {m_a->pid()})));
        const quint32 extra = m_a->window(blue, QRect(1000, 600, 300, 200));
        QVERIFY(c.sink->waitForFrame([](const QImage& i) { return countColour(i, blue) > 50000; }));
        const quint32 menu = m_a->popup(cyan, QRect(120, 130, 150, 200));
        QVERIFY(c.sink->waitForFrame([](const QImage& i) { return rgbAt(i, 190, 230) == cyan; }));
        const quint32 foreign = m_b->popup(magenta, QRect(1400, 100, 100, 100));
        const quint32 edge = m_a->window(yellow, QRect(1800, 950, 300, 300), u"or"_s);
        QVERIFY(m_a->colour(extra, 0x2121d1));
        QVERIFY(c.sink->waitForFrame([](const QImage& i) {
            return countColour(i, 0x2121d1) > 0 && countColour(i, yellow) == 120 * 130;
        }));
        QCOMPARE(countColour(c.sink->last(), magenta), 0);
        QCOMPARE(alphaAt(c.sink->last(), 1790, 1000), 0);

        QVERIFY(m_a->on(u"close"_s, menu));
        QVERIFY(c.sink->waitForFrame([](const QImage& i) { return rgbAt(i, 190, 230) == red; }));
        QVERIFY(m_a->on(u"close"_s, extra) && m_b->on(u"close"_s, foreign) &&
                m_a->on(u"close"_s, edge));
        QVERIFY(c.sink->waitForFrame([](const QImage& i) { return alphaAt(i, 1100, 700) == 0; }));
        QVERIFY(m_a->on(u"unmap"_s, m_aWindow));
        QVERIFY(c.sink->waitForFrame([](const QImage& i) { return countColour(i, red) == 0; }));
        QVERIFY(m_a->on(u"map"_s, m_aWindow));
        QVERIFY(c.sink->waitForFrame(showsA));
    }

    void popupsOfAnAllowedProcessShowEachTimeTheyOpen_data()
    {
        QTest::addColumn<QString>("options");
        QTest::newRow("paints on its first Expose") << QString();
        QTest::newRow("paints as soon as it is mapped") << u"now"_s;
    }

    // Menus opened one after another over a window of a process that is not
    // shared: each must reach the picture whole, however its paint falls
    // against the capture's reset of the fresh pixmap, and no frame may show
    // what lay under it.
    void popupsOfAnAllowedProcessShowEachTimeTheyOpen()
    {
        QFETCH(QString, options);
        Capture c;
        std::atomic<int> leaked{0};
        c.sink->setCheck([&](const QImage& i) { leaked += countColour(i, green) > 0; });
        QVERIFY(start(c, filter(allowForm, {m_a->pid()})));

        const QRect menuRect(560, 300, 150, 200); // over b only
        const int whole = menuRect.width() * menuRect.height();
        for (int round = 0; round < 8; ++round) {
            const quint32 menu = m_a->popup(cyan, menuRect, options);
            QVERIFY(menu);
            const bool shown = c.sink->waitForFrame(
                [&](const QImage& i) { return countColour(i, cyan) == whole; });
            QVERIFY(m_a->on(u"close"_s, menu));
            QVERIFY2(shown, qPrintable(u"menu %1 never showed whole"_s.arg(round + 1)));
            QVERIFY(
                c.sink->waitForFrame([](const QImage& i) { return countColour(i, cyan) == 0; }));
        }
        QCOMPARE(leaked.load(), 0);
        QCOMPARE(c.sink->malformed(), 0);
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
        ContentFilter f = allowed ? filter(allowForm, {m_a->pid()}) : filter(blockForm, {});
        f.applications = {AppIdentity{std::nullopt, u"XLogo"_s}};
        Capture c, screen; // and what the screen shows, to know when the logo is up
        std::atomic<int> leaked{0};
        if (!allowed)
            c.sink->setCheck(
                [&](const QImage& i) { leaked += countColour(i, logoBackground) > 0; });
        QVERIFY(start(c, f) && start(screen, ContentFilter{}));

        QProcess xlogo;
        xlogo.setProcessEnvironment(m_session.environment());
        xlogo.start(u"xlogo"_s, {u"-bg"_s, u"#c83c96"_s, u"-fg"_s, u"#3cc896"_s, u"-geometry"_s,
                                 u"240x200+1300+120"_s});
        QVERIFY2(xlogo.waitForStarted(5000), "xlogo (x11-apps) must be installed");
        const auto logoUp = [](const QImage& i) {
            return countColour(i, logoBackground) > 20000;
        };
        QVERIFY(screen.sink->waitForFrame(logoUp));
        if (allowed) {
            QVERIFY(c.sink->waitForFrame(logoUp));
        } else {
            // Frames forced while the logo is up must all leave it out.
            QVERIFY(forceFrames(*c.sink));
            QCOMPARE(leaked.load(), 0);
        }
        xlogo.kill();
        xlogo.waitForFinished(3000);
        QVERIFY(screen.sink->waitForFrame(
            [](const QImage& i) { return countColour(i, logoBackground) == 0; }));
    }

    // The pointer reaches frames when shown: its motion makes frames, and
    // over a window the filter leaves out it is a plain arrow, not that
    // window's cursor image.
    void pointerIsDrawnWhenShown()
    {
        // The arrow's outline (white) and inside (black) at its tip.
        const auto arrowAt = [](const QImage& i, QPoint p) {
            return rgbAt(i, p.x(), p.y()) == 0xffffff && rgbAt(i, p.x(), p.y() + 1) == 0xffffff &&
                   rgbAt(i, p.x() + 1, p.y() + 2) == 0x000000 &&
                   rgbAt(i, p.x() + 3, p.y() + 10) == 0x000000 &&
                   rgbAt(i, p.x() + 8, p.y() + 10) == 0xffffff;
        };
        m_session.warpPointer(1500, 200);
        Capture c;
        QVERIFY(start(c, filter(blockForm, {m_b->pid()}), quiet(true)));
        QTest::qWait(200);
        const QImage before = c.sink->last();
        const int frames = c.sink->frames();
        m_session.warpPointer(1600, 300);
        QVERIFY(waitUntil([&] { return c.sink->frames() > frames; }));
        QTest::qWait(100);
        QVERIFY(before.copy(1590, 290, 40, 40) != c.sink->last().copy(1590, 290, 40, 40));

        const QPoint overHidden(700, 520), overShown(150, 150); // inside b only, a only
        m_session.warpPointer(overHidden.x(), overHidden.y());
        QVERIFY(c.sink->waitForFrame([&](const QImage& i) { return arrowAt(i, overHidden); }));
        m_session.warpPointer(overShown.x(), overShown.y());
        QVERIFY(c.sink->waitForFrame([&](const QImage& i) {
            return !arrowAt(i, overShown) && rgbAt(i, overHidden.x(), overHidden.y()) != 0xffffff;
        }));
        m_session.warpPointer(1919, 1079);
    }

    void shapedWindowLeaksNothingOutsideItsShape_data()
    {
        QTest::addColumn<QString>("options");
        QTest::newRow("override-redirect") << u"or shape=ellipse"_s;
        QTest::newRow("managed") << u"shape=ellipse"_s;
    }

    void shapedWindowLeaksNothingOutsideItsShape()
    {
        QFETCH(QString, options);
        Capture c;
        QVERIFY(start(c, filter(blockForm, {m_b->pid()})));
        // Over a's red window and the desktop; the ellipse's box corners must
        // show what is under them, not the ellipse's own unshaped pixels.
        const QRect box(1000, 500, 400, 300);
        const quint32 shaped = m_a->window(magenta, box, options);
        QVERIFY(c.sink->waitForFrame([&](const QImage& i) {
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
        // An ellipse covers pi/4 of its box: far fewer than the whole box.
        const int pixels = countColour(c.sink->last(), magenta);
        QVERIFY2(pixels < int(box.width() * box.height() * 0.80),
                 qPrintable(QString::number(pixels)));
        QVERIFY(m_a->on(u"close"_s, shaped));
    }

    void filterAndConfigurationUpdatesWithoutRestart()
    {
        Capture c;
        QVERIFY(start(c, filter(allowForm, {m_a->pid()})));
        bool filterDone = false;
        c.stream->updateContentFilter(filter(allowForm, {m_b->pid()}),
                                      [&](std::optional<PlatformError> e) {
                                          QVERIFY(!e);
                                          filterDone = true;
                                      });
        QVERIFY(!filterDone); // never inside the call
        QVERIFY(c.sink->waitForFrame([](const QImage& i) {
            return countColour(i, red) == 0 && rgbAt(i, 600, 450) == green;
        }));
        QVERIFY(filterDone);

        // Crop to a's client area, scaled to half size.
        StreamConfiguration configuration = quiet();
        configuration.sourceRect = QRectF(150, 150, 200, 100);
        configuration.width = 100;
        configuration.height = 50;
        c.stream->updateContentFilter(filter(allowForm, {m_a->pid()}), {});
        c.stream->updateConfiguration(configuration, {});
        QVERIFY(c.sink->waitForFrame([](const QImage& i) {
            return i.size() == QSize(100, 50) && countColour(i, red) == 100 * 50;
        }));
        QCOMPARE(c.sink->stopError(), QString());
    }

    // Frames come only for changes the picture shows, and none after stop.
    void idleAndStoppedStreamsSendNoFrames()
    {
        Capture c;
        QVERIFY(start(c, filter(blockForm, {m_b->pid()})));
        QTest::qWait(300);
        const int settled = c.sink->frames();
        QTest::qWait(1000);
        QCOMPARE(c.sink->frames(), settled);
        // A blocked window's change is no reason for a frame either.
        QVERIFY(m_b->colour(m_bWindow, 0x21d121));
        QTest::qWait(300);
        QCOMPARE(c.sink->frames(), settled);
        QVERIFY(m_b->colour(m_bWindow, green));

        bool stopped = false;
        c.stream->stopCapture([&](std::optional<PlatformError> e) { stopped = !e; });
        QVERIFY(waitUntil([&] { return stopped; }));
        QVERIFY(m_a->colour(m_aWindow, redder));
        QTest::qWait(200);
        QCOMPARE(c.sink->frames(), settled);
        QVERIFY(m_a->colour(m_aWindow, red));
    }

    // A buffer refilled after other frames went by must hold exactly the
    // source's pixels, whether the server copies into it as a shared pixmap
    // or the changed parts are read packed and copied row by row; a consumer
    // painting on its frame must not leave its pixels in the buffer.
    void framePoolRefillsMatchTheSource_data()
    {
        QTest::addColumn<bool>("sharedPixmaps");
        QTest::newRow("server copies into shared pixmaps") << true;
        QTest::newRow("packed parts copied row by row") << false;
    }

    void framePoolRefillsMatchTheSource()
    {
        QFETCH(bool, sharedPixmaps);
        xcb_connection_t* c = m_session.connection();
        Source source(c, m_session.root());
        X11ShmImagePool pool(c, Source::size, 2, sharedPixmaps ? m_session.root() : XCB_NONE);
        QVERIFY(pool.isValid());

        QImage first = next(pool, source);
        QCOMPARE(first, source.image());
        // The second buffer has never been filled: it is read whole.
        const QRect a(10, 20, 50, 40);
        source.paint(a, 0xffc03030);
        pool.changed(a);
        QImage second = next(pool, source);
        QCOMPARE(second, source.image());
        QVERIFY(!pool.acquire()); // both in flight

        // The first buffer missed `a` and then `b`: both are read into it.
        first = second = QImage();
        const QRect b(200, 150, 30, 30);
        source.paint(b, 0x8030c030);
        pool.changed(b);
        QCOMPARE(next(pool, source), source.image());

        // Many small parts (read as their bounding rectangle), then most of
        // the frame (read whole).
        QRegion scattered;
        for (int i = 0; i < 40; ++i)
            scattered += QRect(5 + i * 7, 5 + i * 4, 3, 3);
        for (const QRect& r : scattered)
            source.paint(r, 0xff000000 | quint32(r.x() * 0x10101));
        pool.changed(scattered);
        QCOMPARE(next(pool, source), source.image());
        const QRect most(0, 0, 300, 190);
        source.paint(most, 0xff3030c0);
        source.paint(QRect(100, 100, 10, 10), 0xffffffff);
        pool.changed(most);
        QCOMPARE(next(pool, source), source.image());
        QCOMPARE(next(pool, source), source.image());

        // Nothing changed on the server: the buffer painted on is handed out as it was filled.
        QImage painted = next(pool, source);
        painted.setPixel(5, 5, 0xffffffff);
        painted = QImage();
        QCOMPARE(next(pool, source), source.image());
    }
};

QTEST_GUILESS_MAIN(TestX11Capture)
#include "tst_x11_capture.moc"
