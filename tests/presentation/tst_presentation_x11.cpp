// The widget window handle and the registry on a real X session (Xvfb and
// openbox started by this executable): window ids as other clients see them,
// minimise and close requests coming from the window manager, and focus.

#include "platform/x11/x11_harness.h"
#include "presentation/WidgetWindowHandle.h"
#include "presentation/WindowRegistry.h"

#include <QApplication>
#include <QProcess>
#include <QTest>
#include <QWidget>
#include <cstdio>
#include <memory>

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

} // namespace

class TestWidgetWindowHandleX11 : public QObject {
    Q_OBJECT

    x11test::X11TestSession& m_session;

public:
    explicit TestWidgetWindowHandleX11(x11test::X11TestSession& session) : m_session(session) {}

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
};

int main(int argc, char** argv)
{
    return x11test::runSuiteInSession<QApplication, TestWidgetWindowHandleX11>(argc, argv);
}

#include "tst_widget_window_handle_x11.moc"
