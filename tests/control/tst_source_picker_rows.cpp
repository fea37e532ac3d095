#include "control/SourcePickerRows.h"
#include "coordination/AppListViewModel.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace vistrel;

namespace {

ShareableWindow window(quint32 id, const QString& title, const AppIdentity& app, bool onScreen,
                       bool active = false)
{
    return ShareableWindow{id, title, QRectF(0, 0, 400, 300), onScreen, active, app};
}

ShareableApp app(const std::optional<QString>& bundle, const QString& name,
                 QList<ShareableWindow> (*windows)(const AppIdentity&))
{
    const AppIdentity identity{bundle, name};
    return ShareableApp{identity, 1, name, bundle, windows(identity)};
}

// Mail: its Inbox is the active window, its Draft is off screen.
// Terminal: one window. Clock: no windows.
const QList<ShareableApp>& scene()
{
    static const QList<ShareableApp> apps = {
        app(u"org.example.mail"_s, u"Mail"_s,
            [](const AppIdentity& a) {
                return QList{window(1, u"Inbox"_s, a, true, true), window(2, u"Draft"_s, a, false)};
            }),
        app(std::nullopt, u"Terminal"_s,
            [](const AppIdentity& a) { return QList{window(3, u"  "_s, a, true)}; }),
        app(u"org.example.clock"_s, u"Clock"_s,
            [](const AppIdentity&) { return QList<ShareableWindow>(); }),
    };
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

const QString idle = u"Choose the whole app or expand for per-window control"_s;
const QString active = u"Currently active on screen"_s;

} // namespace

class SourcePickerRowsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void rows_data();
    void rows();
};

void SourcePickerRowsTest::rows_data()
{
    QTest::addColumn<VisibilityMode>("mode");
    QTest::addColumn<QString>("search");
    QTest::addColumn<QStringList>("expanded");
    QTest::addColumn<bool>("noSources");
    QTest::addColumn<QStringList>("expected");

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
        << QStringList{u"Mail | "_s + active +
                           u" | 2 windows | Partial | [ ] Show | chevron.down"_s,
                       u"  Inbox | Focused | On Screen | Hidden | [ ] Show"_s,
                       u"  Draft | Off Screen (warning) | Shown | [x] Show"_s,
                       u"Terminal | "_s + idle + u" | 1 window | Shown | [x] Show | chevron.down"_s,
                       u"  Untitled Window | On Screen | Shown | [x] Show"_s,
                       u"Clock | "_s + idle + u" | 0 windows | Hidden | [ ] Show"_s};
    QTest::newRow("window-title match keeps the app with that window; selection counts all")
        << block << u"INBOX"_s << QStringList{u"org.example.mail"_s} << false
        << QStringList{u"Mail | "_s + active + u" | 1 window | Partial | [ ] Hide | chevron.down"_s,
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

void SourcePickerRowsTest::rows()
{
    QFETCH(VisibilityMode, mode);
    QFETCH(QString, search);
    QFETCH(QStringList, expanded);
    QFETCH(bool, noSources);
    QFETCH(QStringList, expected);

    const QList<ShareableApp> all = noSources ? QList<ShareableApp>() : scene();
    VisibilityPolicy policy;
    policy.mode = mode;
    const ShareableApp& mail = scene()[0];
    for (RuleSet* rules : {&policy.allowList, &policy.blockList})
        rules->applications.insert(scene()[1].identity);
    policy.allowList.windows.insert(WindowIdentity(mail.windows[1]));
    policy.blockList.windows.insert(WindowIdentity(mail.windows[0]));

    const SourcePickerContent content = SourcePickerRows::build(
        {AppListViewModel::filtered(all, search), all, policy,
         QSet<QString>(expanded.cbegin(), expanded.cend()), search, u"3 apps • 3 windows"_s});
    QCOMPARE(render(content), expected);
    QCOMPARE(content.summary,
             u"3 apps • 3 windows ready. Expand an app to fine-tune the shared windows."_s);
}

QTEST_GUILESS_MAIN(SourcePickerRowsTest)
#include "tst_source_picker_rows.moc"
