// The vistrel executable as a user meets it on a private X session of two
// monitors: only what the state file admits reaches the "Vistrel Output"
// window's pixels; where the windows appear, docking and showing the
// output, dragging it to the other monitor, close requests, a second start,
// the panic key, quitting, and losing the X server.

#include "app/vistrel_x11_rig.h"
#include "platform/x11/X11KeyGrabs.h"
#include "platform/x11/XcbPtr.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace vistrel::x11test;

class TestVistrelX11 : public VistrelX11Rig {
    Q_OBJECT

    // The keycodes that give h or H on the session's keyboard now.
    QList<quint8> keycodesOfH()
    {
        xcb_connection_t* c = m_session.connection();
        const xcb_setup_t* setup = xcb_get_setup(c);
        const auto [mapping, error] = vistrel::x11::xcbReply(
            xcb_get_keyboard_mapping_reply, c,
            xcb_get_keyboard_mapping(c, setup->min_keycode,
                                     uint8_t(setup->max_keycode - setup->min_keycode + 1)));
        if (!mapping)
            return {};
        const auto* keysyms = xcb_get_keyboard_mapping_keysyms(mapping.get());
        const QList<quint32> table(
            keysyms, keysyms + xcb_get_keyboard_mapping_keysyms_length(mapping.get()));
        namespace keys = vistrel::x11::keysym;
        return vistrel::x11::keycodesFor({keys::h, keys::H}, setup->min_keycode,
                                         mapping->keysyms_per_keycode, table, 2);
    }

    bool xmodmap(const QStringList& expressions)
    {
        QStringList arguments;
        for (const QString& expression : expressions)
            arguments << u"-e"_s << expression;
        QProcess process;
        process.setProcessEnvironment(m_session.environment());
        process.start(u"xmodmap"_s, arguments);
        return process.waitForFinished(10000) && process.exitCode() == 0;
    }

private Q_SLOTS:
    void initTestCase()
    {
        const QString failure = startSession();
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
    }
    void cleanup() { releaseButtonAfterFailure(); }

    void refusesToStartWithoutADisplay_data()
    {
        QTest::addColumn<QString>("display");
        QTest::newRow("DISPLAY unset") << QString();
        QTest::newRow("DISPLAY unreachable") << u":4000"_s;
    }

    // A clear message and status 1, not Qt's abort.
    void refusesToStartWithoutADisplay()
    {
        QFETCH(QString, display);
        auto app = startVistrel({}, &display);
        QVERIFY(app && app->waitForFinished(15000));
        const QString report = failureReport(*app);
        QVERIFY2(app->exitStatus() == QProcess::NormalExit && app->exitCode() == 1,
                 qPrintable(report));
        QVERIFY2(report.contains(u"vistrel: no display to show its windows on"_s),
                 qPrintable(report));
    }

    void outputShowsOnlyAdmittedApplications_data()
    {
        QTest::addColumn<QByteArray>("state");
        QTest::addColumn<QList<QRgb>>("shown");
        QTest::addColumn<QList<QRgb>>("hidden");
        QTest::addColumn<bool>("quitBySignal"); // SIGTERM, as at logout, else "Quit"

        const QRgb slides = clientApps[0].colour;
        const QRgb mail = clientApps[1].colour;
        const QRgb chat = clientApps[2].colour;
        QTest::newRow("allow list: only Slides")
            << stateDocument(u"allowList"_s, u"Slides"_s) << QList<QRgb>{slides}
            << QList<QRgb>{mail, chat} << false;
        QTest::newRow("block list: all but Mail")
            << stateDocument(u"blockList"_s, u"Mail"_s) << QList<QRgb>{slides, chat}
            << QList<QRgb>{mail} << true;
    }

