// What the controls show, from the view models' values, by table: the deck's
// tiles, status line and notice order, the information popover, where a
// popover opens, the preset cards and their "Saved …" wording, the source
// picker's rows, and the Canvas and Camera popovers' rules.

#include "control/CameraControls.h"
#include "control/CanvasOptions.h"
#include "control/DeckState.h"
#include "control/ImageDropZone.h"
#include "control/Popover.h"
#include "control/PresetCards.h"
#include "control/SessionInfo.h"
#include "control/SourcePickerRows.h"
#include "coordination/AppListViewModel.h"

#include <QLocale>
#include <QMimeData>
#include <QTest>
#include <QTimeZone>

using namespace Qt::StringLiterals;
using namespace vistrel;

namespace {

const QDateTime now(QDate(2026, 3, 14), QTime(12, 0), QTimeZone::utc());
constexpr qint64 minute = 60, hour = 3600, day = 86400;

QString colourName(const QColor& colour)
{
    using namespace deckColor;
    const std::pair<QColor, const char*> names[] = {
        {red, "red"},       {orange, "orange"},      {yellow, "yellow"}, {green, "green"},
        {mint, "mint"},     {teal, "teal"},          {blue, "blue"},     {indigo, "indigo"},
        {purple, "purple"}, {secondary, "secondary"}};
    for (const auto& [known, name] : names)
        if (known == colour)
            return QString::fromLatin1(name);
    return colour.name();
}

// Every field of a tile on one line: symbol, title, subtitle, colour,
// "filled", then "off" when disabled and the accessory symbol.
QString describe(const TileState& t)
{
    QStringList fields{t.symbolName, t.title, t.subtitle, colourName(t.tint)};
    if (t.prominence == TileProminence::filled)
        fields << u"filled"_s;
    if (!t.isEnabled)
        fields << u"off"_s;
    if (t.accessorySymbolName)
        fields << *t.accessorySymbolName;
    return fields.join(u" | "_s);
}

// Every field of a card: id, title, symbol, badges, summary, status, then
// the flags that hold.
QString describe(const PresetCardState& c)
{
    QStringList fields{c.id,
                       c.title,
                       c.symbolName,
                       c.categoryBadge,
                       c.contentBadge.value_or(u"-"_s),
                       c.frameBadge.value_or(u"-"_s),
                       c.summary,
                       c.status};
    for (const auto& [flag, name] : {std::pair{c.isCustom, "custom"},
                                     {c.isActive, "active"},
                                     {c.canReset, "reset"},
                                     {c.canMoveUp, "up"},
                                     {c.canMoveDown, "down"}})
        if (flag)
            fields << QString::fromLatin1(name);
    return fields.join(u" | "_s);
}

// The options' titles, the selected one marked with "*".
QString describe(const QList<CanvasOption>& options)
{
    QStringList titles;
    for (const CanvasOption& option : options)
        titles << option.title + (option.isSelected ? u"*"_s : QString());
    return titles.join(u", "_s);
}

ShareableWindow window(quint32 id, const QString& title, const AppIdentity& app, bool onScreen,
                       bool active = false)
{
    return ShareableWindow{id, title, QRectF(0, 0, 400, 300), onScreen, active, app};
}

// Mail: its Inbox is the active window, its Draft is off screen.
// Terminal: one untitled window. Clock: no windows.
const QList<ShareableApp>& pickerScene()
{
    static const QList<ShareableApp> apps = [] {
        const AppIdentity mail{u"org.example.mail"_s, u"Mail"_s};
        const AppIdentity terminal{std::nullopt, u"Terminal"_s};
        const AppIdentity clock{u"org.example.clock"_s, u"Clock"_s};
        return QList<ShareableApp>{
            {mail,
             1,
             u"Mail"_s,
             mail.bundleIdentifier,
             {window(1, u"Inbox"_s, mail, true, true), window(2, u"Draft"_s, mail, false)}},
            {terminal, 1, u"Terminal"_s, std::nullopt, {window(3, u"  "_s, terminal, true)}},
            {clock, 1, u"Clock"_s, clock.bundleIdentifier, {}}};
    }();
    return apps;
}

QString badge(const SourceBadge& b)
{
    return b.tone == BadgeTone::warning ? b.text + u" (warning)"_s : b.text;
}

// One line per row, every field the view shows.
QStringList render(const SourcePickerContent& content)
{
    if (const auto& empty = content.emptyState)
        return {empty->symbol, empty->title, empty->text};
    QStringList lines;
    for (const SourcePickerApplicationRow& row : content.applications) {
        QStringList fields{row.name, row.detail, row.windowCount,
                           SourcePickerRows::visibilityText(row.visibility),
                           (row.isSelected ? u"[x] "_s : u"[ ] "_s) + row.actionLabel};
        if (row.hasExpandControl)
            fields.append(row.expandSymbol);
        lines.append(fields.join(u" | "_s));
        for (const SourcePickerWindowRow& w : row.windows) {
            QStringList windowFields{u"  "_s + w.title};
            if (w.focusedBadge)
                windowFields.append(badge(*w.focusedBadge));
            windowFields << badge(w.screenBadge) << SourcePickerRows::visibilityText(w.visibility)
                         << (w.isSelected ? u"[x] "_s : u"[ ] "_s) + w.actionLabel;
            lines.append(windowFields.join(u" | "_s));
        }
    }
    return lines;
}

std::unique_ptr<QMimeData> mimeData(const QList<QUrl>& urls, const QString& text = {})
{
    auto data = std::make_unique<QMimeData>();
    if (!urls.isEmpty())
        data->setUrls(urls);
    if (!text.isEmpty())
        data->setText(text);
    return data;
}

} // namespace

