// Frames composed in part (only what changed since the previous frame) must
// equal a whole rebuild at the same moment, pixel for pixel. The compositor's
// verification compares every partial frame as delivered, after the partial
// readback into a cycling buffer, with a whole rebuild; here admitted and
// excluded windows overlap, repaint, move, pop up and vanish, the desktop is
// repainted and the pointer wanders, under each filter form and a source
// rectangle that does not start at the display's corner.

#include "platform/x11/X11Compositor.h"
#include "platform/x11/x11_harness.h"

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QScopeGuard>
#include <QTest>
#include <QThread>
#include <deque>
#include <mutex>

using namespace vistrel;
using namespace vistrel::x11test;
using namespace Qt::StringLiterals;

namespace {

constexpr int animationMs = 4000;

struct Animated {
    std::unique_ptr<TestClient> client;
    std::vector<quint32> windows;
    std::vector<quint32> popups;
};

// Where each partial frame said it changed.
class ChangeSink : public FrameSink {
public:
    void streamDidOutputSampleBuffer(const SampleBuffer& buffer, SampleOutputType type) override
    {
        if (buffer.change) {
            std::lock_guard lock(m_mutex);
            m_changes.append(buffer.change->region);
        }
        FrameSink::streamDidOutputSampleBuffer(buffer, type);
    }
    QList<QRegion> changes() const
    {
        std::lock_guard lock(m_mutex);
        return m_changes;
    }

private:
    mutable std::mutex m_mutex;
    QList<QRegion> m_changes;
};

QString randomColour(QRandomGenerator& random)
{
    return u"%1"_s.arg(random.bounded(0x1000000), 6, 16, QChar(u'0'));
}

} // namespace

class TestX11PartialFrames : public QObject {
    Q_OBJECT

    X11TestSession m_session;
    Animated m_shown;  // admitted by every filter below
    Animated m_hidden; // excluded by every filter below

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("VISTREL_X11_VERIFY_FRAMES", "1");
        QVERIFY2(m_session.start({{1280, 720}}), qPrintable(m_session.errorString()));
        m_session.warpPointer(640, 360);
        m_shown.client = m_session.spawnClient();
        m_hidden.client = m_session.spawnClient();
        QVERIFY(m_shown.client && m_hidden.client);
        m_shown.windows = {
            m_shown.client->window(0xc03030, QRect(60, 60, 500, 350)),
            m_shown.client->window(0x30c030, QRect(400, 250, 420, 300), u"shape=ellipse"_s),
            m_shown.client->window(0x3030c0, QRect(1100, 600, 300, 200))};
        m_hidden.windows = {m_hidden.client->window(0xe0e0e0, QRect(300, 150, 400, 300)),
                            m_hidden.client->window(0x101010, QRect(700, 80, 350, 250))};
        for (const Animated* who : {&m_shown, &m_hidden})
            QVERIFY(std::count(who->windows.begin(), who->windows.end(), 0u) == 0);
    }

    // The root's damage also reports windows drawing over it. An excluded
    // window repainting (Vistrel's own output, say) is not a change of the
    // desktop: left in, each output repaint would come back as a changed
    // area of the next frame.
    void windowsDrawingOverTheDesktopAreNotDesktopChanges()
    {
        const QRect excludedAt(880, 400, 180, 140); // clear of every admitted window
        const quint32 excluded = m_hidden.client->window(0x707070, excludedAt);
        QVERIFY(excluded);
        ContentFilter filter;
        filter.form = ContentFilterForm::displayExcludingApplications;
        filter.processIDs = {m_hidden.client->pid()};
        auto sink = std::make_shared<ChangeSink>();
        {
            X11CaptureStream stream(m_session.displayName(), filter, {}, sink);
            QVERIFY(!startStream(stream));
            QVERIFY(waitUntil([&] { return sink->frames() > 0; }));
            QRandomGenerator random(17);
            for (int i = 0; i < 40; ++i) {
                m_hidden.client->on(u"color"_s, excluded, randomColour(random));
                m_shown.client->on(u"color"_s, m_shown.windows[2], randomColour(random));
                QThread::msleep(25);
            }
            stream.stopCapture({});
        }
        m_hidden.client->on(u"close"_s, excluded);
        const QList<QRegion> changes = sink->changes();
        QVERIFY2(changes.size() > 10, qPrintable(u"only %1 partial frames"_s.arg(changes.size())));
        // Inside the window's frame, whatever the decorations.
        const QRect inside = excludedAt.adjusted(20, 30, -20, -10);
        QRegion all;
        for (const QRegion& change : changes)
            all += change;
        QVERIFY2(!all.intersects(inside), "an excluded window's repaint counted as a change");
        QVERIFY(all.intersects(QRect(1150, 650, 200, 100))); // the admitted window's repaints
    }

    void partialFramesEqualWholeRebuild_data()
    {
        QTest::addColumn<int>("form");
        QTest::addColumn<QRectF>("source");
        QTest::addColumn<bool>("cursor");
        QTest::addColumn<bool>("sharedPixmaps"); // else one canvas, read back in parts

        const int allow = int(ContentFilterForm::displayIncludingApplications);
        const int block = int(ContentFilterForm::displayExcludingApplications);
        const int minusWindows = int(ContentFilterForm::displayExcludingWindows);
        const QRectF part(150, 90, 900, 560);
        QTest::newRow("allow list") << allow << QRectF() << true << true;
        QTest::newRow("block list") << block << QRectF() << true << true;
        QTest::newRow("display minus windows") << minusWindows << QRectF() << true << true;
        QTest::newRow("allow list, source rect") << allow << part << true << true;
        QTest::newRow("block list, source rect") << block << part << true << true;
        QTest::newRow("block list, no cursor") << block << QRectF() << false << true;
        QTest::newRow("allow list, no shared pixmaps") << allow << QRectF() << true << false;
    }

    void partialFramesEqualWholeRebuild()
    {
        QFETCH(int, form);
        QFETCH(QRectF, source);
        QFETCH(bool, cursor);
        QFETCH(bool, sharedPixmaps);
        qputenv("VISTREL_X11_SHARED_PIXMAPS", sharedPixmaps ? "1" : "0");
        const auto restore = qScopeGuard([] { qunsetenv("VISTREL_X11_SHARED_PIXMAPS"); });

        ContentFilter filter;
        filter.form = ContentFilterForm(form);
        filter.includeMenuBar = true;
        if (filter.form == ContentFilterForm::displayIncludingApplications)
            filter.processIDs = {m_shown.client->pid()};
        else if (filter.form == ContentFilterForm::displayExcludingApplications)
            filter.processIDs = {m_hidden.client->pid()};
        else
            filter.windowIDs = {m_hidden.windows[0], m_hidden.windows[1]};

        StreamConfiguration configuration;
        configuration.showsCursor = cursor;
        configuration.queueDepth = 3;
        if (source.isValid())
            configuration.sourceRect = source;

        // Frames are held a while, as an encoder would, so the pool's
        // buffers take turns and each is refilled from an older frame.
        auto sink = std::make_shared<FrameSink>();
        std::deque<QImage> held;
        sink->setCheck([&held](const QImage& image) {
            held.push_back(image);
            if (held.size() > 2)
                held.pop_front();
        });
        const int verifiedBefore = x11::X11Compositor::verifiedFrames();
        const int failuresBefore = x11::X11Compositor::verificationFailures();
        {
            X11CaptureStream stream(m_session.displayName(), filter, configuration, sink);
            QVERIFY(!startStream(stream));
            QVERIFY(waitUntil([&] { return sink->frames() > 0; }));
            animate(QRandomGenerator(quint32(form) * 7 + quint32(source.isValid())));
            stream.stopCapture({});
        }
        held.clear();
        const int verified = x11::X11Compositor::verifiedFrames() - verifiedBefore;
        const int failures = x11::X11Compositor::verificationFailures() - failuresBefore;
        qInfo("%d frames, %d of them partial", sink->frames(), verified);
        QCOMPARE(sink->stopError(), QString());
        QCOMPARE(sink->malformed(), 0);
        QCOMPARE(failures, 0);
        // Most changes are repaints and pointer moves: partial frames must
        // actually happen, or this proves nothing (and costs full frames).
        QVERIFY2(verified > 20, qPrintable(u"only %1 partial frames"_s.arg(verified)));
    }

