// The test desktop itself: if these fail, every other X11 result is suspect.

#include "support_x11session.h"

#include <QTest>
#include <xcb/randr.h>

using namespace Qt::StringLiterals;
using namespace vistrel::testsupport;

class TestX11Session : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY2(m_session.start(), qPrintable(m_session.errorString())); }

    void twoMonitorsSideBySide()
    {
        xcb_connection_t* c = m_session.connection();
        auto [monitors, error] = vistrel::x11::xcbReply(
            xcb_randr_get_monitors_reply, c, xcb_randr_get_monitors(c, m_session.root(), 1));
        QVERIFY(monitors);
        QCOMPARE(monitors->nMonitors, 2u);
        QList<QRect> rects;
        for (auto it = xcb_randr_get_monitors_monitors_iterator(monitors.get()); it.rem;
             xcb_randr_monitor_info_next(&it))
            rects << QRect(it.data->x, it.data->y, it.data->width, it.data->height);
        std::sort(rects.begin(), rects.end(),
                  [](const QRect& a, const QRect& b) { return a.x() < b.x(); });
        QCOMPARE(rects, (QList<QRect>{{0, 0, 1920, 1080}, {1920, 0, 1920, 1080}}));
    }

    // A client window lands where it asked, in its colour, and the root grab sees it.
    void clientWindowIsPaintedWhereItAsked()
    {
        auto client = m_session.spawnClient(u"Painter"_s);
        QVERIFY2(client, qPrintable(m_session.errorString()));
        QVERIFY(client->pid() > 0);
        const quint32 id = client->openWindow(u"w"_s, u"ff0000"_s, {300, 200, 200, 100});
        QVERIFY2(id, qPrintable(client->lastError()));
        // The window manager may push the client down and right by its decoration.
        const auto geometry = m_session.rootGeometry(id);
        QVERIFY(geometry);
        QCOMPARE(geometry->size(), QSize(200, 100));
        QVERIFY2(geometry->x() >= 300 && geometry->x() <= 310 && geometry->y() >= 200 &&
                     geometry->y() <= 240,
                 qPrintable(u"%1,%2"_s.arg(geometry->x()).arg(geometry->y())));
        QVERIFY(waitUntil([&] {
            return m_session.grabRoot({350, 230, 10, 10}).pixel(5, 5) == qRgb(255, 0, 0);
        }));
        QVERIFY(client->command(u"color w 00ff00"_s));
        QVERIFY(waitUntil([&] {
            return m_session.grabRoot({350, 230, 10, 10}).pixel(5, 5) == qRgb(0, 255, 0);
        }));
        QVERIFY(!client->command(u"color nosuch 00ff00"_s));
        QVERIFY(client->lastError().contains(u"nosuch"));
    }

    // A shaped window ("eyes": two ellipses) paints only inside its shape.
    void shapedWindowShowsOnlyItsShape()
    {
        auto client = m_session.spawnClient(u"Eyes"_s);
        QVERIFY(client);
        const quint32 id =
            client->openWindow(u"eyes"_s, u"0000ff"_s, {1000, 300, 200, 100}, u"shape=eyes"_s);
        QVERIFY(id);
        const auto geometry = m_session.rootGeometry(id);
        QVERIFY(geometry);
        const QPoint origin = geometry->topLeft();
        QVERIFY(waitUntil([&] {
            const QImage image = m_session.grabRoot({origin, QSize(200, 100)});
            return !image.isNull() && image.pixel(50, 50) == qRgb(0, 0, 255) &&
                   image.pixel(150, 50) == qRgb(0, 0, 255);
        }));
        const QImage image = m_session.grabRoot({origin, QSize(200, 100)});
        QVERIFY(image.pixel(100, 5) != qRgb(0, 0, 255)); // between the eyes, at the top
        QVERIFY(image.pixel(2, 2) != qRgb(0, 0, 255));   // outside the first eye's corner
    }

    void cleanupTestCase() { m_session.stop(); }

private:
    X11TestSession m_session;
};

QTEST_GUILESS_MAIN(TestX11Session)
#include "tst_x11_session.moc"
