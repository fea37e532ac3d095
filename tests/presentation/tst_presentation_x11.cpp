// Presentation on a real X session (Xvfb and openbox started by this
// executable): the widget window handle and the registry (window ids as other
// clients see them, minimise and close requests coming from the window
// manager, focus), and video drawn on the X server.

#include "platform/x11/X11VideoPlane.h"
#include "platform/x11/x11_harness.h"
#include "presentation/VideoLayerWidget.h"
#include "presentation/WidgetWindowHandle.h"
#include "presentation/WindowRegistry.h"

#include <QApplication>
#include <QPainter>
#include <QProcess>
#include <QTest>
#include <QWidget>
#include <cstdio>
#include <memory>
#include <xcb/xcb.h>

using namespace Qt::StringLiterals;
using namespace vistrel;

namespace {

// Runs an X client tool against the session; its trimmed standard output.
QString run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(10000))
        return QString();
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

quint32 activeWindow()
{
    return run(u"xdotool"_s, {u"getactivewindow"_s}).toUInt();
}

QString netWmState(quint32 window)
{
    return run(u"xprop"_s, {u"-id"_s, QString::number(window), u"_NET_WM_STATE"_s});
}

std::unique_ptr<QWidget> mappedWidget(const QString& title)
{
    auto widget = std::make_unique<QWidget>();
    widget->setWindowTitle(title);
    widget->resize(320, 200);
    widget->show();
    if (!QTest::qWaitForWindowExposed(widget.get()))
        return nullptr;
    return widget;
}

// A window laid out like the output: a canvas painted behind a video layer
// and a translucent badge over the video, which Qt paints.
class VideoHost : public QWidget {
public:
    static constexpr QRect videoRect{10, 12, 400, 225};
    static constexpr QRect badgeRect{300, 170, 90, 50};

    explicit VideoHost(x11::X11VideoPlaneFactory* planes) : video(new VideoLayerWidget(this))
    {
        setAttribute(Qt::WA_OpaquePaintEvent);
        resize(420, 250);
        video->setGeometry(videoRect);
        auto* badge = new Badge(this);
        badge->setGeometry(badgeRect);
        video->useVideoPlane(planes);
        if (planes) {
            QImage backdrop(videoRect.size(), QImage::Format_ARGB32_Premultiplied);
            QPainter painter(&backdrop);
            painter.translate(-videoRect.topLeft());
            paintCanvas(painter);
            painter.end();
            video->setBackdrop(backdrop);
            video->setOverdrawn(QRegion(badgeRect.translated(-videoRect.topLeft())));
        }
    }

    VideoLayerWidget* video;

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        paintCanvas(painter);
    }

private:
    struct Badge : QWidget {
        using QWidget::QWidget;
        void paintEvent(QPaintEvent*) override
        {
            QPainter painter(this);
            painter.setRenderHint(QPainter::Antialiasing);
            painter.setBrush(QColor(255, 255, 255, 150));
            painter.setPen(Qt::NoPen);
            painter.drawEllipse(rect());
        }
    };

    void paintCanvas(QPainter& painter)
    {
        QLinearGradient gradient(0, 0, width(), height());
        gradient.setColorAt(0, QColor(30, 60, 90));
        gradient.setColorAt(1, QColor(200, 120, 40));
        painter.fillRect(rect(), gradient);
    }
};

// Smooth content with hard edges and, unless opaque, transparent parts (the
// canvas shows through); `shift` moves a block so that a later frame differs
// in one place.
QImage videoFrame(QSize size, int shift, bool opaque)
{
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(opaque ? QColor(90, 90, 90) : QColor(Qt::transparent));
    QPainter painter(&image);
    QLinearGradient gradient(0, 0, size.width(), 0);
    gradient.setColorAt(0, QColor(250, 20, 20));
    gradient.setColorAt(1, QColor(20, 20, 250));
    painter.fillRect(QRect(0, 0, size.width() * 2 / 3, size.height() * 2 / 3), gradient);
    painter.fillRect(
        QRect(size.width() / 4 + shift, size.height() / 2, size.width() / 3, size.height() / 3),
        QColor(40, 200, 60));
    painter.fillRect(QRect(size.width() * 3 / 4, 0, size.width() / 4, size.height() / 5),
                     QColor(255, 255, 0, opaque ? 255 : 128));
    return image;
}