class TestControlRules : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }

    void tiles_data()
    {
        QTest::addColumn<DeckTile>("tile");
        QTest::addColumn<DeckInputs>("inputs");
        QTest::addColumn<QString>("expected");

        const auto with = [](auto edit) {
            DeckInputs in;
            edit(in);
            return in;
        };
        const DeckInputs plain;
        const DeckInputs desktop =
            with([](DeckInputs& in) { in.contentMode = OutputContentMode::fullDesktop; });
        const auto row = [](const char* name, DeckTile tile, const DeckInputs& in,
                            const QString& expected) {
            QTest::newRow(name) << tile << in << expected;
        };
        using T = DeckTile;
        row("sources: no rules", T::sources, plain, u"rectangle.stack | Sources | Choose | teal"_s);
        row("sources: one rule, no singular", T::sources,
            with([](DeckInputs& in) { in.activeRuleCount = 1; }),
            u"rectangle.stack | Sources | 1 rules | teal"_s);
        row("full desktop: sources off", T::sources, desktop,
            u"rectangle.stack | Sources | Choose | teal | off"_s);
        row("full desktop: frame off", T::frame, desktop,
            u"aspectratio | Frame | Screen | secondary | off"_s);
        row("full desktop: mode off", T::mode, desktop,
            u"line.3.horizontal.decrease.circle | Mode | Allow List | orange | off"_s);
        row("full desktop: canvas", T::canvas, desktop,
            u"display | Canvas | Full Desktop | purple"_s);
        row("custom image canvas", T::canvas,
            with([](DeckInputs& in) { in.canvasMode = CanvasBackgroundMode::customImage; }),
            u"photo | Canvas | Image | purple"_s);
        row("no display", T::display, plain,
            u"display.2 | Display | Select | blue | chevron.down"_s);
        row("long display name shortened", T::display,
            with([](DeckInputs& in) { in.selectedDisplayName = u" Studio Display Left\n"_s; }),
            u"display.2 | Display | Studio Disp… | blue | chevron.down"_s);
        row("twelve characters kept", T::display,
            with([](DeckInputs& in) { in.selectedDisplayName = u"Studio Displ"_s; }),
            u"display.2 | Display | Studio Displ | blue | chevron.down"_s);
        row("presets: active title", T::presets,
            with([](DeckInputs& in) { in.activePresetTitle = u"Meeting"_s; }),
            u"square.stack.3d.up.fill | Presets | Meeting | indigo"_s);
        row("presets: none matches", T::presets, plain,
            u"square.stack.3d.up.fill | Presets | Custom | indigo"_s);
        row("camera on: filled", T::camera,
            with([](DeckInputs& in) { in.camera.isEnabled = true; }),
            u"camera.fill | Camera | Bottom Right | mint | filled"_s);
        row("panic hidden: resume", T::panic, with([](DeckInputs& in) { in.isPanicHidden = true; }),
            u"play.fill | Resume | Output off | green | filled"_s);
        row("preview hidden: subtle", T::preview, plain, u"eye | Preview | Hidden | blue"_s);
    }
    void tiles()
    {
        QFETCH(DeckTile, tile);
        QFETCH(DeckInputs, inputs);
        QTEST(describe(tileState(tile, inputs)), "expected");
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
        QStringList values;
        for (const auto& row : changed.rows)
            values << row.second;
        QCOMPARE(values, (QStringList{u"Full Desktop"_s, u"Block List"_s, u"LEFT"_s, u"Dynamic"_s,
                                      u"Image • Not Selected"_s, u"3 apps • 4 windows"_s,
                                      u"2 rules"_s, u"Stream Running"_s}));
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

    void relativeDates_data()
    {
        QTest::addColumn<qint64>("secondsAgo");
        QTest::addColumn<QDateTime>("seenFrom");
        QTest::addColumn<QString>("expected");

        const auto row = [](const char* name, qint64 ago, const QString& expected,
                            const QDateTime& from = now) {
            QTest::newRow(name) << ago << from << expected;
        };
        row("same instant", 0, u"just now"_s);
        row("59 s", 59, u"just now"_s);
        row("clock set back", -hour, u"just now"_s);
        row("60 s", minute, u"1 minute ago"_s);
        row("119 s", 2 * minute - 1, u"1 minute ago"_s);
        row("2 min", 2 * minute, u"2 minutes ago"_s);
        row("59 min 59 s", hour - 1, u"59 minutes ago"_s);
        row("1 h", hour, u"1 hour ago"_s);
        row("2 h", 2 * hour, u"2 hours ago"_s);
        row("23 h 59 min", day - minute, u"23 hours ago"_s);
        row("24 h", day, u"yesterday"_s);
        row("47 h 59 min", 2 * day - minute, u"yesterday"_s);
        row("48 h", 2 * day, u"2 days ago"_s);
        row("just under a week", 7 * day - 1, u"6 days ago"_s);
        row("7 days", 7 * day, u"last week"_s);
        row("13 days", 13 * day, u"last week"_s);
        row("14 days", 14 * day, u"2 weeks ago"_s);
        row("59 days", 59 * day, u"8 weeks ago"_s);
        row("60 days: the date", 60 * day, u"1/13/26"_s);
        // 12:00 UTC is already the next day at UTC+14.
        row("the date as seen from now's zone", 60 * day, u"1/14/26"_s,
            now.toTimeZone(QTimeZone(14 * int(hour))));
    }
    void relativeDates()
    {
        QFETCH(qint64, secondsAgo);
        QFETCH(QDateTime, seenFrom);
        QTEST(relativeSavedText(now.addSecs(-secondsAgo), seenFrom), "expected");
    }

    void cards_data()
    {
        QTest::addColumn<SharePreset>("preset");
        QTest::addColumn<PresetCardContext>("context");
        QTest::addColumn<QString>("expected");

        const QString nothing = u"Nothing is currently selected \u2022 Frame Screen"_s;
        const SharePreset fresh = makeCustomPreset(u"Team Sync"_s);
        const QString freshCard = fresh.id + u" | Team Sync | bookmark | Custom | - | - | "_s +
                                  nothing + u" | Custom preset slot ready | custom"_s;
        QTest::newRow("custom, never saved: slot ready, no reset, no badges")
            << fresh << PresetCardContext{{}, false, now, 0, 1} << freshCard;
        QTest::newRow("built-in, never saved, applied: active, never moves")
            << makeBuiltInPreset(BuiltInPresetKind::meeting)
            << PresetCardContext{u"meeting"_s, true, now, 0, 2}
            << u"meeting | Meeting | person.2.crop.square.stack | Default | - | - | "_s + nothing +
                   u" | Built-in preset slot ready | active"_s;

        SharePreset saved = makeCustomPreset(u"Review"_s);
        saved.configuration.outputContentMode = OutputContentMode::fullDesktop;
        saved.configuration.outputFrameMode = OutputFrameMode::dynamic;
        saved.lastUpdated = now.addSecs(-5 * minute);
        const QString savedCard = saved.id +
                                  u" | Review | bookmark | Custom | Desktop | Dynamic | "_s +
                                  saved.summaryText() + u" | Saved 5 minutes ago | custom"_s;
        QTest::newRow("saved, active, matching: last of two")
            << saved << PresetCardContext{saved.id, true, now, 1, 2}
            << savedCard + u" | active | reset | up"_s;
        QTest::newRow("saved and active, but the live state differs")
            << saved << PresetCardContext{saved.id, false, now, 1, 2}
            << savedCard + u" | reset | up"_s;
        QTest::newRow("matching, but another preset is active")
            << saved << PresetCardContext{u"presentation"_s, true, now, 1, 2}
            << savedCard + u" | reset | up"_s;

        // Changed without being saved: it holds something to reset and
        // badges, yet it was never saved.
        SharePreset blockList = fresh;
        blockList.configuration.policy.mode = VisibilityMode::blockList;
        QTest::newRow("block-list mode only, never saved: first of two")
            << blockList << PresetCardContext{{}, false, now, 0, 2}
            << fresh.id + u" | Team Sync | bookmark | Custom | Sanitized | Screen | "_s + nothing +
                   u" | Custom preset slot ready | custom | reset | down"_s;
    }
    void cards()
    {
        QFETCH(SharePreset, preset);
        QFETCH(PresetCardContext, context);
        QTEST(describe(presetCardState(preset, context)), "expected");
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
        QTEST(presetListHeight(builtIns, customs), "expected");
    }

    void pickerRows_data()
    {
        QTest::addColumn<VisibilityMode>("mode");
        QTest::addColumn<QString>("search");
        QTest::addColumn<QStringList>("expanded");
        QTest::addColumn<bool>("noSources");
        QTest::addColumn<QStringList>("expected");

        const QString idle = u"Choose the whole app or expand for per-window control"_s;
        const QString active = u"Currently active on screen"_s;
        const auto allow = VisibilityMode::allowList;
        const auto block = VisibilityMode::blockList;
        // Both lists hold Terminal; the allow list also holds Mail's Draft, the
        // block list Mail's Inbox.
        QTest::newRow("allow list, collapsed")
            << allow << QString() << QStringList() << false
            << QStringList{
                   u"Mail | "_s + active + u" | 2 windows | Partial | [ ] Show | chevron.right"_s,
                   u"Terminal | "_s + idle + u" | 1 window | Shown | [x] Show | chevron.right"_s,
                   u"Clock | "_s + idle + u" | 0 windows | Hidden | [ ] Show"_s};
        QTest::newRow("block list relabels, keeps each list's selection")
            << block << QString() << QStringList() << false
            << QStringList{
                   u"Mail | "_s + active + u" | 2 windows | Partial | [ ] Hide | chevron.right"_s,
                   u"Terminal | "_s + idle + u" | 1 window | Hidden | [x] Hide | chevron.right"_s,
                   u"Clock | "_s + idle + u" | 0 windows | Shown | [ ] Hide"_s};
        QTest::newRow("expanded windows, untitled shown as the list model shows it")
            << allow << QString() << QStringList{u"org.example.mail"_s, u"name:terminal"_s} << false
            << QStringList{
                   u"Mail | "_s + active + u" | 2 windows | Partial | [ ] Show | chevron.down"_s,
                   u"  Inbox | Focused | On Screen | Hidden | [ ] Show"_s,
                   u"  Draft | Off Screen (warning) | Shown | [x] Show"_s,
                   u"Terminal | "_s + idle + u" | 1 window | Shown | [x] Show | chevron.down"_s,
                   u"  Untitled Window | On Screen | Shown | [x] Show"_s,
                   u"Clock | "_s + idle + u" | 0 windows | Hidden | [ ] Show"_s};
        QTest::newRow("window-title match keeps the app with that window; selection counts all")
            << block << u"INBOX"_s << QStringList{u"org.example.mail"_s} << false
            << QStringList{u"Mail | "_s + active +
                               u" | 1 window | Partial | [ ] Hide | chevron.down"_s,
                           u"  Inbox | Focused | On Screen | Hidden | [x] Hide"_s};
        QTest::newRow("the app stays active when the search leaves out its active window")
            << allow << u"draft"_s << QStringList() << false
            << QStringList{u"Mail | "_s + active +
                           u" | 1 window | Partial | [ ] Show | chevron.right"_s};
        QTest::newRow("no match") << allow << u"zzz"_s << QStringList() << false
                                  << QStringList{u"magnifyingglass"_s, u"No Matching Sources"_s,
                                                 u"Try a different search query."_s};
        QTest::newRow("no sources")
            << allow << u"  "_s << QStringList() << true
            << QStringList{u"square.stack.3d.up.slash"_s, u"No Shareable Sources"_s,
                           u"Vistrel could not find shareable app windows yet. Try refreshing "
                           u"discovery or switching spaces."_s};
    }
    void pickerRows()
    {
        QFETCH(VisibilityMode, mode);
        QFETCH(QString, search);
        QFETCH(QStringList, expanded);
        QFETCH(bool, noSources);

        const QList<ShareableApp>& scene = pickerScene();
        const QList<ShareableApp> all = noSources ? QList<ShareableApp>() : scene;
        VisibilityPolicy policy;
        policy.mode = mode;
        for (RuleSet* rules : {&policy.allowList, &policy.blockList})
            rules->applications.insert(scene[1].identity);
        policy.allowList.windows.insert(WindowIdentity(scene[0].windows[1]));
        policy.blockList.windows.insert(WindowIdentity(scene[0].windows[0]));

        const SourcePickerContent content = SourcePickerRows::build(
            {AppListViewModel::filtered(all, search), all, policy,
             QSet<QString>(expanded.cbegin(), expanded.cend()), search, u"3 apps • 3 windows"_s});
        QTEST(render(content), "expected");
        QCOMPARE(content.summary,
                 u"3 apps • 3 windows ready. Expand an app to fine-tune the shared windows."_s);
    }

    void canvasRows_data()
    {
        QTest::addColumn<OutputContentMode>("content");
        QTest::addColumn<CanvasBackgroundSelection>("canvas");
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("background");
        QTest::addColumn<QString>("imageName");
        QTest::addColumn<bool>("backgroundApplies");

        const QString sanitized = u"Sanitized Windows*, Full Desktop"_s;
        const QString none = u"No image selected yet"_s;
        const CanvasBackgroundSelection image{CanvasBackgroundMode::customImage,
                                              u"CanvasBackgrounds/a.png"_s, u"sunset.png"_s};
        CanvasBackgroundSelection grayKeepsImage = image;
        grayKeepsImage.mode = CanvasBackgroundMode::gray;
        CanvasBackgroundSelection nameWithoutFile = image;
        nameWithoutFile.imageRelativePath.reset();

        const auto S = OutputContentMode::sanitized;
        QTest::newRow("defaults") << S << CanvasBackgroundSelection{} << sanitized
                                  << u"Black*, White, Gray, Custom Image"_s << none << true;
        QTest::newRow("image") << S << image << sanitized << u"Black, White, Gray, Custom Image*"_s
                               << u"sunset.png"_s << true;
        QTest::newRow("a colour keeps the image")
            << S << grayKeepsImage << sanitized << u"Black, White, Gray*, Custom Image"_s
            << u"sunset.png"_s << true;
        QTest::newRow("a name without its file")
            << S << nameWithoutFile << sanitized << u"Black, White, Gray, Custom Image*"_s << none
            << true;
        QTest::newRow("full desktop")
            << OutputContentMode::fullDesktop << image << u"Sanitized Windows, Full Desktop*"_s
            << u"Black, White, Gray, Custom Image*"_s << u"sunset.png"_s << false;
    }
    void canvasRows()
    {
        QFETCH(OutputContentMode, content);
        QFETCH(CanvasBackgroundSelection, canvas);
        const CanvasOptions options = canvasOptions(content, canvas);
        QTEST(describe(options.output), "output");
        QTEST(describe(options.background), "background");
        QTEST(options.imageName, "imageName");
        QTEST(options.backgroundApplies, "backgroundApplies");
    }

    void droppedFiles()
    {
        const QUrl local = QUrl::fromLocalFile(u"/tmp/a.png"_s);
        const QUrl remote(u"https://example.invalid/a.png"_s);
        QCOMPARE(ImageDropZone::droppedFile(*mimeData({}, u"/tmp/a.png"_s)), std::nullopt);
        QCOMPARE(ImageDropZone::droppedFile(*mimeData({remote})), std::nullopt);
        QCOMPARE(ImageDropZone::droppedFile(*mimeData({remote, local})), std::optional(local));
    }

    void cameraRules()
    {
        const QList<CameraDevice> devices{{u"a"_s, u"Front"_s}, {u"b"_s, u"  "_s}};
        const QList<CameraChoice> none{{u"None"_s, std::nullopt}};
        QCOMPARE(cameraChoices({}, std::nullopt), none);
        const QList<CameraChoice> both{{u"Front"_s, u"a"_s}, {u"b"_s, u"b"_s}};
        QCOMPARE(cameraChoices(devices, u"a"_s), none + both);
        // A chosen camera that is unplugged stays a choice.
        const QList<CameraChoice> unplugged{{u"usb-1 (not connected)"_s, u"usb-1"_s}};
        QCOMPARE(cameraChoices({}, u"usb-1"_s), none + unplugged);

        QCOMPARE(initialCameraID(devices, std::nullopt), std::optional(u"a"_s));
        QCOMPARE(initialCameraID(devices, u"b"_s), std::nullopt);
        QCOMPARE(initialCameraID({}, std::nullopt), std::nullopt);

        for (const auto& [scale, value, title] :
             {std::tuple{0.5, 5, u"Size (50%)"_s}, std::tuple{0.7, 7, u"Size (70%)"_s},
              std::tuple{1.1, 11, u"Size (110%)"_s}, std::tuple{2.0, 20, u"Size (200%)"_s}}) {
            QCOMPARE(cameraSizeTitle(scale), title);
            QCOMPARE(sizeSliderValue(scale), value);
            QCOMPARE(sizeScaleFromSlider(value), scale);
        }
        QCOMPARE(sizeSliderValue(3.0), 20);
        QCOMPARE(sizeSliderValue(0.1), 5);
        for (CameraPosition position : allCameraPositions)
            QCOMPARE(hasMargins(position), position != CameraPosition::center);
    }
};

QTEST_GUILESS_MAIN(TestControlRules)
#include "tst_control_rules.moc"