    void outputShowsOnlyAdmittedApplications()
    {
        QFETCH(QByteArray, state);
        QFETCH(QList<QRgb>, shown);
        QFETCH(QList<QRgb>, hidden);
        QFETCH(bool, quitBySignal);

        auto app = startVistrel(state);
        QVERIFY(app);
        const xcb_window_t output = waitForOutput(*app, shown.first());
        QVERIFY2(output,
                 qPrintable(u"no output showing the admitted windows\n"_s + failureReport(*app)));
        QCOMPARE(m_session.rootGeometry(output)->size(), outputSize);

        QImage picture;
        QVERIFY(waitUntil([&] {
            picture = m_session.grabWindow(output);
            return std::all_of(shown.begin(), shown.end(),
                               [&](QRgb colour) { return countNear(picture, colour) >= 5000; });
        }));
        // Held for a while: a window that is not admitted never reaches a frame.
        for (int round = 0; round < 5; ++round) {
            picture = m_session.grabWindow(output);
            for (QRgb colour : hidden)
                QVERIFY2(countNear(picture, colour) == 0,
                         qPrintable(u"#%1 is in the output"_s.arg(hexColour(colour))));
            QTest::qWait(200);
        }
        // Scaled by 1766 / 1920, each shown window appears once: were the
        // output window itself captured, its own picture would add a smaller
        // copy of every shown window.
        // Where the window manager put each window, on LEFT.
        const qreal scale = qreal(outputSize.width()) / monitorSize.width();
        for (qsizetype i = 0; i < clientApps.size(); ++i) {
            const QRgb colour = clientApps[i].colour;
            if (!shown.contains(colour))
                continue;
            const QRect onLeft = m_session.rootGeometry(m_clientWindows[size_t(i)])
                                     ->intersected(QRect({}, monitorSize));
            const qreal expected = onLeft.width() * onLeft.height() * scale * scale;
            const int count = countNear(picture, colour);
            QVERIFY2(count > 0.9 * expected && count < 1.1 * expected,
                     qPrintable(u"#%1 covers %2 pixels"_s.arg(hexColour(colour)).arg(count)));
        }
        picture.save(QDir::temp().filePath(
            u"vistrel-x11-%1.png"_s.arg(QString::fromUtf8(QTest::currentDataTag()))
                .replace(u' ', u'-')
                .remove(u':')));

        // Quit: a normal exit without a sanitizer report.
        const QString failure = quit(*app, quitBySignal);
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
    }