// The largest difference of any channel, and where.
std::pair<int, QPoint> largestDifference(const QImage& a, const QImage& b)
{
    std::pair<int, QPoint> worst{a.size() == b.size() ? 0 : 256, {}};
    for (int y = 0; y < std::min(a.height(), b.height()); ++y) {
        for (int x = 0; x < std::min(a.width(), b.width()); ++x) {
            const QRgb p = a.pixel(x, y);
            const QRgb q = b.pixel(x, y);
            const int d = std::max({std::abs(qRed(p) - qRed(q)), std::abs(qGreen(p) - qGreen(q)),
                                    std::abs(qBlue(p) - qBlue(q))});
            if (d > worst.first)
                worst = {d, QPoint(x, y)};
        }
    }
    return worst;
}

} // namespace

class TestPresentationX11 : public QObject {
    Q_OBJECT

    x11test::X11TestSession& m_session;

public:
    explicit TestPresentationX11(x11test::X11TestSession& session) : m_session(session) {}

private Q_SLOTS:
    void windowNumberThenMinimiseAndRestore()
    {
        auto widget = mappedWidget(u"Vistrel minimise probe"_s);
        QVERIFY(widget);
        const auto id = quint32(widget->winId());
        WindowRegistry registry;
        registry.registerWindow(WidgetWindowHandle::forWidget(widget.get()),
                                ManagedWindowKind::simpleControl);
        QVERIFY(registry.isVisible(ManagedWindowKind::simpleControl));
        // Other clients find the window under the number the registry publishes
        // (the client window, not the window manager's frame).
        QCOMPARE(run(u"xdotool"_s, {u"search"_s, u"--name"_s, u"^Vistrel minimise probe$"_s}),
                 QString::number(id));
        QCOMPARE(registry.windowNumbers(), QSet<quint32>{id});

        run(u"xdotool"_s, {u"windowminimize"_s, QString::number(id)});
        QTRY_VERIFY(!registry.visibleKinds().contains(ManagedWindowKind::simpleControl));
        QVERIFY(widget->isMinimized());
        QVERIFY(netWmState(id).contains(u"_NET_WM_STATE_HIDDEN"_s));

        registry.show(ManagedWindowKind::simpleControl, true);
        QTRY_VERIFY(!netWmState(id).contains(u"_NET_WM_STATE_HIDDEN"_s));
        QTRY_COMPARE(activeWindow(), id);
        QVERIFY(!widget->isMinimized());
        QVERIFY(registry.visibleKinds().contains(ManagedWindowKind::simpleControl));
    }

    void windowManagerCloseGoesThroughGuard()
    {
        auto widget = mappedWidget(u"Vistrel close probe"_s);
        QVERIFY(widget);
        const auto id = quint32(widget->winId());
        WindowRegistry registry;
        auto* handle = WidgetWindowHandle::forWidget(widget.get());
        registry.registerWindow(handle, ManagedWindowKind::simpleControl);
        bool allowClose = false;
        handle->setCloseGuard([&] {
            if (!allowClose)
                registry.hide(ManagedWindowKind::simpleControl);
            return allowClose;
        });

        // The window manager's close request: refused, the window is only ordered out.
        registry.show(ManagedWindowKind::simpleControl, true);
        QTRY_COMPARE(activeWindow(), id);
        m_session.requestClose(id);
        QTRY_VERIFY(!widget->isVisible());
        QTest::qWait(100);
        QVERIFY(registry.hasWindow(ManagedWindowKind::simpleControl));
        QVERIFY(!registry.isVisible(ManagedWindowKind::simpleControl));

        // Allowed (as while quitting): the registry forgets the window.
        allowClose = true;
        registry.show(ManagedWindowKind::simpleControl, true);
        QTRY_COMPARE(activeWindow(), id);
        m_session.requestClose(id);
        QTRY_VERIFY(!registry.hasWindow(ManagedWindowKind::simpleControl));
        QCOMPARE(registry.windowNumbers(), QSet<quint32>{});
    }

