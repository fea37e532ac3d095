// Randomized window churn from allowed and blocked processes while two
// streams capture the desktop (an allow list and a block list). Every frame
// is checked: no pixel may have a colour that a blocked process's window
// ever had. Colours are never reused, so any such pixel is a leak.

#include "platform/x11/X11Compositor.h"
#include "x11_capture_harness.h"

#include <QRandomGenerator>
#include <QTest>
#include <array>
#include <vector>

using namespace vistrel;
using namespace vistrel::x11test;
using namespace Qt::StringLiterals;

namespace {

constexpr int soakSeconds = 22;

// One bit per 24-bit colour, safe to read from the stream threads while the
// test thread adds colours (a colour is added before any window shows it).
class ColourSet {
public:
    ColourSet() : m_bits(std::make_unique<std::atomic<quint64>[]>(words)) {}
    void insert(quint32 rgb) { m_bits[rgb >> 6].fetch_or(1ull << (rgb & 63)); }
    bool contains(quint32 rgb) const
    {
        return m_bits[rgb >> 6].load(std::memory_order_relaxed) & (1ull << (rgb & 63));
    }

private:
    static constexpr size_t words = (1u << 24) / 64;
    std::unique_ptr<std::atomic<quint64>[]> m_bits;
};

// Blocked processes paint reddish colours, allowed ones greenish: neither
// family meets the desktop colour or the window manager's greys and blues.
class Palette {
public:
    quint32 next(bool blocked)
    {
        const quint32 n = m_counter++;
        const quint32 high = 0xc0 | (n & 0x3f);
        const quint32 low = (n >> 6) & 0x3f;
        const quint32 blue = (n >> 12) & 0xff;
        return blocked ? (high << 16 | low << 8 | blue) : (low << 16 | high << 8 | blue);
    }

private:
    quint32 m_counter = 1;
};

struct FrameStats {
    std::atomic<int> frames{0};
    std::atomic<int> leakingFrames{0};
    std::atomic<int> framesWithAllowed{0};
    std::atomic<quint32> firstLeak{0};
};

void inspect(const QImage& image, const ColourSet& forbidden, const ColourSet& allowed,
             FrameStats& stats)
{
    int leaks = 0;
    bool sawAllowed = false;
    for (int y = 0; y < image.height(); ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            if (qAlpha(line[x]) == 0)
                continue;
            const quint32 rgb = line[x] & 0xffffff;
            const quint32 family = rgb & 0xc0c000; // top bits of red and green
            if (family == 0xc00000 && forbidden.contains(rgb)) {
                if (!leaks)
                    stats.firstLeak = rgb;
                ++leaks;
            } else if (!sawAllowed && family == 0x00c000 && allowed.contains(rgb)) {
                sawAllowed = true;
            }
        }
    }
    stats.frames.fetch_add(1);
    if (leaks)
        stats.leakingFrames.fetch_add(1);
    if (sawAllowed)
        stats.framesWithAllowed.fetch_add(1);
}

struct Churner {
    Client client;
    bool blocked = false;
    std::vector<quint32> windows;
};

} // namespace

