// What the control deck shows, from the view models' values: tiles, the
// status line, the notice order, and where a popover opens.

#include "control/DeckState.h"
#include "control/Popover.h"
#include "control/SessionInfo.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace vistrel;

class TestDeckState : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void tiles_data()
    {
        QTest::addColumn<DeckTile>("tile");
        QTest::addColumn<DeckInputs>("inputs");
        QTest::addColumn<TileState>("expected");

        const DeckInputs plain;
        DeckInputs desktop;
        desktop.contentMode = OutputContentMode::fullDesktop;
        const auto with = [](auto edit) {
            DeckInputs in;
            edit(in);
            return in;
        };
        const auto subtle = TileProminence::subtle, filled = TileProminence::filled;

        QTest::newRow("sources: no rules")
            << DeckTile::sources << plain
            << TileState{u"rectangle.stack"_s, u"Sources"_s, u"Choose"_s, deckColor::teal, subtle};
        QTest::newRow("sources: one rule, no singular")
            << DeckTile::sources << with([](DeckInputs& in) { in.activeRuleCount = 1; })
            << TileState{u"rectangle.stack"_s, u"Sources"_s, u"1 rules"_s, deckColor::teal, subtle};
        QTest::newRow("full desktop: sources off")
            << DeckTile::sources << desktop
            << TileState{u"rectangle.stack"_s, u"Sources"_s, u"Choose"_s,
                         deckColor::teal,      subtle,       false};
        QTest::newRow("full desktop: frame off")
            << DeckTile::frame << desktop
            << TileState{u"aspectratio"_s,     u"Frame"_s, u"Screen"_s,
                         deckColor::secondary, subtle,     false};
        QTest::newRow("full desktop: mode off") << DeckTile::mode << desktop
                                                << TileState{u"line.3.horizontal.decrease.circle"_s,
                                                             u"Mode"_s,
                                                             u"Allow List"_s,
                                                             deckColor::orange,
                                                             subtle,
                                                             false};
        QTest::newRow("full desktop: canvas")
            << DeckTile::canvas << desktop
            << TileState{u"display"_s, u"Canvas"_s, u"Full Desktop"_s, deckColor::purple};
        QTest::newRow("custom image canvas") << DeckTile::canvas << with([](DeckInputs& in) {
            in.canvasMode = CanvasBackgroundMode::customImage;
        }) << TileState{u"photo"_s, u"Canvas"_s, u"Image"_s, deckColor::purple};
        QTest::newRow("no display")
            << DeckTile::display << plain
            << TileState{u"display.2"_s, u"Display"_s, u"Select"_s,      deckColor::blue,
                         subtle,         true,         u"chevron.down"_s};
        QTest::newRow("long display name shortened")
            << DeckTile::display
            << with([](DeckInputs& in) { in.selectedDisplayName = u" Studio Display Left\n"_s; })
            << TileState{u"display.2"_s, u"Display"_s, u"Studio Disp…"_s, deckColor::blue,
                         subtle,         true,         u"chevron.down"_s};
        QTest::newRow("twelve characters kept") << DeckTile::display << with([](DeckInputs& in) {
            in.selectedDisplayName = u"Studio Displ"_s;
        }) << TileState{u"display.2"_s, u"Display"_s, u"Studio Displ"_s, deckColor::blue,
                        subtle,         true,         u"chevron.down"_s};
        QTest::newRow("presets: active title")
            << DeckTile::presets
            << with([](DeckInputs& in) { in.activePresetTitle = u"Meeting"_s; })
            << TileState{u"square.stack.3d.up.fill"_s, u"Presets"_s, u"Meeting"_s,
                         deckColor::indigo};
        QTest::newRow("presets: none matches")
            << DeckTile::presets << plain
            << TileState{u"square.stack.3d.up.fill"_s, u"Presets"_s, u"Custom"_s,
                         deckColor::indigo};
        QTest::newRow("camera on: filled")
            << DeckTile::camera << with([](DeckInputs& in) { in.camera.isEnabled = true; })
            << TileState{u"camera.fill"_s, u"Camera"_s, u"Bottom Right"_s, deckColor::mint, filled};
        QTest::newRow("panic hidden: resume")
            << DeckTile::panic << with([](DeckInputs& in) { in.isPanicHidden = true; })
            << TileState{u"play.fill"_s, u"Resume"_s, u"Output off"_s, deckColor::green, filled};
        QTest::newRow("preview hidden: subtle")
            << DeckTile::preview << plain
            << TileState{u"eye"_s, u"Preview"_s, u"Hidden"_s, deckColor::blue, subtle};
    }
    void tiles()
    {
        QFETCH(DeckTile, tile);
        QFETCH(DeckInputs, inputs);
        QFETCH(TileState, expected);
        const TileState actual = tileState(tile, inputs);
        QCOMPARE(actual.subtitle, expected.subtitle);
        QCOMPARE(actual, expected);
    }

    void statusAndNotice()
    {
        QCOMPARE(statusLine(StreamStatus::blank(OutputBlankReason::panicHidden)),
                 (StatusLine{u"Vistrel Output Is Blank"_s, deckColor::red}));
        QCOMPARE(statusLine(StreamStatus::failed(u"x"_s)),
                 (StatusLine{u"Stream Error"_s, deckColor::red}));
        QCOMPARE(statusLine(StreamStatus::running()),
                 (StatusLine{u"Stream Running"_s, deckColor::green}));

        using P = ScreenRecordingPermissionState;
        const StreamStatus failed = StreamStatus::failed(u"The stream stopped."_s);
        // Permission first, then the discovery error, then the stream.
        QCOMPARE(deckNotice(P::missing, u"boom"_s, failed, u"kept"_s)->tone, NoticeTone::warning);
        QCOMPARE(deckNotice(P::granted, u"boom"_s, failed, u"kept"_s),
                 std::optional(DeckNotice{u"Discovery issue"_s, u"boom"_s, NoticeTone::neutral}));
        QCOMPARE(deckNotice(P::granted, u""_s, failed, {}),
                 std::optional(
                     DeckNotice{u"Stream error"_s, u"The stream stopped."_s, NoticeTone::danger}));
        QCOMPARE(deckNotice(P::granted, std::nullopt, StreamStatus::running(), {}),
                 std::optional<DeckNotice>());
        // Settings that could not be read come last, and may be put away.
        QCOMPARE(deckNotice(P::granted, std::nullopt, failed, u"kept"_s)->tone, NoticeTone::danger);
        QCOMPARE(deckNotice(P::granted, std::nullopt, StreamStatus::running(), u"kept"_s),
                 std::optional(
                     DeckNotice{u"Earlier settings kept"_s, u"kept"_s, NoticeTone::neutral, true}));
    }

    // The information popover's rows and explanations follow every setting.
    void sessionInformation()
    {
        SessionInputs in;
        in.discovered = u"3 apps • 4 windows"_s;
        in.ruleCount = 1;
        const SessionInfo plain = sessionInfo(in);
        QCOMPARE(plain.rows,
                 (QList<std::pair<QString, QString>>{{u"Output"_s, u"Sanitized Windows"_s},
                                                     {u"Mode"_s, u"Allow List"_s},
                                                     {u"Display"_s, u"Not Selected"_s},
                                                     {u"Frame"_s, u"Screen"_s},
                                                     {u"Canvas"_s, u"Black"_s},
                                                     {u"Discovered"_s, u"3 apps • 4 windows"_s},
                                                     {u"Rules"_s, u"1 rule"_s},
                                                     {u"Stream"_s, u"Idle"_s}}));
        QCOMPARE(plain.explanations.last(), u"Use a black canvas behind isolated windows."_s);

        in.contentMode = OutputContentMode::fullDesktop;
        in.visibilityMode = VisibilityMode::blockList;
        in.displayName = u"LEFT"_s;
        in.frameMode = OutputFrameMode::dynamic;
        in.canvas.mode = CanvasBackgroundMode::customImage;
        in.ruleCount = 2;
        in.status = StreamStatus::running();
        const SessionInfo changed = sessionInfo(in);
        QCOMPARE(changed.rows[0].second, u"Full Desktop"_s);
        QCOMPARE(changed.rows[1].second, u"Block List"_s);
        QCOMPARE(changed.rows[2].second, u"LEFT"_s);
        QCOMPARE(changed.rows[3].second, u"Dynamic"_s);
        QCOMPARE(changed.rows[6].second, u"2 rules"_s);
        QCOMPARE(changed.rows[7].second, u"Stream Running"_s);
        QCOMPARE(
            changed.explanations,
            (QStringList{u"Share the full selected display while still excluding Vistrel "
                         "windows from the output."_s,
                         u"Everything on the selected display appears except checked apps "
                         "and windows."_s,
                         u"Automatically crop the output to the outer bounds of the shared "
                         "windows on the selected display."_s,
                         u"Place the isolated windows over a custom image that you choose."_s}));
    }

    void popoverPlacement_data()
    {
        QTest::addColumn<QRect>("anchor");
        QTest::addColumn<QPoint>("origin");
        // A 300 x 200 popover on a 1920 x 1080 screen.
        QTest::newRow("centred under the anchor") << QRect(800, 100, 100, 60) << QPoint(700, 164);
        QTest::newRow("kept inside at the right") << QRect(1850, 100, 60, 60) << QPoint(1620, 164);
        QTest::newRow("above when no room below") << QRect(800, 950, 100, 60) << QPoint(700, 746);
    }
    void popoverPlacement()
    {
        QFETCH(QRect, anchor);
        QFETCH(QPoint, origin);
        QCOMPARE(Popover::placement(anchor, QSize(300, 200), QRect(0, 0, 1920, 1080)), origin);
    }
};

QTEST_APPLESS_MAIN(TestDeckState)
#include "tst_deck_state.moc"