    void showWithoutActivationKeepsForeignFocus()
    {
        auto widget = mappedWidget(u"Vistrel focus probe"_s);
        QVERIFY(widget);
        const auto id = quint32(widget->winId());
        WindowRegistry registry;
        registry.registerWindow(WidgetWindowHandle::forWidget(widget.get()),
                                ManagedWindowKind::simpleControl);
        registry.hide(ManagedWindowKind::simpleControl);

        // Another application takes the focus.
        QProcess other;
        other.start(u"xmessage"_s, {u"-name"_s, u"vistrelforeign"_s, u"foreign"_s});
        QVERIFY(other.waitForStarted());
        quint32 foreign = 0;
        QTRY_VERIFY(
            (foreign = run(u"xdotool"_s, {u"search"_s, u"--classname"_s, u"vistrelforeign"_s})
                           .toUInt()) != 0);
        run(u"xdotool"_s, {u"windowactivate"_s, QString::number(foreign)});
        QTRY_COMPARE(activeWindow(), foreign);
        QTRY_COMPARE(QGuiApplication::applicationState(), Qt::ApplicationInactive);
        registry.show(ManagedWindowKind::simpleControl, false);
        QVERIFY(QTest::qWaitForWindowExposed(widget.get()));
        QTest::qWait(300);
        QCOMPARE(activeWindow(), foreign);

        registry.show(ManagedWindowKind::simpleControl, true);
        QTRY_COMPARE(activeWindow(), id);

        other.kill();
        other.waitForFinished();
    }

    // The video drawn on the server looks as Qt paints it: canvas under the
    // transparent parts, the frame scaled into place, Qt's own widgets over
    // it. A frame that changed in one place is redrawn there alone, and the
    // result is what a whole redraw gives. The frame comes as a pixmap on
    // the server, as client memory only, or as a pixmap the stream freed
    // before the plane met it; an opaque one is drawn straight onto the window.
    void videoPlaneShowsWhatQtPaints_data()
    {
        QTest::addColumn<QSize>("frameSize");
        QTest::addColumn<QString>("source");
        QTest::addColumn<bool>("opaque"); // drawn straight onto the window
        QTest::newRow("server pixmap, scaled down") << QSize(640, 360) << u"pixmap"_s << false;
        QTest::newRow("opaque server pixmap") << QSize(640, 360) << u"pixmap"_s << true;
        QTest::newRow("client memory, scaled up") << QSize(200, 112) << u"memory"_s << false;
        QTest::newRow("pixmap freed in flight") << QSize(640, 360) << u"freed"_s << true;
    }