class TestX11LeakSoak : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void churnNeverLeaksABlockedWindow()
    {
        // Frames composed in part are also compared with a whole rebuild.
        qputenv("VISTREL_X11_VERIFY_FRAMES", "1");
        const int failuresBefore = x11::X11Compositor::verificationFailures();
        const int verifiedBefore = x11::X11Compositor::verifiedFrames();
        XSession session;
        QVERIFY2(session.start(1920, 1080), "Xvfb and openbox must start");
        session.warpPointer(1919, 1079);

        std::array<Churner, 4> churners;
        for (size_t i = 0; i < churners.size(); ++i) {
            churners[i].blocked = i >= 2;
            QVERIFY(churners[i].client.start(session));
        }
        ColourSet forbidden;
        ColourSet allowed;
        Palette palette;
        auto colourFor = [&](Churner& c) {
            const quint32 rgb = palette.next(c.blocked);
            (c.blocked ? forbidden : allowed).insert(rgb);
            return rgb;
        };

        ContentFilter allowFilter;
        allowFilter.form = ContentFilterForm::displayIncludingApplications;
        allowFilter.processIDs = {churners[0].client.pid(), churners[1].client.pid()};
        ContentFilter blockFilter;
        blockFilter.form = ContentFilterForm::displayExcludingApplications;
        blockFilter.processIDs = {churners[2].client.pid(), churners[3].client.pid()};
        blockFilter.includeMenuBar = true;

        StreamConfiguration configuration;
        configuration.showsCursor = false;
        configuration.backgroundColor = QColor(0, 0, 0, 0);
        FrameStats allowStats, blockStats;
        auto allowSink = std::make_shared<FrameSink>();
        auto blockSink = std::make_shared<FrameSink>();
        allowSink->setCheck([&](const QImage& i) { inspect(i, forbidden, allowed, allowStats); });
        blockSink->setCheck([&](const QImage& i) { inspect(i, forbidden, allowed, blockStats); });
        X11CaptureStream allowStream(session.display(), allowFilter, configuration, allowSink);
        X11CaptureStream blockStream(session.display(), blockFilter, configuration, blockSink);
        QVERIFY(!startStream(allowStream));
        QVERIFY(!startStream(blockStream));

        QRandomGenerator random(20261123);
        auto geometry = [&] {
            // Mostly on screen, some partly beyond its right or bottom edge.
            const int w = random.bounded(40, 700);
            const int h = random.bounded(40, 500);
            return QRect(random.bounded(-50, 1900), random.bounded(-50, 1060), w, h);
        };
        QElapsedTimer timer;
        timer.start();
        int operations = 0;
        while (timer.elapsed() < soakSeconds * 1000) {
            Churner& c = churners[random.bounded(int(churners.size()))];
            const int op = random.bounded(100);
            if (c.windows.size() < 2 || (op < 12 && c.windows.size() < 6)) {
                const QRect g = geometry();
                const int kind = random.bounded(10);
                const QByteArray flags = kind < 2 ? "or" : kind < 3 ? "ellipse" : "";
                const quint32 id = kind == 9 ? c.client.popup(colourFor(c), g)
                                             : c.client.window(colourFor(c), g, flags);
                if (id)
                    c.windows.push_back(id);
            } else {
                const size_t index = size_t(random.bounded(int(c.windows.size())));
                const quint32 w = c.windows[index];
                if (op < 20) {
                    c.client.on("close", w);
                    c.windows.erase(c.windows.begin() + qsizetype(index));
                } else if (op < 30) {
                    c.client.on("unmap", w);
                } else if (op < 42) {
                    c.client.on("map", w);
                } else if (op < 52) {
                    c.client.on("raise", w);
                } else if (op < 58) {
                    c.client.on("lower", w);
                } else if (op < 70) {
                    const QRect g = geometry();
                    c.client.on("move", w,
                                QByteArray::number(g.x()) + ' ' + QByteArray::number(g.y()));
                } else if (op < 80) {
                    const QRect g = geometry();
                    c.client.on("resize", w,
                                QByteArray::number(g.width()) + ' ' +
                                    QByteArray::number(g.height()));
                } else if (op < 88) {
                    c.client.on("title", w, "window " + QByteArray::number(operations));
                } else {
                    c.client.on("color", w, QByteArray::number(colourFor(c), 16));
                }
            }
            ++operations;
            QCoreApplication::processEvents();
            QThread::msleep(quint32(random.bounded(2, 25)));
        }
        allowStream.stopCapture({});
        blockStream.stopCapture({});

        qInfo("%d operations; frames checked: allow list %d (%d showing allowed windows), "
              "block list %d (%d showing allowed windows)",
              operations, allowStats.frames.load(), allowStats.framesWithAllowed.load(),
              blockStats.frames.load(), blockStats.framesWithAllowed.load());
        QCOMPARE(allowSink->stopError(), QString());
        QCOMPARE(blockSink->stopError(), QString());
        QCOMPARE(allowSink->malformed(), 0);
        QCOMPARE(blockSink->malformed(), 0);
        qInfo("%d partial frames compared with a whole rebuild",
              x11::X11Compositor::verifiedFrames() - verifiedBefore);
        QCOMPARE(x11::X11Compositor::verificationFailures() - failuresBefore, 0);
        // Frames kept coming through the whole churn (every one of them is
        // scanned on the stream's thread, which slows the streams down), and
        // they showed something.
        QVERIFY(allowStats.frames > soakSeconds * 2);
        QVERIFY(blockStats.frames > soakSeconds * 2);
        QVERIFY(allowStats.framesWithAllowed > allowStats.frames / 2);
        QVERIFY(blockStats.framesWithAllowed > blockStats.frames / 2);
        QVERIFY2(allowStats.leakingFrames == 0,
                 qPrintable(u"allow list: %1 leaking frames, first colour %2"_s
                                .arg(allowStats.leakingFrames.load())
                                .arg(allowStats.firstLeak.load(), 6, 16, QLatin1Char('0'))));
        QVERIFY2(blockStats.leakingFrames == 0,
                 qPrintable(u"block list: %1 leaking frames, first colour %2"_s
                                .arg(blockStats.leakingFrames.load())
                                .arg(blockStats.firstLeak.load(), 6, 16, QLatin1Char('0'))));
    }
};

VISTREL_CAPTURE_TEST_MAIN(TestX11LeakSoak)
#include "tst_x11_leak_soak.moc"
