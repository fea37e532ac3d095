#include "presentation/WidgetWindowHandle.h"
#include "presentation/WindowRegistry.h"

#include <QApplication>
#include <QSignalSpy>
#include <QTest>
#include <QWidget>
#include <memory>

using namespace Qt::StringLiterals;
using namespace vistrel;
using Kind = ManagedWindowKind;
using Presentation = OutputWindowPresentation;

namespace QTest {
template<> char* toString(const OutputWindowPresentation& presentation)
{
    return qstrdup(qPrintable(caseName(presentation)));
}
template<> char* toString(const ManagedWindowKind& kind)
{
    return qstrdup(qPrintable(rawValue(kind)));
}
} // namespace QTest

namespace {

// A window made of plain data, to drive the registry's event handling exactly.
class FakeWindow final : public ManagedWindow {
    Q_OBJECT
public:
    explicit FakeWindow(quint32 id) : number(id) {}

    quint32 number;
    bool visible = true;
    bool minimized = false;
    QStringList calls;

    quint32 windowNumber() const override { return number; }
    bool isVisible() const override { return visible; }
    bool isMinimized() const override { return minimized; }
    void deminiaturize() override { record(u"deminiaturize"_s, minimized, false); }
    void makeKeyAndOrderFront() override { record(u"makeKeyAndOrderFront"_s, visible, true); }
    void orderFrontRegardless() override { record(u"orderFrontRegardless"_s, visible, true); }
    void orderOut() override { record(u"orderOut"_s, visible, false); }
    void activateApplication() override { calls << u"activateApplication"_s; }

    // How many slots listen to each event the registry cares about.
    int listeners() const
    {
        return receivers(SIGNAL(willClose())) + receivers(SIGNAL(didMinimize())) +
               receivers(SIGNAL(didDeminimize()));
    }

private:
    // Notes the call and the state it leaves.
    void record(const QString& call, bool& state, bool value)
    {
        calls << call;
        state = value;
    }
};

// Lets queued notifications run.
void settle()
{
    for (int i = 0; i < 3; ++i)
        QCoreApplication::processEvents();
}

// A shown widget, registered as the kind when there is a registry.
std::unique_ptr<QWidget> shownWidget(WindowRegistry* registry = nullptr, Kind kind = Kind::output)
{
    auto widget = std::make_unique<QWidget>();
    widget->resize(200, 120);
    widget->show();
    if (registry)
        registry->registerWindow(WidgetWindowHandle::forWidget(widget.get()), kind);
    return widget;
}

} // namespace

class TestWindowRegistry : public QObject {
    Q_OBJECT

private Q_SLOTS:

    void kindRawValues_data()
    {
        QTest::addColumn<QString>("raw");
        QTest::addColumn<std::optional<Kind>>("kind");
        QTest::addColumn<QString>("autosaveName");

        QTest::newRow("control") << u"simpleControl"_s << std::optional(Kind::simpleControl)
                                 << u"Vistrel.simpleControl.frame"_s;
        QTest::newRow("output") << u"output"_s << std::optional(Kind::output)
                                << u"Vistrel.output.frame"_s;
        QTest::newRow("preview") << u"preview"_s << std::optional(Kind::preview)
                                 << u"Vistrel.preview.frame"_s;
        QTest::newRow("wrong case") << u"Output"_s << std::optional<Kind>() << QString();
        QTest::newRow("empty") << QString() << std::optional<Kind>() << QString();
    }

    void kindRawValues()
    {
        QFETCH(QString, raw);
        QFETCH(std::optional<Kind>, kind);
        QFETCH(QString, autosaveName);

        QCOMPARE(managedWindowKindFromRaw(raw), kind);
        if (kind) {
            QCOMPARE(rawValue(*kind), raw);
            QCOMPARE(WindowRegistry::frameAutosaveName(*kind), autosaveName);
        }
    }

    void eachKindHasOneWindow()
    {
        WindowRegistry registry;
        FakeWindow first(10);
        FakeWindow second(20);
        QSignalSpy numbers(&registry, &WindowRegistry::windowNumbersChanged);

        // The same window twice keeps one record; both calls publish, also
        // the one that changed nothing.
        registry.registerWindow(&first, Kind::simpleControl);
        registry.registerWindow(&first, Kind::simpleControl);
        QCOMPARE(first.listeners(), 3);
        QCOMPARE(registry.windowNumbers(), QSet<quint32>{10});
        QCOMPARE(numbers.count(), 2);

        // Another window for the kind drops the first one's connections.
        registry.registerWindow(&second, Kind::simpleControl);
        QCOMPARE(first.listeners(), 0);
        QCOMPARE(second.listeners(), 3);
        QCOMPARE(registry.windowNumbers(), QSet<quint32>{20});

        // Events of the old window no longer reach the registry.
        second.minimized = true;
        Q_EMIT first.didMinimize();
        Q_EMIT first.willClose();
        settle();
        QVERIFY(registry.hasWindow(Kind::simpleControl));
        QCOMPARE(registry.windowNumbers(), QSet<quint32>{20});
        QVERIFY(registry.visibleKinds().contains(Kind::simpleControl));

        // Its own close forgets the kind, published once.
        numbers.clear();
        Q_EMIT second.willClose();
        settle();
        QVERIFY(!registry.hasWindow(Kind::simpleControl));
        QCOMPARE(registry.windowNumbers(), QSet<quint32>{});
        QCOMPARE(numbers.count(), 1);
        QCOMPARE(second.listeners(), 0);

        // A close of the first window still queued when the second came.
        registry.registerWindow(&first, Kind::output);
        Q_EMIT first.willClose();
        registry.registerWindow(&second, Kind::output);
        settle();
        QVERIFY(registry.hasWindow(Kind::output));
        QCOMPARE(registry.windowNumbers(), QSet<quint32>{20});
    }

