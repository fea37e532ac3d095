// The control deck on the scripted desktop (Qt's offscreen platform): tiles
// act on the view model, one popover at a time, the application-wide close
// request, and choices in the single-choice popovers.

#include "app/AppEnvironment.h"
#include "app/PlatformServices.h"
#include "control/CompactTile.h"
#include "control/ControlDeck.h"
#include "control/OptionRow.h"
#include "control/Popover.h"
#include "control/PresetPopover.h"
#include "coordination/MainViewModel.h"
#include "presentation/PopoverHub.h"
#include "presentation/WindowRegistry.h"

#include <QLabel>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vistrel;

class TestControlDeck : public QObject {
    Q_OBJECT

    QList<OptionRow*> rows(const ControlDeck& deck)
    {
        const auto popovers = deck.findChildren<Popover*>();
        for (Popover* popover : popovers)
            if (popover->isVisible())
                return popover->findChildren<OptionRow*>();
        return {};
    }

private Q_SLOTS:
    void tilesAndPopovers()
    {
        QTemporaryDir root;
        AppEnvironment environment(createPlatformServices({PlatformBackendKind::sim, u"test"_s}),
                                   root.path());
        MainViewModel& model = environment.mainViewModel();
        model.start();
        PopoverHub hub;
        int previewToggles = 0;
        ControlDeck::Actions actions{[&] { ++previewToggles; },
                                     [] {
                                     }};
        const QString panicKeyProblem = u"Ctrl+Shift+H is taken by another application"_s;
        actions.panicKeyProblem = [&] {
            return panicKeyProblem;
        };
        ControlDeck deck(model, environment.windowRegistry(), hub, std::move(actions), nullptr);
        deck.resize(520, 170);
        deck.show();
        QTRY_VERIFY(!model.displays().isEmpty());

        // Panic and preview act at once; the panic tile follows.
        QTest::mouseClick(deck.tile(DeckTile::panic), Qt::LeftButton);
        QVERIFY(model.isPanicHidden());
        QCOMPARE(deck.tile(DeckTile::panic)->state().title, u"Resume"_s);
        QTest::mouseClick(deck.tile(DeckTile::preview), Qt::LeftButton);
        QCOMPARE(previewToggles, 1);

        // One popover at a time; the application-wide request closes it.
        QTest::mouseClick(deck.tile(DeckTile::mode), Qt::LeftButton);
        QCOMPARE(deck.activePopover(), std::optional(DeckPopover::mode));
        deck.openPopover(DeckPopover::frame);
        QCOMPARE(deck.activePopover(), std::optional(DeckPopover::frame));
        QCOMPARE(rows(deck).size(), 2);
        hub.requestClosePopovers();
        QTRY_COMPARE(deck.activePopover(), std::optional<DeckPopover>());

        // Choosing the selected row closes the popover and changes nothing.
        deck.openPopover(DeckPopover::frame);
        QSignalSpy changes(&model, &MainViewModel::configurationChanged);
        QVERIFY(rows(deck).first()->isSelected());
        QTest::mouseClick(rows(deck).first(), Qt::LeftButton);
        QTRY_COMPARE(deck.activePopover(), std::optional<DeckPopover>());
        QCOMPARE(changes.size(), 0);

        // The display popover: one row per display and "No Display".
        deck.openPopover(DeckPopover::display);
        const QList<OptionRow*> displayRows = rows(deck);
        QCOMPARE(displayRows.size(), model.displays().size() + 1);
        QCOMPARE(displayRows.last()->text(), u"No Display"_s);
        QTest::mouseClick(displayRows.last(), Qt::LeftButton);
        QCOMPARE(model.selectedDisplayID(), std::optional<quint32>());
        QCOMPARE(deck.tile(DeckTile::display)->state().subtitle, u"Select"_s);

        // The Presets tile opens the presets popover.
        QTest::mouseClick(deck.tile(DeckTile::presets), Qt::LeftButton);
        QCOMPARE(deck.activePopover(), std::optional(DeckPopover::presets));
        QVERIFY(deck.findChild<PresetPopover*>());

        // The information popover says when the panic key works only here.
        deck.openPopover(DeckPopover::info);
        bool said = false;
        for (const QLabel* label : deck.findChildren<QLabel*>())
            said = said || (label->isVisible() && label->text() == panicKeyProblem);
        QVERIFY(said);

        // Another mode from its popover.
        deck.openPopover(DeckPopover::mode);
        QTest::mouseClick(rows(deck).last(), Qt::LeftButton);
        QCOMPARE(model.policy().mode, VisibilityMode::blockList);
        QCOMPARE(deck.tile(DeckTile::mode)->state().subtitle, u"Block List"_s);
    }
};

QTEST_MAIN(TestControlDeck)
#include "tst_control_deck.moc"
