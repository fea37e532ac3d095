#include "presentation/WidgetWindowHandle.h"
#include "presentation/WindowRegistry.h"

#include <QApplication>
#include <QSignalSpy>
#include <QTest>
#include <QWidget>
#include <memory>

using namespace Qt::StringLiterals;
using namespace vistrel;

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
    int activations = 0;
    QStringList calls;

    quint32 windowNumber() const override { return number; }
    bool isVisible() const override { return visible; }
    bool isMinimized() const override { return minimized; }
    void deminiaturize() override
    {
        calls << u"deminiaturize"_s;
        minimized = false;
    }
    void makeKeyAndOrderFront() override
    {
        calls << u"makeKeyAndOrderFront"_s;
        visible = true;
    }
    void orderFrontRegardless() override
    {
        calls << u"orderFrontRegardless"_s;
        visible = true;
    }
    void orderOut() override
    {
        calls << u"orderOut"_s;
        visible = false;
    }
    void activateApplication() override
    {
        calls << u"activateApplication"_s;
        ++activations;
    }

    // How many slots listen to each event the registry cares about.
    int listeners() const
    {
        return receivers(SIGNAL(willClose())) + receivers(SIGNAL(didMinimize())) +
               receivers(SIGNAL(didDeminimize()));
    }
};

// Lets queued notifications run.
void settle()
{
    for (int i = 0; i < 3; ++i)
        QCoreApplication::processEvents();
}

std::unique_ptr<QWidget> shownWidget()
{
    auto widget = std::make_unique<QWidget>();
    widget->resize(200, 120);
    widget->show();
    return widget;
}

} // namespace

class TestWindowRegistry : public QObject {
    Q_OBJECT

private Q_SLOTS:

    void kindRawValues_data()
    {
        QTest::addColumn<QString>("raw");
        QTest::addColumn<std::optional<ManagedWindowKind>>("kind");
        QTest::addColumn<QString>("autosaveName");

        QTest::newRow("control") << u"simpleControl"_s
                                 << std::optional(ManagedWindowKind::simpleControl)
                                 << u"Vistrel.simpleControl.frame"_s;
        QTest::newRow("output") << u"output"_s << std::optional(ManagedWindowKind::output)
                                << u"Vistrel.output.frame"_s;
        QTest::newRow("preview") << u"preview"_s << std::optional(ManagedWindowKind::preview)
                                 << u"Vistrel.preview.frame"_s;
        QTest::newRow("wrong case")
            << u"Output"_s << std::optional<ManagedWindowKind>() << QString();
        QTest::newRow("empty") << QString() << std::optional<ManagedWindowKind>() << QString();
    }

    void kindRawValues()
    {
        QFETCH(QString, raw);
        QFETCH(std::optional<ManagedWindowKind>, kind);
        QFETCH(QString, autosaveName);

        QCOMPARE(managedWindowKindFromRaw(raw), kind);
        if (kind) {
            QCOMPARE(rawValue(*kind), raw);
            QCOMPARE(WindowRegistry::frameAutosaveName(*kind), autosaveName);
        }
    }

    void registeringSameWindowTwiceKeepsOneRecord()
    {
        WindowRegistry registry;
        FakeWindow window(41);
        QSignalSpy numbers(&registry, &WindowRegistry::windowNumbersChanged);

        registry.registerWindow(&window, ManagedWindowKind::simpleControl);
        registry.registerWindow(&window, ManagedWindowKind::simpleControl);

        QCOMPARE(window.listeners(), 3);
        QCOMPARE(registry.windowNumbers(), QSet<quint32>{41});
        // Both calls publish, also the one that changed nothing.
        QCOMPARE(numbers.count(), 2);

        numbers.clear();
        Q_EMIT window.willClose();
        settle();
        QVERIFY(!registry.hasWindow(ManagedWindowKind::simpleControl));
        QCOMPARE(registry.windowNumbers(), QSet<quint32>{});
        QCOMPARE(numbers.count(), 1);
        QCOMPARE(window.listeners(), 0);
    }