    void freedWindowDisappearsAtNextRefresh()
    {
        WindowRegistry registry;
        auto control = shownWidget(&registry, Kind::simpleControl);
        auto output = shownWidget(&registry, Kind::output);
        const auto outputNumber = quint32(output->winId());
        // The numbers are the real window ids.
        const QSet<quint32> both{quint32(control->winId()), outputNumber};
        QCOMPARE(both.size(), 2);
        QCOMPARE(registry.windowNumbers(), both);
        QCOMPARE(registry.ownWindowNumbers(), both);
        QCOMPARE(registry.property("windowNumbers").value<QSet<quint32>>(), both);

        control.reset(); // freed without a close
        QVERIFY(!registry.hasWindow(Kind::simpleControl));

        // Any refresh skips it, here one caused by another registration ...
        auto other = shownWidget(&registry, Kind::preview);
        QCOMPARE(registry.windowNumbers(), (QSet<quint32>{outputNumber, quint32(other->winId())}));
        QCOMPARE(registry.visibleKinds(), (QSet<Kind>{Kind::output, Kind::preview}));

        // ... and freeing a window schedules one by itself.
        output.reset();
        settle();
        QCOMPARE(registry.windowNumbers(), QSet<quint32>{quint32(other->winId())});
        QCOMPARE(registry.visibleKinds(), QSet<Kind>{Kind::preview});

        // Operations on a freed window are silent no-ops.
        registry.show(Kind::output, true);
        registry.hide(Kind::output);
        QCOMPARE(registry.outputPresentation(), Presentation::docked);
    }

    void notificationsActOnALaterTurnWhileTheRegistryLives()
    {
        FakeWindow window(7);
        auto registry = std::make_unique<WindowRegistry>();
        registry->registerWindow(&window, Kind::simpleControl);
        QSignalSpy visible(registry.get(), &WindowRegistry::visibleKindsChanged);

        window.minimized = true;
        Q_EMIT window.didMinimize();
        QVERIFY(registry->visibleKinds().contains(Kind::simpleControl));
        QCOMPARE(visible.count(), 0);
        Q_EMIT window.willClose();
        QVERIFY(registry->hasWindow(Kind::simpleControl));
        settle();
        QVERIFY(!registry->visibleKinds().contains(Kind::simpleControl));
        QVERIFY(!registry->hasWindow(Kind::simpleControl));

        // Still queued when the registry goes: must not touch the freed
        // registry (checked by the sanitizer).
        registry->registerWindow(&window, Kind::output);
        Q_EMIT window.willClose();
        Q_EMIT window.didMinimize();
        registry.reset();
        settle();
        QCOMPARE(window.listeners(), 0);
    }

    // Hiding docks the output window, which stays mapped; any other window
    // is ordered out. Showing the control window leaves the output alone.
    void hideDocksTheOutputAndOrdersOutTheRest()
    {
        WindowRegistry registry;
        // Without windows every call is a no-op.
        QSignalSpy visible(&registry, &WindowRegistry::visibleKindsChanged);
        registry.show(Kind::output, true);
        registry.show(Kind::preview, true);
        registry.hide(Kind::simpleControl);
        registry.unregister(Kind::output);
        QCOMPARE(registry.outputPresentation(), Presentation::docked);
        QCOMPARE(visible.count(), 0);
        QVERIFY(!registry.hasWindow(Kind::preview));
        QVERIFY(!registry.isVisible(Kind::output));

        auto output = shownWidget(&registry, Kind::output);
        auto control = shownWidget(&registry, Kind::simpleControl);
        QCOMPARE(registry.outputPresentation(), Presentation::docked);
        QVERIFY(!registry.isVisible(Kind::output)); // the system starts docked
        QVERIFY(registry.isVisible(Kind::simpleControl));

        registry.show(Kind::output, false);
        QCOMPARE(registry.outputPresentation(), Presentation::centered);
        QVERIFY(registry.isVisible(Kind::output));

        QSignalSpy presentation(&registry, &WindowRegistry::outputPresentationChanged);
        registry.hide(Kind::output);
        settle();
        QVERIFY(output->isVisible());
        QCOMPARE(registry.outputPresentation(), Presentation::docked);
        QCOMPARE(presentation.count(), 1);
        QVERIFY(!registry.isVisible(Kind::output));
        QVERIFY(registry.visibleKinds().contains(Kind::output));

        registry.hide(Kind::simpleControl);
        QVERIFY(!control->isVisible());
        QVERIFY(!registry.isVisible(Kind::simpleControl));
        QVERIFY(registry.hasWindow(Kind::simpleControl));
        registry.show(Kind::simpleControl, true);
        QVERIFY(control->isVisible());
        QVERIFY(registry.isVisible(Kind::simpleControl));
        QCOMPARE(registry.outputPresentation(), Presentation::docked);
        QCOMPARE(presentation.count(), 1);
    }

