// Discovery against a real X server: openbox manages windows of separate
// client processes; the snapshot must say who owns what, where, and whether
// it is visible.

#include "platform/x11/X11Monitors.h"
#include "platform/x11/X11ShareableContentSource.h"
#include "platform/x11/X11WindowInspector.h"
#include "support_x11session.h"

#include <QFileInfo>
#include <QTest>
#include <QThread>

using namespace Qt::StringLiterals;
using namespace vistrel;
using namespace vistrel::x11;
using namespace vistrel::testsupport;

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
    for (qsizetype i = 0; i < content.windows.size(); ++i)
        if (content.windows[i].windowID == id)
            return i;
    return -1;
}

// The frame holds what the client asked for, give or take the decoration.
bool frameFits(const QRectF& frame, const QRect& asked)
{
    return frame.width() >= asked.width() && frame.width() <= asked.width() + 20 &&
           frame.height() >= asked.height() && frame.height() <= asked.height() + 60 &&
           qAbs(frame.x() - asked.x()) <= 20 && qAbs(frame.y() - asked.y()) <= 60;
}

} // namespace

class TestX11Discovery : public QObject {
    Q_OBJECT

    ShareableContent snapshot(bool excludeDesktop = false, bool onScreenOnly = false)
    {
        auto result = X11ShareableContentSource::snapshot(m_session.displayName(), excludeDesktop,
                                                          onScreenOnly);
        if (auto* error = std::get_if<PlatformError>(&result)) {
            qWarning("snapshot failed: %s", qPrintable(error->localizedDescription));
            return {};
        }
        return std::get<ShareableContent>(result);
    }

    bool eventually(quint32 id, const std::function<bool(const LiveWindow*)>& condition,
                    bool excludeDesktop = false, bool onScreenOnly = false)
    {
        return waitUntil(
            [&] { return condition(findWindow(snapshot(excludeDesktop, onScreenOnly), id)); });
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(m_session.start(), qPrintable(m_session.errorString()));
        m_editor = m_session.spawnClient(u"Scribe"_s);
        m_viewer = m_session.spawnClient(u"Gazer"_s);
        QVERIFY(m_editor && m_viewer);
        m_notes = m_editor->openWindow(u"notes"_s, u"3366cc"_s, {100, 100, 640, 480},
                                       u"title=Notes — draft 2"_s);
        m_prefs = m_editor->openWindow(u"prefs"_s, u"cc6633"_s, {200, 650, 400, 300},
                                       u"type=dialog title=Preferences"_s);
        m_photo = m_viewer->openWindow(u"photo"_s, u"33cc66"_s, {2100, 150, 800, 600},
                                       u"appid=org.example.Gazer title=Lake.png"_s);
        QVERIFY2(m_notes && m_prefs && m_photo, qPrintable(m_editor->lastError()));
    }