    // The windows as a user meets them, one run from launch to quit.
    void windowsFollowTheUser()
    {
        auto app = startVistrel(stateDocument(u"allowList"_s, u"Slides"_s));
        QVERIFY(app);
        const QRgb slides = clientApps[0].colour;
        const xcb_window_t output = waitForOutput(*app, slides);
        QVERIFY2(output, qPrintable(failureReport(*app)));
        const xcb_window_t control = findWindow(app->processId(), u"Vistrel"_s);
        QVERIFY(control);

        // Launch: the control window centred on LEFT, 140 above its bottom,
        // above other windows; the output docked at LEFT's bottom-left
        // (RIGHT lies beyond the bottom-right), a tenth of it left on screen
        // by the window manager, below Chat, out of the taskbar, and still
        // readable: Slides in its own pixels, nothing of Chat over it.
        QVERIFY(waitForFrame(control, controlFrame));
        // The window manager writes the state a little after the frame.
        QVERIFY(waitUntil([&] { return m_session.hasState(control, "_NET_WM_STATE_ABOVE"); }));
        // "Always on Top" off and on again: the same window, in the same place.
        QVERIFY(click(alwaysOnTopBox(controlFrame)));
        QVERIFY(waitUntil([&] { return !m_session.hasState(control, "_NET_WM_STATE_ABOVE"); }));
        QVERIFY(click(alwaysOnTopBox(controlFrame)));
        QVERIFY(waitUntil([&] { return m_session.hasState(control, "_NET_WM_STATE_ABOVE"); }));
        QCOMPARE(m_session.rootGeometry(control), std::optional(controlFrame));
        const QRect docked = *m_session.rootGeometry(output);
        QCOMPARE(docked.size(), outputSize);
        QVERIFY2(docked.right() < 200 && docked.top() > 900,
                 qPrintable(u"docked at %1,%2"_s.arg(docked.x()).arg(docked.y())));
        for (const char* state :
             {"_NET_WM_STATE_BELOW", "_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER"})
            QVERIFY2(waitUntil([&] { return m_session.hasState(output, state); }), state);
        const QImage dockedPicture = m_session.grabWindow(output);
        QVERIFY(countNear(dockedPicture, slides) > 100000);
        QCOMPARE(countNear(dockedPicture, clientApps[2].colour), 0);

        // Shown: centred on LEFT at the canvas's aspect, above, in the taskbar.
        QVERIFY(click(outputButton(controlFrame)));
        QVERIFY(waitForFrame(output, QRect(QPoint(77, 43), outputSize)));
        QVERIFY(waitUntil([&] {
            return !m_session.hasState(output, "_NET_WM_STATE_BELOW") &&
                   !m_session.hasState(output, "_NET_WM_STATE_SKIP_TASKBAR");
        }));

        // Dragged to RIGHT: it follows the pointer while the button is held,
        // then re-centres there.
        const QRect centredRight(QPoint(1920 + 77, 43), outputSize);
        QVERIFY(m_session.xdotool({u"mousemove"_s, u"300"_s, u"300"_s, u"mousedown"_s, u"1"_s}));
        // The window manager takes over the pointer some time after the press;
        // like a hand, the pointer keeps moving until the window follows.
        int step = 0;
        QVERIFY(waitUntil([&] {
            const int x = 300 + 10 * (++step % 2);
            m_session.xdotool({u"mousemove"_s, QString::number(x), u"300"_s});
            return m_session.rootGeometry(output)->left() != 77;
        }));
        QVERIFY(m_session.xdotool({u"mousemove"_s, u"2400"_s, u"400"_s}));
        QVERIFY(waitUntil([&] { return m_session.rootGeometry(output)->left() > 1920; }));
        QTest::qWait(300);
        QVERIFY2(m_session.rootGeometry(output) != centredRight, "re-centred while held");
        QVERIFY(m_session.xdotool({u"mouseup"_s, u"1"_s}));
        QVERIFY(waitForFrame(output, centredRight));

        // Docked and shown again: it stays with RIGHT; docked now at RIGHT's
        // bottom-right, where no monitor lies beyond.
        QVERIFY(click(outputButton(controlFrame)));
        QVERIFY(waitUntil([&] { return m_session.rootGeometry(output)->left() > 3000; }));
        QVERIFY(click(outputButton(controlFrame)));
        QVERIFY(waitForFrame(output, centredRight));

        // Close requests: the output docks, the control window hides.
        m_session.requestClose(output);
        QVERIFY(waitUntil([&] { return m_session.hasState(output, "_NET_WM_STATE_BELOW"); }));
        QVERIFY(m_session.isMapped(output));
        m_session.requestClose(control);
        QVERIFY(waitUntil([&] { return !m_session.isMapped(control); }));

        // Starting vistrel again brings the control window back and ends.
        auto second = startVistrel({}, nullptr, false);
        QVERIFY(second && second->waitForFinished(15000));
        QVERIFY2(second->exitStatus() == QProcess::NormalExit && second->exitCode() == 0,
                 qPrintable(failureReport(*second)));
        QVERIFY(waitUntil([&] { return m_session.isMapped(control); }));
        QCOMPARE(findWindow(app->processId(), u"Vistrel"_s), control);
        QCOMPARE(findWindow(second->processId(), u"Vistrel"_s), xcb_window_t(0));

        // Ctrl+Shift+H blanks the output's pixels, and again resumes them.
        QVERIFY(m_session.xdotool({u"windowactivate"_s, u"--sync"_s, QString::number(control)}));
        QVERIFY(m_session.xdotool({u"key"_s, u"ctrl+shift+h"_s}));
        QVERIFY(waitUntil([&] { return countNear(m_session.grabWindow(output), slides) == 0; }));
        QVERIFY(m_session.xdotool({u"key"_s, u"ctrl+shift+h"_s}));
        QVERIFY(
            waitUntil([&] { return countNear(m_session.grabWindow(output), slides) > 100000; }));

        // Sources: search for Mail and tick it with "Show": Mail joins Slides.
        const QRgb mail = clientApps[1].colour;
        QCOMPARE(countNear(m_session.grabWindow(output), mail), 0);
        QRect popover = openPopover(*app, sourcesTile(controlFrame));
        QVERIFY(!popover.isEmpty());
        QVERIFY(click(popover.topLeft() + QPoint(100, 55))); // the search field
        QVERIFY(m_session.xdotool({u"type"_s, u"Mail"_s}));
        QVERIFY(click(QPoint(popover.right() - 79, popover.top() + 108))); // its "Show"
        QVERIFY(waitUntil([&] { return countNear(m_session.grabWindow(output), mail) > 100000; }));
        QVERIFY(m_session.xdotool({u"key"_s, u"Escape"_s}));
        QVERIFY(waitUntil([&] { return m_session.popups(app->processId()).isEmpty(); }));

        // Mode: the (empty) block list shows everything, Chat too.
        const QRgb chat = clientApps[2].colour;
        QCOMPARE(countNear(m_session.grabWindow(output), chat), 0);
        popover = openPopover(*app, modeTile(controlFrame));
        QVERIFY(click(popover.topLeft() + QPoint(100, 115))); // "Block List"
        QVERIFY(waitUntil([&] { return countNear(m_session.grabWindow(output), chat) > 50000; }));

        const QString failure = quit(*app, false);
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
    }