    void secondWindowForKindDropsFirstConnections()
    {
        WindowRegistry registry;
        FakeWindow first(10);
        FakeWindow second(20);
        registry.registerWindow(&first, ManagedWindowKind::simpleControl);
        registry.registerWindow(&second, ManagedWindowKind::simpleControl);

        QCOMPARE(first.listeners(), 0);
        QCOMPARE(second.listeners(), 3);
        QCOMPARE(registry.windowNumbers(), QSet<quint32>{20});

        // Events of the old window no longer reach the registry.
        second.minimized = true;
        Q_EMIT first.didMinimize();
        Q_EMIT first.willClose();
        settle();
        QVERIFY(registry.hasWindow(ManagedWindowKind::simpleControl));
        QCOMPARE(registry.windowNumbers(), QSet<quint32>{20});
        QVERIFY(registry.visibleKinds().contains(ManagedWindowKind::simpleControl));

        // A close of the first window still queued when the second came.
        {
            WindowRegistry queued;
            queued.registerWindow(&first, ManagedWindowKind::output);
            Q_EMIT first.willClose();
            queued.registerWindow(&second, ManagedWindowKind::output);
            settle();
            QVERIFY(queued.hasWindow(ManagedWindowKind::output));
            QCOMPARE(queued.windowNumbers(), QSet<quint32>{20});
        }

        // The same for real widgets: closing the replaced one leaves the new one.
        auto oldWidget = shownWidget();
        auto newWidget = shownWidget();
        registry.registerWindow(WidgetWindowHandle::forWidget(oldWidget.get()),
                                ManagedWindowKind::output);
        registry.registerWindow(WidgetWindowHandle::forWidget(newWidget.get()),
                                ManagedWindowKind::output);
        QVERIFY(oldWidget->close());
        settle();
        QVERIFY(registry.hasWindow(ManagedWindowKind::output));
        QVERIFY(registry.windowNumbers().contains(quint32(newWidget->winId())));
        QVERIFY(!registry.windowNumbers().contains(quint32(oldWidget->winId())));
    }

    void freedWindowDisappearsAtNextRefresh()
    {
        WindowRegistry registry;
        auto control = shownWidget();
        auto output = shownWidget();
        const auto outputNumber = quint32(output->winId());
        registry.registerWindow(WidgetWindowHandle::forWidget(control.get()),
                                ManagedWindowKind::simpleControl);
        registry.registerWindow(WidgetWindowHandle::forWidget(output.get()),
                                ManagedWindowKind::output);
        // The numbers are the real window ids.
        const QSet<quint32> both{quint32(control->winId()), outputNumber};
        QCOMPARE(both.size(), 2);
        QCOMPARE(registry.windowNumbers(), both);
        QCOMPARE(registry.ownWindowNumbers(), both);
        QCOMPARE(registry.property("windowNumbers").value<QSet<quint32>>(), both);

        control.reset(); // freed without a close
        QVERIFY(!registry.hasWindow(ManagedWindowKind::simpleControl));

        // Any refresh skips it, here one caused by another registration ...
        auto other = shownWidget();
        registry.registerWindow(WidgetWindowHandle::forWidget(other.get()),
                                ManagedWindowKind::preview);
        QCOMPARE(registry.windowNumbers(), (QSet<quint32>{outputNumber, quint32(other->winId())}));
        QCOMPARE(registry.visibleKinds(),
                 (QSet<ManagedWindowKind>{ManagedWindowKind::output, ManagedWindowKind::preview}));

        // ... and freeing a window schedules one by itself.
        output.reset();
        settle();
        QCOMPARE(registry.windowNumbers(), QSet<quint32>{quint32(other->winId())});
        QCOMPARE(registry.visibleKinds(), QSet<ManagedWindowKind>{ManagedWindowKind::preview});

        // Operations on a freed window are silent no-ops.
        registry.show(ManagedWindowKind::output, true);
        registry.hide(ManagedWindowKind::output);
        QCOMPARE(registry.outputPresentation(), OutputWindowPresentation::docked);
    }