    // Who owns which window, under which name and title, and where it is.
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
            QCOMPARE(w->owningApplication->processID, qint32(e.owner->pid()));
            QCOMPARE(w->owningApplication->applicationName, e.app);
            QCOMPARE(w->owningApplication->bundleIdentifier, e.bundle);
        }
        // One application per process.
        int scribes = 0;
        for (const LiveApplication& app : content.applications)
            scribes += app.processID == qint32(m_editor->pid());
        QCOMPARE(scribes, 1);
    }

    // Front to back, and exactly one active window, following the window manager.
    void stackingAndActiveFollowTheWindowManager()
    {
        for (const auto& [front, back] :
             {std::pair{m_notes, m_photo}, std::pair{m_photo, m_notes}}) {
            TestClient* owner = front == m_notes ? m_editor.get() : m_viewer.get();
            QVERIFY(owner->command(u"activate "_s + (front == m_notes ? u"notes"_s : u"photo"_s)));
            QVERIFY(waitUntil([&] {
                const ShareableContent c = snapshot();
                const LiveWindow* f = findWindow(c, front);
                const LiveWindow* b = findWindow(c, back);
                return f && b && f->isActive && !b->isActive &&
                       indexOf(c, front) < indexOf(c, back);
            }));
        }
    }

    void ownWindowsCarryOwnProcess()
    {
        xcb_connection_t* c = m_session.connection();
        const xcb_window_t own = xcb_generate_id(c);
        xcb_create_window(c, XCB_COPY_FROM_PARENT, own, m_session.root(), 50, 50, 120, 80, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
        xcb_map_window(c, own);
        xcb_flush(c);
        QVERIFY(eventually(own, [](const LiveWindow* w) { return w && w->isOnScreen; }));
        const ShareableContent content = snapshot();
        const LiveWindow* w = findWindow(content, own);
        QVERIFY(w && w->owningApplication);
        QCOMPARE(w->owningApplication->processID, qint32(QCoreApplication::applicationPid()));
        // Without WM_CLASS the process name stands in.
        QVERIFY(!w->owningApplication->applicationName.isEmpty());
        xcb_destroy_window(c, own);
        xcb_flush(c);
    }

    // The server knows the owner; a forged or missing _NET_WM_PID changes nothing.
    void ownerComesFromTheServer_data()
    {
        QTest::addColumn<QString>("pidProperty");
        QTest::newRow("forged") << u"pid=1"_s;
        QTest::newRow("missing") << u"pid=none"_s;
    }
    void ownerComesFromTheServer()
    {
        QFETCH(QString, pidProperty);
        const QString name = u"liar_"_s + QLatin1StringView(QTest::currentDataTag());
        const quint32 id =
            m_viewer->openWindow(name, u"888888"_s, {1300, 100, 200, 150}, pidProperty);
        QVERIFY(id);
        const ShareableContent content = snapshot();
        const LiveWindow* w = findWindow(content, id);
        QVERIFY(w && w->owningApplication);
        QCOMPARE(w->owningApplication->processID, qint32(m_viewer->pid()));
        QVERIFY(m_viewer->command(u"close "_s + name));
    }

    void minimisedWindowIsNotOnScreen()
    {
        const quint32 id = m_editor->openWindow(u"scratch"_s, u"aaaaaa"_s, {700, 200, 300, 200},
                                                u"title=Scratch"_s);
        QVERIFY(id);
        QVERIFY(m_editor->command(u"iconify scratch"_s));
        QVERIFY(eventually(id, [](const LiveWindow* w) { return w && !w->isOnScreen; }));
        QVERIFY(!findWindow(snapshot(false, true), id)); // on-screen-only drops it
        QVERIFY(findWindow(snapshot(false, true), m_notes));
        QVERIFY(m_editor->command(u"close scratch"_s));
    }

    void layersOfSpecialWindows_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<int>("layer");
        QTest::newRow("dock") << u"type=dock"_s << WindowLayer::Dock;
        QTest::newRow("desktop") << u"type=desktop"_s << WindowLayer::Desktop;
        QTest::newRow("utility") << u"type=utility"_s << WindowLayer::Floating;
        QTest::newRow("dialog") << u"type=dialog"_s << 0;
        QTest::newRow("popup menu") << u"popup"_s << WindowLayer::PopupMenu;
    }
    void layersOfSpecialWindows()
    {
        QFETCH(QString, kind);
        QFETCH(int, layer);
        const QString name = u"special"_s;
        const quint32 id =
            kind == u"popup"
                ? m_editor->openPopup(name, u"notes"_s, u"ffff00"_s, {30, 30, 150, 200})
                : m_editor->openWindow(name, u"ff00ff"_s, {900, 700, 300, 60}, kind);
        QVERIFY2(id, qPrintable(m_editor->lastError()));
        QVERIFY(eventually(id, [](const LiveWindow* w) { return w != nullptr; }));
        const ShareableContent content = snapshot();
        const LiveWindow* w = findWindow(content, id);
        QCOMPARE(w->windowLayer, layer);
        QVERIFY(w->owningApplication);
        QCOMPARE(w->owningApplication->processID, qint32(m_editor->pid()));
        // Desktop windows go when asked to; nothing else does.
        QCOMPARE(findWindow(snapshot(true), id) == nullptr, layer == WindowLayer::Desktop);
        QVERIFY(m_editor->command(u"close "_s + name));
    }

    void inspectorFindsFrameAndClient()
    {
        xcb_connection_t* c = m_session.connection();
        X11WindowInspector inspector(c, m_session.root(), true);
        const auto frame = inspector.frameAbove(m_notes);
        QVERIFY(frame);
        QVERIFY(*frame != m_notes); // openbox reparents into a decorated frame
        QCOMPARE(inspector.clientBelow(*frame), std::optional<xcb_window_t>(m_notes));
        QCOMPARE(inspector.ownerProcessID(m_notes), std::optional(qint32(m_editor->pid())));
        QVERIFY(inspector.hasWindowManager());

        // A window that is gone is an error value, not a crash.
        const quint32 gone = m_editor->openWindow(u"gone"_s, u"000000"_s, {10, 10, 50, 50});
        QVERIFY(m_editor->command(u"close gone"_s));
        const auto info = inspector.inspect(gone);
        QVERIFY(std::holds_alternative<QString>(info));
        QVERIFY(std::get<QString>(info).contains(u"no longer exists"));
        QVERIFY(!inspector.frameAbove(gone));
    }

    // Both monitors of the session, the one without an output under its name atom.
    void twoMonitorsAreTwoDisplays()
    {
        const ShareableContent content = snapshot();
        QCOMPARE(content.displays.size(), 2);
        QCOMPARE(content.displays[0].frame, QRectF(0, 0, 1920, 1080));
        QCOMPARE(content.displays[1].frame, QRectF(1920, 0, 1920, 1080));
        QCOMPARE(content.displays[1].width, 1920.0);
        QCOMPARE(content.displays[1].pixelHeight, 1080.0);
        xcb_connection_t* c = m_session.connection();
        auto [right, e] = xcbReply(xcb_intern_atom_reply, c, xcb_intern_atom(c, 1, 5, "RIGHT"));
        QVERIFY(right);
        QCOMPARE(content.displays[1].displayID, right->atom);
        QVERIFY(content.displays[0].displayID != right->atom);
        const auto monitors = readMonitors(c, xcb_setup_roots_iterator(xcb_get_setup(c)).data);
        QCOMPARE(monitors.size(), 2);
        QCOMPARE(monitors[0].name, u"LEFT"_s);
        QCOMPARE(monitors[1].name, u"RIGHT"_s);
        QVERIFY(!monitors[0].productName); // Xvfb's output has no EDID
    }

    void fetchAnswersOnTheMainThreadLater()
    {
        X11ShareableContentSource source(m_session.displayName());
        bool called = false;
        std::optional<ShareableContent> content;
        source.fetch(true, false, [&](auto c, auto error) {
            called = true;
            QCOMPARE(QThread::currentThread(), QCoreApplication::instance()->thread());
            QVERIFY(!error);
            content = std::move(c);
        });
        QVERIFY(!called);
        QVERIFY(waitUntil([&] { return called; }));
        QVERIFY(content && findWindow(*content, m_notes));
    }

    void edidNames_data()
    {
        QTest::addColumn<QByteArray>("edid");
        QTest::addColumn<QString>("name"); // empty: none
        QByteArray valid(128, '\0');
        const char header[] = {0,          char(0xff), char(0xff), char(0xff),
                               char(0xff), char(0xff), char(0xff), 0};
        memcpy(valid.data(), header, 8);
        QByteArray named = valid;
        named[72 + 3] = char(0xfc);
        memcpy(named.data() + 72 + 5, "DELL U2720Q\n ", 13);
        QTest::newRow("named") << named << u"DELL U2720Q"_s;
        QTest::newRow("no name descriptor") << valid << QString();
        QTest::newRow("short") << named.left(100) << QString();
        QByteArray corrupt = named;
        corrupt[1] = 0;
        QTest::newRow("bad header") << corrupt << QString();
        QByteArray blank = valid;
        blank[54 + 3] = char(0xfc);
        memcpy(blank.data() + 54 + 5, "\n            ", 13);
        QTest::newRow("blank name") << blank << QString();
    }
    void edidNames()
    {
        QFETCH(QByteArray, edid);
        QFETCH(QString, name);
        QCOMPARE(edidProductName(edid), name.isEmpty() ? std::nullopt : std::optional(name));
    }

    // A server that goes away is an error value with a sentence, not a crash.
    void deadServerIsAnError()
    {
        // Tests running beside this one may start a server on the number just
        // freed; then the server is not dead, and another one is taken.
        std::variant<ShareableContent, PlatformError> result;
        QByteArray name;
        for (int attempt = 0; attempt < 3; ++attempt) {
            X11TestSession doomed;
            QVERIFY2(doomed.start({{1920, 1080}, 1, false}), qPrintable(doomed.errorString()));
            name = doomed.displayName();
            QVERIFY(std::holds_alternative<ShareableContent>(
                X11ShareableContentSource::snapshot(name, false, false)));
            doomed.stop();
            result = X11ShareableContentSource::snapshot(name, false, false);
            const QString socket = u"/tmp/.X11-unix/X"_s + QString::fromUtf8(name.mid(1));
            if (std::holds_alternative<PlatformError>(result) || !QFileInfo::exists(socket))
                break;
        }
        QVERIFY(std::holds_alternative<PlatformError>(result));
        const PlatformError error = std::get<PlatformError>(result);
        QVERIFY2(error.localizedDescription.contains(QString::fromUtf8(name)),
                 qPrintable(error.localizedDescription));
        QCOMPARE(error.domain, X11ShareableContentSource::errorDomain);
    }

    // Without a window manager the root's mapped children are the windows.
    void withoutWindowManager()
    {
        X11TestSession bare;
        QVERIFY2(bare.start({{1920, 1080}, 1, false}), qPrintable(bare.errorString()));
        auto client = bare.spawnClient(u"Bare"_s);
        QVERIFY(client);
        const quint32 shown =
            client->openWindow(u"a"_s, u"ff0000"_s, {10, 20, 300, 200}, u"title=Plain"_s);
        const quint32 hidden = client->openWindow(u"b"_s, u"00ff00"_s, {400, 20, 300, 200});
        QVERIFY(shown && hidden);
        QVERIFY(client->command(u"unmap b"_s, {u"unmapped b"_s}));
        const auto result = X11ShareableContentSource::snapshot(bare.displayName(), false, false);
        QVERIFY(std::holds_alternative<ShareableContent>(result));
        const ShareableContent content = std::get<ShareableContent>(result);
        const LiveWindow* w = findWindow(content, shown);
        QVERIFY(w);
        QCOMPARE(w->frame, QRectF(10, 20, 300, 200)); // nobody moved or framed it
        QCOMPARE(w->title, std::optional(u"Plain"_s));
        QVERIFY(w->isOnScreen);
        QVERIFY(!findWindow(content, hidden));
        QCOMPARE(content.displays.size(), 1);
        client.reset();
        bare.stop();
    }

    void cleanupTestCase()
    {
        m_editor.reset();
        m_viewer.reset();
        m_session.stop();
    }

private:
    X11TestSession m_session;
    std::unique_ptr<TestClient> m_editor, m_viewer;
    quint32 m_notes = 0, m_prefs = 0, m_photo = 0;
};

QTEST_GUILESS_MAIN(TestX11Discovery)
#include "tst_x11_discovery.moc"
