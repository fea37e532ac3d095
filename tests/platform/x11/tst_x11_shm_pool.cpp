// The shared-memory frame pool against a real X server: a buffer refilled
// after other frames went by must hold exactly the source's pixels, whether
// the server copies into it as a shared pixmap or the changed parts are read
// packed and copied row by row; a consumer painting on its frame must not
// leave its pixels in the buffer.

#include "platform/x11/X11ShmImagePool.h"
#include "x11_capture_harness.h"

#include <QTest>

using namespace vistrel;
using namespace vistrel::x11;
using namespace vistrel::x11test;

namespace {

constexpr QSize size(320, 200);

class Source {
public:
    Source(xcb_connection_t* c, xcb_window_t root) : m_c(c)
    {
        m_pixmap = xcb_generate_id(c);
        xcb_create_pixmap(c, 32, m_pixmap, root, quint16(size.width()), quint16(size.height()));
        m_gc = xcb_generate_id(c);
        xcb_create_gc(c, m_gc, m_pixmap, 0, nullptr);
        paint(QRect(QPoint(0, 0), size), 0xff102030);
    }
    ~Source()
    {
        xcb_free_gc(m_c, m_gc);
        xcb_free_pixmap(m_c, m_pixmap);
        xcb_flush(m_c);
    }
    void paint(const QRect& r, quint32 argb)
    {
        xcb_change_gc(m_c, m_gc, XCB_GC_FOREGROUND, &argb);
        const xcb_rectangle_t rect{qint16(r.x()), qint16(r.y()), quint16(r.width()),
                                   quint16(r.height())};
        xcb_poly_fill_rectangle(m_c, m_pixmap, m_gc, 1, &rect);
    }
    // Whether `image` holds the source's pixels, first difference otherwise.
    QString differs(const QImage& image) const
    {
        auto* reply =
            xcb_get_image_reply(m_c,
                                xcb_get_image(m_c, XCB_IMAGE_FORMAT_Z_PIXMAP, m_pixmap, 0, 0,
                                              quint16(size.width()), quint16(size.height()), ~0u),
                                nullptr);
        if (!reply)
            return QStringLiteral("source unreadable");
        const auto* want = reinterpret_cast<const quint32*>(xcb_get_image_data(reply));
        QString result;
        for (int y = 0; y < size.height() && result.isEmpty(); ++y) {
            const auto* got = reinterpret_cast<const quint32*>(image.constScanLine(y));
            for (int x = 0; x < size.width(); ++x) {
                if (got[x] != want[y * size.width() + x]) {
                    result = QStringLiteral("%1,%2: %3 instead of %4")
                                 .arg(x)
                                 .arg(y)
                                 .arg(got[x], 8, 16)
                                 .arg(want[y * size.width() + x], 8, 16);
                    break;
                }
            }
        }
        free(reply);
        return result;
    }
    xcb_pixmap_t pixmap() const { return m_pixmap; }

private:
    xcb_connection_t* m_c;
    xcb_pixmap_t m_pixmap = 0;
    xcb_gcontext_t m_gc = 0;
};

} // namespace

class TestX11ShmPool : public QObject {
    Q_OBJECT

    XSession m_session;

    QImage next(X11ShmImagePool& pool, const Source& source)
    {
        X11ShmImagePool::Buffer* buffer = pool.acquire();
        if (!buffer || !pool.fill(buffer, source.pixmap()))
            return {};
        return pool.wrap(buffer);
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY2(m_session.start(640, 480), "Xvfb and openbox must start"); }

    void refilledBuffersMatchTheSource_data()
    {
        QTest::addColumn<bool>("sharedPixmaps");
        QTest::newRow("server copies into shared pixmaps") << true;
        QTest::newRow("packed parts copied row by row") << false;
    }

    void refilledBuffersMatchTheSource()
    {
        QFETCH(bool, sharedPixmaps);
        xcb_connection_t* c = m_session.connection();
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
        Source source(c, root);
        X11ShmImagePool pool(c, size, 2, sharedPixmaps ? root : XCB_NONE);
        QVERIFY(pool.isValid());

        QImage first = next(pool, source);
        QCOMPARE(source.differs(first), QString());

        // The second buffer has never been filled: it is read whole.
        const QRect a(10, 20, 50, 40);
        source.paint(a, 0xffc03030);
        pool.changed(a);
        QImage second = next(pool, source);
        QCOMPARE(source.differs(second), QString());
        QVERIFY(!pool.acquire()); // both in flight

        // The first buffer missed `a` and then `b`: both are read into it.
        first = second = QImage();
        const QRect b(200, 150, 30, 30);
        source.paint(b, 0x8030c030);
        pool.changed(b);
        QImage third = next(pool, source);
        QCOMPARE(source.differs(third), QString());
        third = QImage();

        // Many small parts (read as their bounding rectangle), then most of
        // the frame (read whole).
        QRegion scattered;
        for (int i = 0; i < 40; ++i)
            scattered += QRect(5 + i * 7, 5 + i * 4, 3, 3);
        for (const QRect& r : scattered)
            source.paint(r, 0xff000000 | quint32(r.x() * 0x10101));
        pool.changed(scattered);
        QCOMPARE(source.differs(next(pool, source)), QString());
        const QRect most(0, 0, 300, 190);
        source.paint(most, 0xff3030c0);
        source.paint(QRect(100, 100, 10, 10), 0xffffffff);
        pool.changed(most);
        QCOMPARE(source.differs(next(pool, source)), QString());
        QCOMPARE(source.differs(next(pool, source)), QString());
    }

    void paintingOnAFrameLeavesTheBufferAlone()
    {
        xcb_connection_t* c = m_session.connection();
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
        Source source(c, root);
        X11ShmImagePool pool(c, size, 1, root);
        QImage frame = next(pool, source);
        QCOMPARE(source.differs(frame), QString());
        frame.setPixel(5, 5, 0xffffffff);
        frame = QImage();
        // Nothing changed on the server: the buffer is handed out as it is.
        QCOMPARE(source.differs(next(pool, source)), QString());
    }
};

VISTREL_CAPTURE_TEST_MAIN(TestX11ShmPool)
#include "tst_x11_shm_pool.moc"