    void showOutput_data()
    {
        QTest::addColumn<bool>("activate");
        QTest::newRow("without activation") << false;
        QTest::newRow("with activation") << true;
    }

    void showOutput()
    {
        QFETCH(bool, activate);

        // The order of operations on the port.
        {
            WindowRegistry registry;
            FakeWindow window(5);
            window.minimized = true;
            registry.registerWindow(&window, Kind::output);
            registry.show(Kind::output, activate);
            QStringList expected{u"deminiaturize"_s, u"makeKeyAndOrderFront"_s,
                                 u"orderFrontRegardless"_s};
            if (activate)
                expected.insert(1, u"activateApplication"_s);
            QCOMPARE(window.calls, expected);
            QCOMPARE(registry.outputPresentation(), Presentation::centered);
            QVERIFY(registry.visibleKinds().contains(Kind::output));
        }

        // A real minimised widget comes back. (The offscreen platform activates
        // every window it shows, so focus cannot be checked here.)
        WindowRegistry registry;
        auto widget = shownWidget();
        widget->setWindowState(Qt::WindowMinimized);
        QVERIFY(widget->isMinimized());
        registry.registerWindow(WidgetWindowHandle::forWidget(widget.get()), Kind::output);
        QVERIFY(!registry.visibleKinds().contains(Kind::output));

        registry.show(Kind::output, activate);
        QVERIFY(!widget->isMinimized());
        QVERIFY(widget->isVisible());
        QCOMPARE(registry.outputPresentation(), Presentation::centered);
        QVERIFY(registry.isVisible(Kind::output));
    }

    void minimiseAndRestoreUpdateVisibleKinds()
    {
        WindowRegistry registry;
        auto widget = shownWidget(&registry, Kind::simpleControl);
        QCOMPARE(registry.visibleKinds(), QSet<Kind>{Kind::simpleControl});

        widget->setWindowState(widget->windowState() | Qt::WindowMinimized);
        settle();
        QCOMPARE(registry.visibleKinds(), QSet<Kind>{});
        QVERIFY(!registry.isVisible(Kind::simpleControl));

        widget->setWindowState(widget->windowState() & ~Qt::WindowMinimized);
        settle();
        QCOMPARE(registry.visibleKinds(), QSet<Kind>{Kind::simpleControl});

        // A window hidden behind the registry's back is noticed as well.
        widget->hide();
        settle();
        QCOMPARE(registry.visibleKinds(), QSet<Kind>{});
    }

    // The guard's refusal and consent on the window manager's close request
    // are checked on a real X session; here what it cannot show: a plain hide
    // is no close, and a granted close of a hidden window is still announced,
    // once.
    void closeGuardDecidesWidgetClose()
    {
        WindowRegistry registry;
        auto widget = shownWidget(&registry, Kind::simpleControl);
        auto* handle = WidgetWindowHandle::forWidget(widget.get());
        QSignalSpy closing(handle, &ManagedWindow::willClose);
        registry.hide(Kind::simpleControl);
        settle();
        QCOMPARE(closing.count(), 0);
        QVERIFY(registry.hasWindow(Kind::simpleControl));

        handle->setCloseGuard([] { return true; });
        QVERIFY(widget->close());
        settle();
        QCOMPARE(closing.count(), 1);
        QVERIFY(!registry.hasWindow(Kind::simpleControl));
    }

    void handleIsSharedAndDiesWithWidget()
    {
        auto widget = std::make_unique<QWidget>();
        auto* child = new QWidget(widget.get());
        QPointer<WidgetWindowHandle> handle = WidgetWindowHandle::forWidget(widget.get());
        QCOMPARE(WidgetWindowHandle::forWidget(child), handle.data());
        QCOMPARE(handle->widget(), widget.get());
        QCOMPARE(WidgetWindowHandle::forWidget(nullptr), nullptr);
        widget.reset();
        QVERIFY(handle.isNull());
    }
};

QTEST_MAIN(TestWindowRegistry)
#include "tst_window_registry.moc"