    // Ctrl+Shift+H works while another application has the focus, once per
    // press, also after the keyboard mapping moved H to another key; when
    // another client holds the combination, Vistrel says so.
    void panicKeyWorksEverywhere()
    {
        xcb_connection_t* c = m_session.connection();
        const quint16 ctrlShift = XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_SHIFT;
        const QList<quint8> hKeys = keycodesOfH();
        QVERIFY(!hKeys.isEmpty());

        // Held by another client (this test's connection): reported.
        for (const quint8 key : hKeys)
            xcb_grab_key(c, 0, m_session.root(), ctrlShift, key, XCB_GRAB_MODE_ASYNC,
                         XCB_GRAB_MODE_ASYNC);
        xcb_flush(c);
        auto app = startVistrel(stateDocument(u"allowList"_s, u"Slides"_s));
        QVERIFY(app);
        QByteArray log;
        QVERIFY2(waitUntil([&] {
                     log += app->readAll();
                     return log.contains("Ctrl+Shift+H is taken by another application; the "
                                         "panic key works only inside Vistrel");
                 }),
                 log.constData());
        // Up and running (its quit handlers too) before it is asked to quit.
        QVERIFY2(waitForOutput(*app, clientApps[0].colour), qPrintable(failureReport(*app)));
        QString failure = quit(*app, false);
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
        for (const quint8 key : hKeys)
            xcb_ungrab_key(c, key, m_session.root(), ctrlShift);
        xcb_flush(c);

        // Free: pressed while Chat has the focus, it blanks and resumes.
        app = startVistrel(stateDocument(u"allowList"_s, u"Slides"_s));
        const QRgb slides = clientApps[0].colour;
        const xcb_window_t output = waitForOutput(*app, slides);
        QVERIFY2(output, qPrintable(failureReport(*app)));
        const auto shows = [&] {
            return countNear(m_session.grabWindow(output), slides) > 100000;
        };
        const auto pressInChat = [&] {
            m_session.xdotool(
                {u"windowactivate"_s, u"--sync"_s, QString::number(m_clientWindows[2])});
            return m_session.xdotool({u"key"_s, u"ctrl+shift+h"_s});
        };
        QVERIFY(pressInChat());
        QVERIFY(waitUntil([&] { return countNear(m_session.grabWindow(output), slides) == 0; }));
        QTest::qWait(500); // one press, one toggle
        QCOMPARE(countNear(m_session.grabWindow(output), slides), 0);
        QVERIFY(pressInChat());
        QVERIFY(waitUntil(shows));

        // H moves to another key: the grabs follow the new mapping.
        const QString oldKey = QString::number(hKeys.first());
        QVERIFY(xmodmap({u"keycode %1 = g G"_s.arg(oldKey), u"keycode 200 = h H"_s}));
        QVERIFY(waitUntil([&] { return keycodesOfH() == QList<quint8>{200}; }));
        QTest::qWait(300);
        QVERIFY(pressInChat());
        const bool followed =
            waitUntil([&] { return countNear(m_session.grabWindow(output), slides) == 0; });
        QVERIFY(xmodmap({u"keycode 200 ="_s, u"keycode %1 = h H"_s.arg(oldKey)}));
        QVERIFY(followed);
        QVERIFY(waitUntil([&] { return keycodesOfH() == hKeys; }));
        QTest::qWait(300);
        QVERIFY(pressInChat());
        QVERIFY(waitUntil(shows));

        failure = quit(*app, false);
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
    }

    // Last: stops the session.
    void exitsCleanlyWhenTheDisplayGoesAway()
    {
        auto app = startVistrel(stateDocument(u"allowList"_s, u"Slides"_s));
        QVERIFY(app);
        // Capturing: the worker thread is live when the server goes.
        QVERIFY2(waitForOutput(*app, clientApps[0].colour), qPrintable(failureReport(*app)));

        m_clients.clear();
        m_session.stop();
        QVERIFY2(app->waitForFinished(20000), "vistrel hangs after losing its display");
        const QString report = failureReport(*app);
        QVERIFY2(app->exitStatus() == QProcess::NormalExit, qPrintable(report));
        // Qt's own exit status for a broken display connection.
        QVERIFY2(app->exitCode() == 0 || app->exitCode() == 1, qPrintable(report));
        // Capture stopped before the process tore down its globals.
        QVERIFY2(report.contains(u"saving and stopping capture first"_s), qPrintable(report));
        QVERIFY2(!report.contains(u"Sanitizer"_s) && !report.contains(u"runtime error"_s),
                 qPrintable(report));
    }
};

QTEST_GUILESS_MAIN(TestVistrelX11)
#include "tst_vistrel_x11.moc"