private:
    void animate(QRandomGenerator random)
    {
        const auto pair = [&](int from1, int to1, int from2, int to2) {
            const int first = random.bounded(from1, to1);
            return u"%1 %2"_s.arg(first).arg(random.bounded(from2, to2));
        };
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < animationMs) {
            const int op = random.bounded(100);
            Animated& who = random.bounded(3) == 0 ? m_hidden : m_shown;
            TestClient& client = *who.client;
            const quint32 window = who.windows[size_t(random.bounded(int(who.windows.size())))];
            const QString colour = randomColour(random);
            if (op >= 40 && op < 62) {
                m_session.warpPointer(random.bounded(1280), random.bounded(720));
            } else if (op >= 62 && op < 66) {
                m_session.setDesktopColour(quint32(random.bounded(0x1000000)));
            } else if (op >= 66 && op < 72) {
                client.on(u"move"_s, window, pair(-100, 1200, -100, 650));
            } else if (op >= 72 && op < 77) {
                client.on(random.bounded(2) ? u"raise"_s : u"lower"_s, window);
            } else if (op >= 77 && op < 82) {
                client.on(u"resize"_s, window, pair(60, 600, 60, 400));
            } else if (op >= 82 && op < 88 && who.popups.size() < 3) {
                const QRect at(random.bounded(-50, 1200), random.bounded(-50, 650),
                               random.bounded(40, 300), random.bounded(40, 200));
                if (const quint32 id = client.popup(quint32(random.bounded(0x1000000)), at))
                    who.popups.push_back(id);
            } else if (op >= 82 && op < 94 && !who.popups.empty()) {
                const auto index = size_t(random.bounded(int(who.popups.size())));
                if (random.bounded(2)) {
                    client.on(u"color"_s, who.popups[index], colour);
                } else {
                    client.on(u"close"_s, who.popups[index]);
                    who.popups.erase(who.popups.begin() + qsizetype(index));
                }
            } else {
                client.on(u"color"_s, window, colour);
            }
            QCoreApplication::processEvents();
            QThread::msleep(quint32(random.bounded(3, 30)));
        }
    }
};

QTEST_GUILESS_MAIN(TestX11PartialFrames)
#include "tst_x11_partial_frames.moc"