    void notificationsActOnLaterTurn()
    {
        WindowRegistry registry;
        FakeWindow window(7);
        registry.registerWindow(&window, ManagedWindowKind::simpleControl);
        QSignalSpy visible(&registry, &WindowRegistry::visibleKindsChanged);

        window.minimized = true;
        Q_EMIT window.didMinimize();
        QVERIFY(registry.visibleKinds().contains(ManagedWindowKind::simpleControl));
        QCOMPARE(visible.count(), 0);

        Q_EMIT window.willClose();
        QVERIFY(registry.hasWindow(ManagedWindowKind::simpleControl));

        settle();
        QVERIFY(!registry.visibleKinds().contains(ManagedWindowKind::simpleControl));
        QVERIFY(!registry.hasWindow(ManagedWindowKind::simpleControl));
    }

    void notificationAfterRegistryIsGoneIsDropped()
    {
        FakeWindow window(7);
        auto registry = std::make_unique<WindowRegistry>();
        registry->registerWindow(&window, ManagedWindowKind::output);
        Q_EMIT window.willClose();
        Q_EMIT window.didMinimize();
        registry.reset();
        settle(); // must not touch the freed registry (checked by the sanitizer)
        QCOMPARE(window.listeners(), 0);
    }

    // Hiding docks the output window, which stays mapped; any other window
    // is ordered out. Showing the control window leaves the output alone.
    void hideDocksTheOutputAndOrdersOutTheRest()
    {
        WindowRegistry registry;
        auto output = shownWidget();
        auto control = shownWidget();
        registry.registerWindow(WidgetWindowHandle::forWidget(output.get()),
                                ManagedWindowKind::output);
        registry.registerWindow(WidgetWindowHandle::forWidget(control.get()),
                                ManagedWindowKind::simpleControl);
        QCOMPARE(registry.outputPresentation(), OutputWindowPresentation::docked);
        QVERIFY(!registry.isVisible(ManagedWindowKind::output)); // the system starts docked
        QVERIFY(registry.isVisible(ManagedWindowKind::simpleControl));

        registry.show(ManagedWindowKind::output, false);
        QCOMPARE(registry.outputPresentation(), OutputWindowPresentation::centered);
        QVERIFY(registry.isVisible(ManagedWindowKind::output));

        QSignalSpy presentation(&registry, &WindowRegistry::outputPresentationChanged);
        registry.hide(ManagedWindowKind::output);
        settle();
        QVERIFY(output->isVisible());
        QCOMPARE(registry.outputPresentation(), OutputWindowPresentation::docked);
        QCOMPARE(presentation.count(), 1);
        QVERIFY(!registry.isVisible(ManagedWindowKind::output));
        QVERIFY(registry.visibleKinds().contains(ManagedWindowKind::output));

        registry.hide(ManagedWindowKind::simpleControl);
        QVERIFY(!control->isVisible());
        QVERIFY(!registry.isVisible(ManagedWindowKind::simpleControl));
        QVERIFY(registry.hasWindow(ManagedWindowKind::simpleControl));
        registry.show(ManagedWindowKind::simpleControl, true);
        QVERIFY(control->isVisible());
        QVERIFY(registry.isVisible(ManagedWindowKind::simpleControl));
        QCOMPARE(registry.outputPresentation(), OutputWindowPresentation::docked);
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
            registry.registerWindow(&window, ManagedWindowKind::output);
            registry.show(ManagedWindowKind::output, activate);
            QStringList expected{u"deminiaturize"_s, u"makeKeyAndOrderFront"_s,
                                 u"orderFrontRegardless"_s};
            if (activate)
                expected.insert(1, u"activateApplication"_s);
            QCOMPARE(window.calls, expected);
            QCOMPARE(registry.outputPresentation(), OutputWindowPresentation::centered);
            QVERIFY(registry.visibleKinds().contains(ManagedWindowKind::output));
        }

