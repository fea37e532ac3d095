// Discovery, screens, capture access and the backend entry point against a
// real X server: openbox manages windows of separate client processes; the
// snapshot must say who owns what, where, under which title, and whether it
// is visible. Qt itself runs on the session's display (xcb platform), so
// QScreen reports what a user's desktop would.

#include "platform/x11/X11CaptureBackend.h"
#include "platform/x11/X11Monitors.h"
#include "platform/x11/X11Permission.h"
#include "platform/x11/X11ScreenProvider.h"
#include "platform/x11/X11ShareableContentSource.h"
#include "platform/x11/X11UrlOpener.h"
#include "platform/x11/X11WindowInspector.h"
#include "platform/x11/x11_harness.h"

#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QTest>
#include <QThread>

using namespace Qt::StringLiterals;
using namespace vistrel;
using namespace vistrel::x11;
using namespace vistrel::x11test;

namespace {

const LiveWindow* findWindow(const ShareableContent& content, quint32 id)
{
    for (const LiveWindow& w : content.windows)
        if (w.windowID == id)
            return &w;
    return nullptr;
}

qsizetype indexOf(const ShareableContent& content, quint32 id)
{
    const LiveWindow* w = findWindow(content, id);
    return w ? w - content.windows.constData() : -1;
}

// The frame holds what the client asked for, give or take the decoration.
bool frameFits(const QRectF& frame, const QRect& asked)
{
    return frame.width() >= asked.width() && frame.width() <= asked.width() + 20 &&
           frame.height() >= asked.height() && frame.height() <= asked.height() + 60 &&
           qAbs(frame.x() - asked.x()) <= 20 && qAbs(frame.y() - asked.y()) <= 60;
}

ShareableContent snapshot(const QByteArray& display, bool excludeDesktop = false,
                          bool onScreenOnly = false)
{
    auto result = X11ShareableContentSource::snapshot(display, excludeDesktop, onScreenOnly);
    if (auto* error = std::get_if<PlatformError>(&result)) {
        qWarning("snapshot failed: %s", qPrintable(error->localizedDescription));
        return {};
    }
    return std::get<ShareableContent>(result);
}

// One pass of a source the caller keeps, as the application asks for it.
std::variant<ShareableContent, PlatformError> fetch(X11ShareableContentSource& source)
{
    std::optional<std::variant<ShareableContent, PlatformError>> answer;
    source.fetch(false, false, [&](auto content, auto error) {
        if (content)
            answer = *content;
        else
            answer = *error;
    });
    waitUntil([&] { return answer.has_value(); });
    return answer.value_or(PlatformError{});
}

} // namespace

class TestX11Discovery : public QObject {
    Q_OBJECT

public:
    explicit TestX11Discovery(X11TestSession& session) : m_session(session) {}

private:
    ShareableContent snapshot(bool excludeDesktop = false, bool onScreenOnly = false)
    {
        return ::snapshot(m_session.displayName(), excludeDesktop, onScreenOnly);
    }

    bool eventually(quint32 id, const std::function<bool(const LiveWindow*)>& condition)
    {
        return waitUntil([&] { return condition(findWindow(snapshot(), id)); });
    }

    xcb_atom_t rightMonitor() { return m_session.atom("RIGHT"); }

    X11TestSession& m_session;
    std::unique_ptr<TestClient> m_editor, m_viewer;
    quint32 m_notes = 0, m_prefs = 0, m_photo = 0;

private Q_SLOTS:
    void initTestCase()
    {
        m_editor = m_session.spawnClient(u"Scribe"_s);
        m_viewer = m_session.spawnClient(u"Gazer"_s);
        QVERIFY(m_editor && m_viewer);
        m_notes = m_editor->window(0x3366cc, {100, 100, 640, 480}, u"title=Notes — draft 2"_s);
        m_prefs =
            m_editor->window(0xcc6633, {200, 650, 400, 300}, u"type=dialog title=Preferences"_s);
        m_photo = m_viewer->window(0x33cc66, {2100, 150, 800, 600},
                                   u"appid=org.example.Gazer title=Lake.png"_s);
        QVERIFY2(m_notes && m_prefs && m_photo, qPrintable(m_editor->lastError()));
    }

