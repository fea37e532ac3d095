// What the presets popover shows, from the presets' values: the "Saved …"
// wording at its boundaries, each card's badges, status and actions, and
// the height of the card list.

#include "control/PresetCards.h"

#include <QLocale>
#include <QTest>
#include <QTimeZone>

using namespace Qt::StringLiterals;
using namespace vistrel;

namespace {

const QDateTime now(QDate(2026, 3, 14), QTime(12, 0), QTimeZone::utc());
constexpr qint64 minute = 60, hour = 3600, day = 86400;

} // namespace

class TestPresetCards : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }

    void relativeDates_data()
    {
        QTest::addColumn<qint64>("secondsAgo");
        QTest::addColumn<QDateTime>("seenFrom");
        QTest::addColumn<QString>("expected");

        const QDateTime kiribati = now.toTimeZone(QTimeZone(14 * int(hour)));
        QTest::newRow("same instant") << qint64(0) << now << u"just now"_s;
        QTest::newRow("59 s") << 59ll << now << u"just now"_s;
        QTest::newRow("clock set back") << -hour << now << u"just now"_s;
        QTest::newRow("60 s") << minute << now << u"1 minute ago"_s;
        QTest::newRow("119 s") << 2 * minute - 1 << now << u"1 minute ago"_s;
        QTest::newRow("2 min") << 2 * minute << now << u"2 minutes ago"_s;
        QTest::newRow("59 min 59 s") << hour - 1 << now << u"59 minutes ago"_s;
        QTest::newRow("1 h") << hour << now << u"1 hour ago"_s;
        QTest::newRow("2 h") << 2 * hour << now << u"2 hours ago"_s;
        QTest::newRow("23 h 59 min") << day - minute << now << u"23 hours ago"_s;
        QTest::newRow("24 h") << day << now << u"yesterday"_s;
        QTest::newRow("47 h 59 min") << 2 * day - minute << now << u"yesterday"_s;
        QTest::newRow("48 h") << 2 * day << now << u"2 days ago"_s;
        QTest::newRow("just under a week") << 7 * day - 1 << now << u"6 days ago"_s;
        QTest::newRow("7 days") << 7 * day << now << u"last week"_s;
        QTest::newRow("13 days") << 13 * day << now << u"last week"_s;
        QTest::newRow("14 days") << 14 * day << now << u"2 weeks ago"_s;
        QTest::newRow("59 days") << 59 * day << now << u"8 weeks ago"_s;
        QTest::newRow("60 days: the date") << 60 * day << now << u"1/13/26"_s;
        // 12:00 UTC is already the next day at UTC+14.
        QTest::newRow("the date as seen from now's zone") << 60 * day << kiribati << u"1/14/26"_s;
    }
    void relativeDates()
    {
        QFETCH(qint64, secondsAgo);
        QFETCH(QDateTime, seenFrom);
        QFETCH(QString, expected);
        QCOMPARE(relativeSavedText(now.addSecs(-secondsAgo), seenFrom), expected);
    }

    void cards_data()
    {
        QTest::addColumn<SharePreset>("preset");
        QTest::addColumn<PresetCardContext>("context");
        QTest::addColumn<PresetCardState>("expected");

        const QString nothing = u"Nothing is currently selected \u2022 Frame Screen"_s;
        const SharePreset fresh = makeCustomPreset(u"Team Sync"_s);
        const PresetCardState freshCard{fresh.id,
                                        u"Team Sync"_s,
                                        u"bookmark"_s,
                                        true,
                                        u"Custom"_s,
                                        false,
                                        {},
                                        {},
                                        nothing,
                                        u"Custom preset slot ready"_s};
        QTest::newRow("custom, never saved: slot ready, no reset, no badges")
            << fresh << PresetCardContext{{}, false, now, 0, 1} << freshCard;

        const SharePreset meeting = makeBuiltInPreset(BuiltInPresetKind::meeting);
        QTest::newRow("built-in, never saved, applied: active, never moves")
            << meeting << PresetCardContext{u"meeting"_s, true, now, 0, 2}
            << PresetCardState{u"meeting"_s,
                               u"Meeting"_s,
                               u"person.2.crop.square.stack"_s,
                               false,
                               u"Default"_s,
                               true,
                               {},
                               {},
                               nothing,
                               u"Built-in preset slot ready"_s};

        SharePreset saved = makeCustomPreset(u"Review"_s);
        saved.configuration.outputContentMode = OutputContentMode::fullDesktop;
        saved.configuration.outputFrameMode = OutputFrameMode::dynamic;
        saved.lastUpdated = now.addSecs(-5 * minute);
        PresetCardState savedCard{saved.id,
                                  u"Review"_s,
                                  u"bookmark"_s,
                                  true,
                                  u"Custom"_s,
                                  true,
                                  u"Desktop"_s,
                                  u"Dynamic"_s,
                                  saved.summaryText(),
                                  u"Saved 5 minutes ago"_s,
                                  true,
                                  true,
                                  false};
        QTest::newRow("saved, active, matching: last of two")
            << saved << PresetCardContext{saved.id, true, now, 1, 2} << savedCard;
        savedCard.isActive = false;
        QTest::newRow("saved and active, but the live state differs")
            << saved << PresetCardContext{saved.id, false, now, 1, 2} << savedCard;
        QTest::newRow("matching, but another preset is active")
            << saved << PresetCardContext{u"presentation"_s, true, now, 1, 2} << savedCard;

        // Changed without being saved: it holds something to reset and
        // badges, yet it was never saved.
        SharePreset blockList = fresh;
        blockList.configuration.policy.mode = VisibilityMode::blockList;
        PresetCardState blockListCard = freshCard;
        blockListCard.contentBadge = u"Sanitized"_s;
        blockListCard.frameBadge = u"Screen"_s;
        blockListCard.canReset = true;
        blockListCard.canMoveDown = true;
        QTest::newRow("block-list mode only, never saved: first of two")
            << blockList << PresetCardContext{{}, false, now, 0, 2} << blockListCard;
    }
    void cards()
    {
        QFETCH(SharePreset, preset);
        QFETCH(PresetCardContext, context);
        QFETCH(PresetCardState, expected);
        const PresetCardState actual = presetCardState(preset, context);
        QCOMPARE(actual.status, expected.status);
        QCOMPARE(actual.contentBadge, expected.contentBadge);
        QCOMPARE(actual.frameBadge, expected.frameBadge);
        QCOMPARE(actual.isActive, expected.isActive);
        QCOMPARE(actual, expected);
    }

    void listHeight_data()
    {
        QTest::addColumn<int>("builtIns");
        QTest::addColumn<int>("customs");
        QTest::addColumn<int>("expected");
        QTest::newRow("no custom preset: no custom heading") << 2 << 0 << 396;
        QTest::newRow("one custom: heading and card, exactly the maximum") << 2 << 1 << 560;
        QTest::newRow("two customs: clamped down") << 2 << 2 << 560;
        QTest::newRow("one of each") << 1 << 1 << 422;
        QTest::newRow("one built-in: clamped up") << 1 << 0 << 318;
        QTest::newRow("nothing: clamped up") << 0 << 0 << 318;
    }
    void listHeight()
    {
        QFETCH(int, builtIns);
        QFETCH(int, customs);
        QFETCH(int, expected);
        QCOMPARE(presetListHeight(builtIns, customs), expected);
    }
};

QTEST_GUILESS_MAIN(TestPresetCards)
#include "tst_preset_cards.moc"
