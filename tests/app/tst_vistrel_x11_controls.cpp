// The control deck's popovers and the preview panel, on a private X
// session of two monitors, through a user's clicks and drags: a file dropped
// from another application, presets made and applied, and the preview that
// follows the control window and moves it.

#include "app/vistrel_x11_rig.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace vistrel::x11test;

class TestVistrelX11Controls : public VistrelX11Rig {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        const QString failure = startSession();
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
    }
    void cleanup() { releaseButtonAfterFailure(); }

    // Canvas, presets and the menu reach the output. An image dragged from
    // another application onto the Canvas popover becomes the canvas behind
    // Slides; a custom preset stores that; a built-in preset from the menu
    // clears it and the custom preset's Apply brings it back.
    void popoversChangeTheOutput()
    {
        auto app = startVistrel(stateDocument(u"allowList"_s, u"Slides"_s));
        QVERIFY(app);
        const QRgb slides = clientApps[0].colour;
        const xcb_window_t output = waitForOutput(*app, slides);
        QVERIFY2(output, qPrintable(failureReport(*app)));
        const auto shows = [&](QRgb colour, int atLeast) {
            return countNear(m_session.grabWindow(output), colour) >= atLeast;
        };
        const QRgb magenta = qRgb(255, 0, 255);
        const QString imagePath = m_dataHome->filePath(u"magenta.png"_s);
        QImage image(64, 36, QImage::Format_RGB32);
        image.fill(magenta);
        QVERIFY(image.save(imagePath));

        // The drag source stands in for a file manager, right of the control
        // window where no other window lies: over Slides, the window manager
        // did not always honour a raise, and the press went to Slides.
        QProcess source;
        QProcessEnvironment sourceEnvironment = m_session.environment();
        sourceEnvironment.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
        source.setProcessEnvironment(sourceEnvironment);
        source.start(QStringLiteral(VISTREL_DRAG_SOURCE), {imagePath});
        QVERIFY(waitUntil([&] { return source.readAllStandardOutput().contains("ready"); }));
        xcb_window_t sourceWindow = 0;
        QVERIFY(waitUntil(
            [&] { return (sourceWindow = findWindow(source.processId(), u"Drag source"_s)); }));
        m_session.xdotool({u"windowmove"_s, QString::number(sourceWindow), u"1400"_s, u"480"_s});
        QVERIFY(waitUntil([&] {
            const auto at = m_session.rootGeometry(sourceWindow);
            return at && at->x() > 1300 && at->x() < 1500;
        }));
        const QPoint from = m_session.rootGeometry(sourceWindow)->center();

        // The Canvas popover stays open while the other application is used.
        QVERIFY(click(canvasTile(controlFrame)));
        xcb_window_t canvas = 0;
        QVERIFY(waitUntil([&] { return (canvas = findWindow(app->processId(), u"Canvas"_s)); }));
        const QRect canvasFrame = *m_session.rootGeometry(canvas);
        const QPoint zone(canvasFrame.center().x(), canvasFrame.bottom() - 60);
        QByteArray sourceSaid;
        const auto sourceSays = [&](const char* word) {
            return waitUntil([&] {
                sourceSaid += source.readAllStandardOutput();
                return sourceSaid.contains(word);
            });
        };
        const auto moveTo = [&](QPoint at) {
            m_session.xdotool({u"mousemove"_s, QString::number(at.x()), QString::number(at.y())});
        };
        // Moves count only once the source has started its drag. Should a
        // press still go missing, raise the source and press again.
        bool dragging = false;
        for (int attempt = 0; attempt < 3 && !dragging; ++attempt) {
            if (attempt > 0)
                m_session.xdotool({u"mouseup"_s, u"1"_s});
            m_session.xdotool({u"windowraise"_s, QString::number(sourceWindow)});
            QVERIFY(m_session.xdotool({u"mousemove"_s, QString::number(from.x()),
                                       QString::number(from.y()), u"mousedown"_s, u"1"_s}));
            dragging = waitUntil(
                [&] {
                    sourceSaid += source.readAllStandardOutput();
                    return sourceSaid.contains("dragging");
                },
                std::chrono::seconds(4));
        }
        QVERIFY(dragging);
        for (int step = 1; step <= 12; ++step) {
            QTest::qWait(60);
            moveTo(from + (zone - from) * step / 12);
        }
        // Over the zone, the pointer keeps moving a little, as a hand does,
        // until the target has had time to accept the drag.
        for (int wiggle = 0; wiggle < 6; ++wiggle) {
            QTest::qWait(100);
            moveTo(zone + QPoint(wiggle % 2 ? 3 : -3, 0));
        }
        QVERIFY(m_session.xdotool({u"mouseup"_s, u"1"_s}));
        QVERIFY2(sourceSays("dropped"), sourceSaid.constData());
        QVERIFY(waitUntil([&] { return shows(magenta, 50000) && shows(slides, 100000); }));
        QVERIFY(m_session.isMapped(canvas));
        source.kill();
        source.waitForFinished();
        m_session.xdotool({u"windowactivate"_s, u"--sync"_s, QString::number(canvas)});
        QVERIFY(m_session.xdotool({u"key"_s, u"Escape"_s}));
        QVERIFY(waitUntil([&] { return !findWindow(app->processId(), u"Canvas"_s); }));

        // A new custom preset, "Save Current" on its card.
        QRect presets = openPopover(*app, presetsTile(controlFrame));
        QVERIFY(!presets.isEmpty());
        QVERIFY(click(presets.topLeft() + QPoint(61, 346))); // "New Preset"
        QVERIFY(m_session.xdotool({u"type"_s, u"Demo"_s}));
        QVERIFY(m_session.xdotool({u"key"_s, u"Return"_s}));
        QVERIFY(waitUntil([&] {
            const QList<QRect> open = m_session.popups(app->processId());
            return !open.isEmpty() && open.last().height() > presets.height();
        }));
        presets = m_session.popups(app->processId()).last();
        QVERIFY(click(presets.topLeft() + QPoint(152, 416))); // the Demo card's "Save Current"
        QTest::qWait(200);
        QVERIFY(m_session.xdotool({u"key"_s, u"Escape"_s}));
        QVERIFY(waitUntil([&] { return m_session.popups(app->processId()).isEmpty(); }));

        // "Load Presentation Preset" from the menu: nothing selected, black.
        QVERIFY(click(menuButton(controlFrame)));
        QVERIFY(waitUntil([&] { return !m_session.popups(app->processId()).isEmpty(); }));
        QVERIFY(m_session.xdotool({u"key"_s, u"Down"_s, u"Down"_s, u"Return"_s}));
        QVERIFY(waitUntil([&] { return !shows(slides, 1) && !shows(magenta, 1); }));

        // Demo's "Apply" brings Slides and the image back.
        presets = openPopover(*app, presetsTile(controlFrame));
        QVERIFY(click(presets.topLeft() + QPoint(63, 432)));
        QVERIFY(waitUntil([&] { return shows(magenta, 50000) && shows(slides, 100000); }));
        QVERIFY(m_session.xdotool({u"key"_s, u"Escape"_s}));
        QVERIFY(waitUntil([&] { return m_session.popups(app->processId()).isEmpty(); }));

        const QString failure = quit(*app, false);
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
    }

    // The preview panel in the full-desktop form: above the control window,
    // following it and moving it; the same picture as the output at its
    // scale, and never itself in the output.
    void previewFollowsTheControlWindow()
    {
        QByteArray state = stateDocument(u"blockList"_s, u"Nobody"_s);
        state.replace("\"sanitized\"", "\"fullDesktop\"");
        auto app = startVistrel(state);
        QVERIFY(app);
        const QRgb slides = clientApps[0].colour;
        const xcb_window_t output = waitForOutput(*app, slides);
        QVERIFY2(output, qPrintable(failureReport(*app)));
        const xcb_window_t control = findWindow(app->processId(), u"Vistrel"_s);
        xcb_window_t panel = 0;
        QVERIFY(waitUntil(
            [&] { return (panel = findWindow(app->processId(), u"Vistrel Preview"_s)); }));
        const auto attachedTo = [&](QPoint controlOrigin) {
            return m_session.rootGeometry(control)->topLeft() == controlOrigin &&
                   m_session.rootGeometry(panel) ==
                       QRect(controlOrigin - QPoint(0, 4 + 293), QSize(520, 293));
        };
        QVERIFY(waitUntil([&] { return attachedTo(controlFrame.topLeft()); }));

        // The same picture: Slides takes the same share of both.
        const auto share = [&](xcb_window_t window) {
            const QImage picture = m_session.grabWindow(window);
            return qreal(countNear(picture, slides)) / (picture.width() * picture.height());
        };
        QVERIFY(waitUntil([&] {
            const qreal inPanel = share(panel);
            const qreal inOutput = share(output);
            return inOutput > 0.05 && qAbs(inPanel - inOutput) < 0.1 * inOutput;
        }));

        // Never in the output: where the panel stands, the output shows the
        // empty desktop behind it (and not the pointer, moved out of the way).
        QVERIFY(m_session.xdotool({u"mousemove"_s, u"1900"_s, u"1070"_s}));
        const QRgb desktop = m_session.grabWindow(output).pixel(outputSize.width() - 20, 20);
        const qreal scale = qreal(outputSize.width()) / 1920;
        const QRect panelFrame = *m_session.rootGeometry(panel);
        const QRectF inOutput(QPointF(panelFrame.topLeft()) * scale + QPointF(4, 4),
                              QSizeF(panelFrame.size()) * scale - QSizeF(8, 8));
        const QImage outputPicture = m_session.grabWindow(output).copy(inOutput.toRect());
        QCOMPARE(countNear(outputPicture, desktop), outputPicture.width() * outputPicture.height());

        // It follows a move of the control window, and a drag on it moves
        // the control window.
        m_session.xdotool({u"windowmove"_s, QString::number(control), u"300"_s, u"500"_s});
        QVERIFY(waitUntil([&] { return attachedTo({300, 500}); }));
        const QPoint grip(450, 300);
        QVERIFY(m_session.xdotool({u"mousemove"_s, QString::number(grip.x()),
                                   QString::number(grip.y()), u"mousedown"_s, u"1"_s}));
        for (int step = 1; step <= 5; ++step) {
            QTest::qWait(40);
            m_session.xdotool({u"mousemove"_s, QString::number(grip.x() + 10 * step),
                               QString::number(grip.y() + 6 * step)});
        }
        QVERIFY(m_session.xdotool({u"mouseup"_s, u"1"_s}));
        QVERIFY(waitUntil([&] { return attachedTo({350, 530}); }));

        const QString failure = quit(*app, false);
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
    }
};

QTEST_GUILESS_MAIN(TestVistrelX11Controls)
#include "tst_vistrel_x11_controls.moc"