    // Who owns which window, under which name and title, and where it is.
    // The titles are in _NET_WM_NAME and WM_NAME alike, as UTF-8.
    void listsClientWindows()
    {
        QVERIFY(eventually(m_photo, [](const LiveWindow* w) { return w && w->isOnScreen; }));
        const ShareableContent content = snapshot();
        struct Expected {
            quint32 id;
            const TestClient* owner;
            QString app, title;
            QRect asked;
            std::optional<QString> bundle;
        };
        const QList<Expected> expected{
            {m_notes, m_editor.get(), u"Scribe"_s, u"Notes — draft 2"_s, {100, 100, 640, 480}, {}},
            {m_prefs, m_editor.get(), u"Scribe"_s, u"Preferences"_s, {200, 650, 400, 300}, {}},
            {m_photo,
             m_viewer.get(),
             u"Gazer"_s,
             u"Lake.png"_s,
             {2100, 150, 800, 600},
             u"org.example.Gazer"_s},
        };
        for (const Expected& e : expected) {
            const LiveWindow* w = findWindow(content, e.id);
            QVERIFY2(w, qPrintable(e.title));
            QCOMPARE(w->title, std::optional(e.title));
            QCOMPARE(w->windowLayer, 0);
            QVERIFY(w->isOnScreen);
            QVERIFY2(frameFits(w->frame, e.asked), qPrintable(u"%1: %2,%3 %4x%5"_s.arg(e.title)
                                                                  .arg(w->frame.x())
                                                                  .arg(w->frame.y())
                                                                  .arg(w->frame.width())
                                                                  .arg(w->frame.height())));
            QVERIFY(w->owningApplication);
            QCOMPARE(w->owningApplication->processID, e.owner->pid());
            QCOMPARE(w->owningApplication->applicationName, e.app);
            QCOMPARE(w->owningApplication->bundleIdentifier, e.bundle);
        }
        // One application per process.
        QCOMPARE(std::count_if(
                     content.applications.begin(), content.applications.end(),
                     [&](const LiveApplication& app) { return app.processID == m_editor->pid(); }),
                 1);
    }