    void videoPlaneShowsWhatQtPaints()
    {
        QFETCH(QSize, frameSize);
        QFETCH(QString, source);
        QFETCH(bool, opaque);
        auto planes = x11::X11VideoPlaneFactory::connect();
        QVERIFY(planes);
        xcb_connection_t* c = m_session.connection();
        // Two frames, each in a pixmap of its own, as a stream's buffer pool has them.
        static quint64 sets = 0;
        const quint64 set = ++sets;
        const QRect moved(frameSize.width() / 4, frameSize.height() / 2, frameSize.width() / 3 + 12,
                          frameSize.height() / 3);
        std::vector<x11::XcbPixmap> pixmaps;
        QList<SampleBuffer> frames;
        for (int i = 0; i < 2; ++i) {
            SampleBuffer buffer;
            buffer.image = videoFrame(frameSize, i * 12, opaque);
            buffer.dataReady = true;
            buffer.presentationTimeNs = i + 1;
            if (i > 0)
                buffer.change = FrameChange{i, QRegion(moved)};
            if (source != u"memory"_s) {
                pixmaps.push_back(x11::createPixmap(c, 32, m_session.root(),
                                                    quint16(frameSize.width()),
                                                    quint16(frameSize.height())));
                const x11::XcbGc gc = x11::createGc(c, pixmaps.back().get());
                xcb_put_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmaps.back().get(), gc.get(),
                              quint16(frameSize.width()), quint16(frameSize.height()), 0, 0, 0, 32,
                              quint32(buffer.image.sizeInBytes()), buffer.image.constBits());
                buffer.server = {pixmaps.back().get(), set, opaque};
            }
            frames.append(buffer);
        }
        if (source == u"freed"_s)
            pixmaps.clear();
        QVERIFY(x11::XcbReply<xcb_get_input_focus_reply_t>(
            xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr)));

        VideoHost painted(nullptr);
        VideoHost onServer(planes.get());
        painted.move(0, 0);
        onServer.move(0, 400);
        painted.show();
        onServer.show();
        QVERIFY(QTest::qWaitForWindowExposed(&painted));
        QVERIFY(QTest::qWaitForWindowExposed(&onServer));
        QVERIFY(onServer.video->drawsOnPlane());

        for (VideoHost* host : {&painted, &onServer}) {
            host->video->setVisible(true);
            for (const SampleBuffer& frame : frames)
                host->video->displayLayer()->enqueueSampleBuffer(frame);
        }
        const auto grab = [&](const QWidget& host) {
            QCoreApplication::processEvents();
            return m_session.grabWindow(xcb_window_t(host.winId()));
        };
        // The server and Qt blend a scaled picture a few levels apart (Qt
        // filters by another method below half size).
        QImage shown;
        const auto alike = [&] {
            std::pair<int, QPoint> worst;
            const bool same = QTest::qWaitFor(
                [&] {
                    shown = grab(onServer);
                    worst = largestDifference(grab(painted), shown);
                    return worst.first <= 8;
                },
                5000);
            return same ? QString()
                        : u"%1 levels apart at %2,%3"_s.arg(worst.first)
                              .arg(worst.second.x())
                              .arg(worst.second.y());
        };
        QString failure = alike();
        QVERIFY2(failure.isEmpty(), qPrintable(failure));

        // The same picture drawn whole on a fresh plane.
        VideoHost whole(planes.get());
        whole.move(450, 400);
        whole.show();
        QVERIFY(QTest::qWaitForWindowExposed(&whole));
        whole.video->setVisible(true);
        SampleBuffer last = frames.last();
        last.change.reset();
        whole.video->displayLayer()->enqueueSampleBuffer(last);
        QTRY_COMPARE(grab(whole), grab(onServer));

        // Covered and uncovered by another window: redrawn from what it holds.
        auto cover = std::make_unique<QWidget>();
        cover->setGeometry(onServer.geometry().adjusted(40, 40, 0, 0));
        cover->show();
        QVERIFY(QTest::qWaitForWindowExposed(cover.get()));
        cover.reset();
        QTRY_COMPARE(grab(onServer), shown);

        // Resized while no new frame comes: the picture follows at once.
        const QRect smaller(20, 20, 300, 200);
        for (VideoHost* host : {&painted, &onServer})
            host->video->setGeometry(smaller);
        onServer.video->setOverdrawn(VideoHost::badgeRect.translated(-smaller.topLeft()));
        failure = alike();
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
        QCOMPARE(planes->errorCount(), 0);
    }
};

int main(int argc, char** argv)
{
    return x11test::runSuiteInSession<QApplication, TestPresentationX11>(argc, argv);
}

#include "tst_presentation_x11.moc"