        // A real minimised widget comes back. (The offscreen platform activates
        // every window it shows, so focus cannot be checked here.)
        WindowRegistry registry;
        auto widget = shownWidget();
        widget->setWindowState(Qt::WindowMinimized);
        QVERIFY(widget->isMinimized());
        registry.registerWindow(WidgetWindowHandle::forWidget(widget.get()),
                                ManagedWindowKind::output);
        QVERIFY(!registry.visibleKinds().contains(ManagedWindowKind::output));

        registry.show(ManagedWindowKind::output, activate);
        QVERIFY(!widget->isMinimized());
        QVERIFY(widget->isVisible());
        QCOMPARE(registry.outputPresentation(), OutputWindowPresentation::centered);
        QVERIFY(registry.isVisible(ManagedWindowKind::output));
    }

    void showWithoutWindowIsNoOp()
    {
        WindowRegistry registry;
        QSignalSpy visible(&registry, &WindowRegistry::visibleKindsChanged);
        registry.show(ManagedWindowKind::output, true);
        registry.show(ManagedWindowKind::preview, true);
        registry.hide(ManagedWindowKind::simpleControl);
        registry.unregister(ManagedWindowKind::output);
        QCOMPARE(registry.outputPresentation(), OutputWindowPresentation::docked);
        QCOMPARE(visible.count(), 0);
        QVERIFY(!registry.hasWindow(ManagedWindowKind::preview));
        QVERIFY(!registry.isVisible(ManagedWindowKind::output));
    }

    void minimiseAndRestoreUpdateVisibleKinds()
    {
        WindowRegistry registry;
        auto widget = shownWidget();
        registry.registerWindow(WidgetWindowHandle::forWidget(widget.get()),
                                ManagedWindowKind::simpleControl);
        QCOMPARE(registry.visibleKinds(),
                 QSet<ManagedWindowKind>{ManagedWindowKind::simpleControl});

        widget->setWindowState(widget->windowState() | Qt::WindowMinimized);
        settle();
        QCOMPARE(registry.visibleKinds(), QSet<ManagedWindowKind>{});
        QVERIFY(!registry.isVisible(ManagedWindowKind::simpleControl));

        widget->setWindowState(widget->windowState() & ~Qt::WindowMinimized);
        settle();
        QCOMPARE(registry.visibleKinds(),
                 QSet<ManagedWindowKind>{ManagedWindowKind::simpleControl});

        // A window hidden behind the registry's back is noticed as well.
        widget->hide();
        settle();
        QCOMPARE(registry.visibleKinds(), QSet<ManagedWindowKind>{});
    }

    void closeGuardDecidesWidgetClose()
    {
        WindowRegistry registry;
        auto widget = shownWidget();
        auto* handle = WidgetWindowHandle::forWidget(widget.get());
        registry.registerWindow(handle, ManagedWindowKind::simpleControl);
        QSignalSpy closing(handle, &ManagedWindow::willClose);

        // Refused: the request becomes a hide through the registry.
        int asked = 0;
        handle->setCloseGuard([&] {
            ++asked;
            registry.hide(ManagedWindowKind::simpleControl);
            return false;
        });
        QVERIFY(!widget->close());
        settle();
        QCOMPARE(asked, 1);
        QVERIFY(!widget->isVisible());
        QCOMPARE(closing.count(), 0);
        QVERIFY(registry.hasWindow(ManagedWindowKind::simpleControl));

        // Granted on a shown window: one willClose, and the kind is forgotten.
        handle->setCloseGuard([] { return true; });
        registry.show(ManagedWindowKind::simpleControl, false);
        QVERIFY(widget->close());
        settle();
        QCOMPARE(closing.count(), 1);
        QVERIFY(!registry.hasWindow(ManagedWindowKind::simpleControl));

        // Granted on a window that is already hidden: still announced.
        registry.registerWindow(handle, ManagedWindowKind::simpleControl);
        QVERIFY(widget->isHidden());
        QVERIFY(widget->close());
        settle();
        QCOMPARE(closing.count(), 2);
        QVERIFY(!registry.hasWindow(ManagedWindowKind::simpleControl));

        // A plain hide is not a close.
        widget->show();
        widget->hide();
        settle();
        QCOMPARE(closing.count(), 2);
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