    // WM_NAME alone, in each encoding clients write it in (compound text is
    // decoded by table in tst_x11_decoding); or a _NET_WM_NAME that is not UTF-8.
    void titlesInEveryEncoding_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("title");
        QTest::newRow("COMPOUND_TEXT, UTF-8 segment")
            << u"COMPOUND_TEXT"_s << "Report \x1b%G"_ba + u"Отчёт"_s.toUtf8() + "\x1b%@ \xe9"_ba
            << u"Report Отчёт é"_s;
        QTest::newRow("STRING") << u"STRING"_s << "Caf\xe9"_ba << u"Café"_s;
        QTest::newRow("UTF8_STRING") << u"UTF8_STRING"_s << u"Café ☕"_s.toUtf8() << u"Café ☕"_s;
        QTest::newRow("_NET_WM_NAME as STRING") << u"net:STRING"_s << "Caf\xe9"_ba << u"Café"_s;
    }

    void titlesInEveryEncoding()
    {
        QFETCH(QString, type);
        QFETCH(QByteArray, bytes);
        QFETCH(QString, title);
        const quint32 id = m_editor->window(0x777777, {1300, 400, 200, 150});
        QVERIFY(m_editor->on(u"name"_s, id, type + u' ' + QString::fromLatin1(bytes.toHex())));
        std::optional<QString> seen;
        QVERIFY2(eventually(id,
                            [&](const LiveWindow* w) {
                                seen = w ? w->title : std::nullopt;
                                return seen == title;
                            }),
                 qPrintable(seen.value_or(u"(none)"_s)));
        QVERIFY(m_editor->on(u"close"_s, id));
    }

    // Front to back, and exactly one active window, following the window manager.
    void stackingAndActiveFollowTheWindowManager()
    {
        for (const auto& [front, back] :
             {std::pair{m_notes, m_photo}, std::pair{m_photo, m_notes}}) {
            QVERIFY((front == m_notes ? m_editor : m_viewer)->on(u"activate"_s, front));
            QVERIFY(waitUntil([&] {
                const ShareableContent c = snapshot();
                const LiveWindow* f = findWindow(c, front);
                const LiveWindow* b = findWindow(c, back);
                return f && b && f->isActive && !b->isActive &&
                       indexOf(c, front) < indexOf(c, back);
            }));
        }
    }

    // The server knows the owner; a forged or missing _NET_WM_PID changes
    // nothing, and a process without WM_CLASS is named after its command.
    void ownerComesFromTheServer_data()
    {
        QTest::addColumn<QString>("options");
        QTest::addColumn<QString>("wmClass");
        QTest::newRow("forged pid") << u"pid=1"_s << u"Gazer"_s;
        QTest::newRow("no pid") << u"pid=none"_s << u"Gazer"_s;
        QTest::newRow("no class") << QString() << QString();
    }
    void ownerComesFromTheServer()
    {
        QFETCH(QString, options);
        QFETCH(QString, wmClass);
        auto classless = wmClass.isEmpty() ? m_session.spawnClient({}) : nullptr;
        TestClient& client = classless ? *classless : *m_viewer;
        const quint32 id = client.window(0x888888, {1300, 100, 200, 150}, options);
        QVERIFY(id);
        // Listed once the window manager has taken the new window in.
        std::optional<LiveApplication> owner;
        QVERIFY(eventually(id, [&](const LiveWindow* w) {
            owner = w ? w->owningApplication : std::nullopt;
            return owner.has_value();
        }));
        QCOMPARE(owner->processID, client.pid());
        QCOMPARE(owner->applicationName,
                 classless ? u"vistrel-testcli"_s : wmClass); // as /proc names it
        QVERIFY(client.on(u"close"_s, id));
    }

    // Each kind of window on its layer, with its owner; desktop windows go
    // when asked to, and a minimised window is listed but not on screen.
    void layersOfSpecialWindows_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<int>("layer");
        QTest::newRow("dock") << u"type=dock"_s << WindowLayer::Dock;
        QTest::newRow("desktop") << u"type=desktop"_s << WindowLayer::Desktop;
        QTest::newRow("utility") << u"type=utility"_s << WindowLayer::Floating;
        QTest::newRow("dialog") << u"type=dialog"_s << 0;
        QTest::newRow("popup menu") << u"popup"_s << WindowLayer::PopupMenu;
        QTest::newRow("minimised") << u"iconify"_s << 0;
    }
    void layersOfSpecialWindows()
    {
        QFETCH(QString, kind);
        QFETCH(int, layer);
        const bool minimised = kind == u"iconify";
        const quint32 id = kind == u"popup" ? m_editor->popup(0xffff00, {130, 130, 150, 200})
                                            : m_editor->window(0xff00ff, {900, 700, 300, 60},
                                                               minimised ? QString() : kind);
        QVERIFY2(id, qPrintable(m_editor->lastError()));
        if (minimised)
            QVERIFY(m_editor->on(u"iconify"_s, id));
        QVERIFY(eventually(id, [&](const LiveWindow* w) {
            return w && w->owningApplication && w->isOnScreen != minimised;
        }));
        const ShareableContent content = snapshot();
        const LiveWindow* w = findWindow(content, id);
        QVERIFY(w && w->owningApplication);
        QCOMPARE(w->windowLayer, layer);
        QCOMPARE(w->owningApplication->processID, m_editor->pid());
        // Desktop windows go when asked to; nothing else does.
        QCOMPARE(findWindow(snapshot(true), id) == nullptr, layer == WindowLayer::Desktop);
        QCOMPARE(findWindow(snapshot(false, true), id) == nullptr, minimised);
        QVERIFY(m_editor->on(u"close"_s, id));
    }

    // One source kept across passes, as the application keeps it: what
    // changes between two passes shows in the next one exactly as a fresh
    // look sees it, and a pass over a desktop where nothing changed reads
    // nothing from the server.
    void keptSourceFollowsChanges()
    {
        X11ShareableContentSource source(m_session.displayName());
        const quint32 renamed =
            m_editor->window(0x445566, {1000, 300, 200, 150}, u"title=Before"_s);
        const quint32 closed = m_editor->window(0x556677, {1250, 300, 200, 150});
        const quint32 unmapped = m_viewer->window(0x667788, {1000, 520, 200, 150});
        const quint32 moved = m_viewer->window(0x778899, {1250, 520, 200, 150});
        QVERIFY(renamed && closed && unmapped && moved);
        QVERIFY(waitUntil([&] {
            const auto kept = fetch(source);
            const auto* content = std::get_if<ShareableContent>(&kept);
            return content && findWindow(*content, renamed) && findWindow(*content, closed) &&
                   findWindow(*content, unmapped) && findWindow(*content, moved);
        }));
        QVERIFY(source.windowsReadByLastPass() > 0);

        QVERIFY(m_editor->on(u"title"_s, renamed, u"After"_s));
        const quint32 added = m_editor->window(0x8899aa, {1500, 300, 200, 150}, u"title=Added"_s);
        QVERIFY(added && m_editor->on(u"close"_s, closed));
        QVERIFY(m_viewer->on(u"unmap"_s, unmapped));
        QVERIFY(m_viewer->on(u"move"_s, moved, u"1300 700"_s));
        // A fresh snapshot says when the window manager has done its part;
        // the kept source must then agree with it in every detail.
        ShareableContent fresh;
        std::variant<ShareableContent, PlatformError> kept;
        QVERIFY(waitUntil([&] {
            fresh = snapshot();
            const LiveWindow* title = findWindow(fresh, renamed);
            const LiveWindow* move = findWindow(fresh, moved);
            if (!title || title->title != u"After"_s || !findWindow(fresh, added) ||
                findWindow(fresh, closed) || findWindow(fresh, unmapped) || !move ||
                !frameFits(move->frame, {1300, 700, 200, 150}))
                return false;
            kept = fetch(source);
            return std::get_if<ShareableContent>(&kept) &&
                   std::get<ShareableContent>(kept) == fresh;
        }));

        // Nothing changes any more: the kept source reads nothing.
        QVERIFY(waitUntil([&] {
            kept = fetch(source);
            return std::holds_alternative<ShareableContent>(kept) &&
                   source.windowsReadByLastPass() == 0;
        }));
        QCOMPARE(std::get<ShareableContent>(kept), snapshot());

        for (const quint32 id : {renamed, added})
            QVERIFY(m_editor->on(u"close"_s, id));
        for (const quint32 id : {unmapped, moved})
            QVERIFY(m_viewer->on(u"close"_s, id));
    }

    void inspectorFindsFrameAndClient()
    {
        X11WindowInspector inspector(m_session.connection(), m_session.root(), true);
        const auto frame = inspector.frameAbove(m_notes);
        QVERIFY(frame);
        QVERIFY(*frame != m_notes); // openbox reparents into a decorated frame
        QCOMPARE(inspector.clientBelow(*frame), std::optional<xcb_window_t>(m_notes));
        QCOMPARE(inspector.ownerProcessID(m_notes), std::optional(m_editor->pid()));
        QVERIFY(inspector.hasWindowManager());

        // A window that is gone is an error value, not a crash.
        const quint32 gone = m_editor->window(0, {10, 10, 50, 50});
        QVERIFY(m_editor->on(u"close"_s, gone));
        const auto info = inspector.inspect(gone);
        QVERIFY(std::holds_alternative<QString>(info));
        QVERIFY(std::get<QString>(info).contains(u"no longer exists"));
        QVERIFY(!inspector.frameAbove(gone));
    }

    // Both monitors are displays and screens; the one without an output is
    // known by its name atom.
    void monitorsAreDisplaysAndScreens()
    {
        const ShareableContent content = snapshot();
        QCOMPARE(content.displays.size(), 2);
        QCOMPARE(content.displays[0].frame, QRectF(0, 0, 1920, 1080));
        QCOMPARE(content.displays[1].frame, QRectF(1920, 0, 1920, 1080));
        QCOMPARE(content.displays[1].width, 1920.0);
        QCOMPARE(content.displays[1].pixelHeight, 1080.0);
        QCOMPARE(content.displays[1].displayID, rightMonitor());
        QVERIFY(content.displays[0].displayID != rightMonitor());
        xcb_connection_t* c = m_session.connection();
        const auto monitors = readMonitors(c, xcb_setup_roots_iterator(xcb_get_setup(c)).data);
        QCOMPARE(monitors.size(), 2);
        QCOMPARE(monitors[0].name, u"LEFT"_s);
        QCOMPARE(monitors[1].name, u"RIGHT"_s);
        QVERIFY(!monitors[0].productName); // Xvfb's output has no EDID

        const QList<ScreenInfo> screens = X11ScreenProvider().screens();
        QCOMPARE(screens.size(), 2);
        for (const ScreenInfo& s : screens) {
            QVERIFY(s.displayID.has_value());
            QVERIFY(s.maximumFramesPerSecond > 0);
            QVERIFY(s.frame.contains(s.visibleFrame));
            const bool right = s.localizedName == u"RIGHT";
            QVERIFY2(right || s.localizedName == u"LEFT", qPrintable(s.localizedName));
            // Qt counts in units of two pixels here (see main); the capture
            // relies on the scale to reach the display's pixels.
            QCOMPARE(s.displayScale, 2.0);
            QCOMPARE(s.frame.size() * s.displayScale, QSizeF(1920, 1080));
            QCOMPARE(s.frame.left() == 0, !right);
            QCOMPARE(*s.displayID == rightMonitor(), right);
        }
    }

    // Capture access follows the display; the backend answers content later
    // on the main thread and makes streams that really start on this display.
    void backendServesThisDisplay()
    {
        X11Permission granted(m_session.displayName());
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
        QVERIFY(!X11UrlOpener().openUrl(QUrl()));

        X11CaptureBackend backend(m_session.displayName());
        std::optional<ShareableContent> content;
        bool answered = false;
        backend.getShareableContent(true, true, [&](auto c, auto error) {
            answered = true;
            QCOMPARE(QThread::currentThread(), QCoreApplication::instance()->thread());
            QVERIFY(!error);
            content = std::move(c);
        });
        QVERIFY(!answered);
        QVERIFY(waitUntil([&] { return answered; }));
        QVERIFY(content && findWindow(*content, m_notes));

        ContentFilter filter;
        filter.displayID = content->displays.first().displayID;
        StreamConfiguration configuration;
        configuration.width = 1920;
        configuration.height = 1080;
        auto sink = std::make_shared<FrameSink>();
        auto stream = backend.createStream(filter, configuration, sink);
        QVERIFY(stream && !startStream(*stream));
        QVERIFY(waitUntil([&] { return sink->frames() > 0; }));
    }

    // Without a window manager the root's mapped children are the windows;
    // a server that goes away is an error value with a sentence, not a crash,
    // and a stream capturing it stops with an error.
    void bareServerThenDeadServer()
    {
        std::variant<ShareableContent, PlatformError> result;
        QByteArray name;
        auto sink = std::make_shared<FrameSink>();
        std::unique_ptr<X11CaptureStream> stream;
        // Tests running beside this one may start a server on the number just
        // freed; then the server is not dead, and another one is taken.
        for (int attempt = 0; attempt < 3; ++attempt) {
            X11TestSession bare;
            QVERIFY2(bare.start({.windowManager = false}), qPrintable(bare.errorString()));
            name = bare.displayName();
            if (attempt == 0) {
                auto client = bare.spawnClient(u"Bare"_s);
                QVERIFY(client);
                const quint32 shown =
                    client->window(0xff0000, {10, 20, 300, 200}, u"title=Plain"_s);
                const quint32 hidden = client->window(0x00ff00, {400, 20, 300, 200});
                QVERIFY(shown && hidden && client->on(u"unmap"_s, hidden));
                const ShareableContent content = ::snapshot(name);
                const LiveWindow* w = findWindow(content, shown);
                QVERIFY(w);
                QCOMPARE(w->frame, QRectF(10, 20, 300, 200)); // nobody moved or framed it
                QCOMPARE(w->title, std::optional(u"Plain"_s));
                QVERIFY(w->isOnScreen);
                QVERIFY(!findWindow(content, hidden));
                QCOMPARE(content.displays.size(), 1);
                stream = std::make_unique<X11CaptureStream>(name, ContentFilter{},
                                                            StreamConfiguration{}, sink);
                QVERIFY(!startStream(*stream));
                QVERIFY(waitUntil([&] { return sink->frames() > 0; }));
            }
            // A kept source loses its connection with the server, then
            // tries to connect again on the next pass.
            X11ShareableContentSource kept(name);
            QVERIFY(std::holds_alternative<ShareableContent>(fetch(kept)));
            bare.stop();
            if (attempt == 0)
                QVERIFY(waitUntil([&] { return !sink->stopError().isEmpty(); }));
            const auto lost = fetch(kept);
            QVERIFY(std::holds_alternative<PlatformError>(lost));
            QCOMPARE(std::get<PlatformError>(lost).code, 3);
            const auto again = fetch(kept);
            result = X11ShareableContentSource::snapshot(name, false, false);
            const QString socket = u"/tmp/.X11-unix/X"_s + QString::fromUtf8(name.mid(1));
            if (!QFileInfo::exists(socket)) {
                QVERIFY(std::holds_alternative<PlatformError>(again));
                QCOMPARE(std::get<PlatformError>(again).code, 1);
            }
            if (std::holds_alternative<PlatformError>(result) || !QFileInfo::exists(socket))
                break;
        }
        QVERIFY(std::holds_alternative<PlatformError>(result));
        const PlatformError error = std::get<PlatformError>(result);
        QVERIFY2(error.localizedDescription.contains(QString::fromUtf8(name)),
                 qPrintable(error.localizedDescription));
        QCOMPARE(error.domain, X11ShareableContentSource::errorDomain);
    }
};

int main(int argc, char** argv)
{
    // As on a high-density desktop, where Qt derives a scale from Xft.dpi.
    qputenv("QT_SCALE_FACTOR", "2");
    return runSuiteInSession<QGuiApplication, TestX11Discovery>(argc, argv, {.monitors = 2});
}

#include "tst_x11_discovery.moc"
