// Screens, capture access and the backend entry point on a real X server.
// Qt itself runs on the session's display (xcb platform), so QScreen reports
// what a user's desktop would.

#include "platform/x11/X11CaptureBackend.h"
#include "platform/x11/X11Permission.h"
#include "platform/x11/X11ScreenProvider.h"
#include "platform/x11/X11UrlOpener.h"
#include "support_x11session.h"

#include <QFile>
#include <QGuiApplication>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vistrel;
using namespace vistrel::x11;
using namespace vistrel::testsupport;

namespace {
X11TestSession* g_session = nullptr;

class RecordingDelegate : public CaptureStreamDelegate {
public:
    void streamDidOutputSampleBuffer(const SampleBuffer&, SampleOutputType) override { ++frames; }
    void streamDidStopWithError(const PlatformError&) override {}
    std::atomic<int> frames = 0;
};
} // namespace

class TestX11Screens : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void screensJoinDisplays()
    {
        X11ScreenProvider provider;
        const QList<ScreenInfo> screens = provider.screens();
        QCOMPARE(screens.size(), 2);
        xcb_connection_t* c = g_session->connection();
        auto [right, e] = xcbReply(xcb_intern_atom_reply, c, xcb_intern_atom(c, 1, 5, "RIGHT"));
        QVERIFY(right);
        bool sawLeft = false, sawRight = false;
        for (const ScreenInfo& s : screens) {
            QVERIFY(s.displayID.has_value());
            QVERIFY(s.maximumFramesPerSecond > 0);
            QVERIFY(s.frame.contains(s.visibleFrame));
            if (s.localizedName == u"LEFT") {
                sawLeft = true;
                QCOMPARE(s.frame, QRectF(0, 0, 1920, 1080));
                QVERIFY(*s.displayID != right->atom);
            } else if (s.localizedName == u"RIGHT") {
                sawRight = true;
                QCOMPARE(s.frame, QRectF(1920, 0, 1920, 1080));
                QCOMPARE(*s.displayID, right->atom);
            }
        }
        QVERIFY(sawLeft && sawRight);
    }

    void permissionFollowsTheDisplay()
    {
        X11Permission granted(g_session->displayName());
        QVERIFY2(granted.preflight(), qPrintable(granted.missingReason().value_or(QString())));
        QVERIFY(granted.request());

        X11Permission nowhere(":999"_ba);
        QVERIFY(!nowhere.preflight());
        QVERIFY(!nowhere.request());
        QVERIFY(nowhere.missingReason()->contains(u":999"));

        // The help page is the README's capture-access section, and it exists.
        const QUrl url = granted.settingsUrl();
        QVERIFY(url.isLocalFile());
        QCOMPARE(url.fragment(), u"capture-access"_s);
        QFile readme(url.toLocalFile());
        QVERIFY2(readme.open(QIODevice::ReadOnly), qPrintable(url.toString()));
        QVERIFY(readme.readAll().contains("## Capture access"));

        X11UrlOpener opener;
        QVERIFY(!opener.openUrl(QUrl()));
    }

    // The backend answers content later on the main thread and makes streams
    // that really start on this display.
    void backendServesContentAndStreams()
    {
        auto client = g_session->spawnClient(u"Shown"_s);
        QVERIFY(client);
        const quint32 id = client->openWindow(u"w"_s, u"ff8800"_s, {300, 300, 400, 300});
        QVERIFY(id);

        X11CaptureBackend backend(g_session->displayName());
        std::optional<ShareableContent> content;
        bool answered = false;
        backend.getShareableContent(true, true, [&](auto c, auto error) {
            answered = true;
            QVERIFY(!error);
            content = std::move(c);
        });
        QVERIFY(!answered);
        QVERIFY(waitUntil([&] { return answered; }));
        QVERIFY(content);
        QVERIFY(std::any_of(content->windows.begin(), content->windows.end(),
                            [&](const LiveWindow& w) { return w.windowID == id; }));

        ContentFilter filter;
        filter.displayID = content->displays.first().displayID;
        StreamConfiguration configuration;
        configuration.width = 1920;
        configuration.height = 1080;
        auto delegate = std::make_shared<RecordingDelegate>();
        auto stream = backend.createStream(filter, configuration, delegate);
        QVERIFY(stream);
        QVERIFY(!stream->addStreamOutput(SampleOutputType::screen));
        std::optional<std::optional<PlatformError>> started;
        stream->startCapture([&](std::optional<PlatformError> error) { started = error; });
        QVERIFY(waitUntil([&] { return started.has_value(); }));
        QVERIFY2(!*started, qPrintable(started->value_or(PlatformError{}).localizedDescription));
        QVERIFY(waitUntil([&] { return delegate->frames > 0; }));
        bool stopped = false;
        stream->stopCapture([&](auto) { stopped = true; });
        QVERIFY(waitUntil([&] { return stopped; }));
    }
};

int main(int argc, char** argv)
{
    // The session must exist before Qt connects to it.
    X11TestSession session;
    if (!session.start()) {
        fprintf(stderr, "%s\n", qPrintable(session.errorString()));
        return 1;
    }
    g_session = &session;
    qputenv("QT_QPA_PLATFORM", "xcb");
    int result = 0;
    {
        QGuiApplication app(argc, argv);
        TestX11Screens test;
        result = QTest::qExec(&test, argc, argv);
    }
    session.stop();
    return result;
}

#include "tst_x11_screens.moc"
