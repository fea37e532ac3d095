#include "coordination/AppListViewModel.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vistrel;

namespace {

ShareableApp makeApp(qint32 pid, const QString& name, std::optional<QString> bundle,
                     const QStringList& titles)
{
    ShareableApp app;
    app.identity = AppIdentity{bundle, name};
    app.processID = pid;
    app.applicationName = name;
    app.bundleIdentifier = bundle;
    quint32 id = quint32(pid) * 100;
    for (const QString& title : titles) {
        ShareableWindow window;
        window.id = ++id;
        window.title = title;
        window.frame = QRectF(0, 0, 400, 300);
        window.isOnScreen = true;
        window.application = app.identity;
        app.windows.append(window);
    }
    return app;
}

// Mail's third window has no title (only blanks); Postbox matches "mail"
// only through its bundle identifier.
QList<ShareableApp> sampleApps()
{
    return {
        makeApp(1, u"Mail"_s, u"com.example.mail"_s, {u"Inbox"_s, u"Quarterly Report"_s, u"  "_s}),
        makeApp(2, u"Postbox"_s, u"org.example.MailClient"_s, {u"Compose"_s}),
        makeApp(3, u"Terminal"_s, std::nullopt, {u"build"_s, u"Notes"_s, u""_s}),
        makeApp(4, u"Café"_s, std::nullopt, {u"Résumé"_s, u"Menu"_s}),
    };
}

// "App[window, window]" for every listed application, windows by title as
// stored, so a reduced entry shows which windows it kept.
QStringList describe(const QList<ShareableApp>& apps)
{
    QStringList result;
    for (const ShareableApp& app : apps) {
        QStringList titles;
        for (const ShareableWindow& window : app.windows)
            titles.append(u"'"_s + window.title + u"'"_s);
        result.append(app.applicationName + u"["_s + titles.join(u", "_s) + u"]"_s);
    }
    return result;
}

} // namespace

class AppListViewModelTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void filtering_data()
    {
        QTest::addColumn<QString>("query");
        QTest::addColumn<QStringList>("expected");

        const QStringList all = describe(sampleApps());
        const QString mailWhole = u"Mail['Inbox', 'Quarterly Report', '  ']"_s;
        const QString postboxWhole = u"Postbox['Compose']"_s;

        QTest::newRow("empty") << u""_s << all;
        QTest::newRow("blanks and line breaks only") << u"  \t\n "_s << all;
        QTest::newRow("name or bundle, any case, all windows")
            << u"MAIL"_s << QStringList{mailWhole, postboxWhole};
        QTest::newRow("bundle identifier alone keeps the whole app")
            << u"CLIENT"_s << QStringList{postboxWhole};
        QTest::newRow("only the matching middle window")
            << u"report"_s << QStringList{u"Mail['Quarterly Report']"_s};
        QTest::newRow("trimmed at the ends only")
            << u"\n  notes \t"_s << QStringList{u"Terminal['Notes']"_s};
        QTest::newRow("inner spacing counts") << u"quarterly  report"_s << QStringList{};
        QTest::newRow("untitled finds blank titles")
            << u"untitled"_s << QStringList{u"Mail['  ']"_s, u"Terminal['']"_s};
        QTest::newRow("window finds blank titles, any case")
            << u"WINDOW"_s << QStringList{u"Mail['  ']"_s, u"Terminal['']"_s};
        QTest::newRow("diacritics count") << u"resume"_s << QStringList{};
        QTest::newRow("non-ASCII lower-casing") << u"RÉSUMÉ"_s << QStringList{u"Café['Résumé']"_s};
        QTest::newRow("name match keeps every window")
            << u"café"_s << QStringList{u"Café['Résumé', 'Menu']"_s};
        QTest::newRow("order of the source list")
            << u"o"_s << QStringList{mailWhole, postboxWhole, u"Terminal['Notes', '']"_s};
        QTest::newRow("no match") << u"zzz"_s << QStringList{};
    }

    void filtering()
    {
        QFETCH(QString, query);
        QFETCH(QStringList, expected);

        AppListViewModel model;
        model.update(sampleApps(), VisibilityPolicy{});
        model.setSearchQuery(query);
        QCOMPARE(describe(model.applications()), expected);
        // The query is kept as typed; only matching trims it.
        QCOMPARE(model.searchQuery(), query);
        // Filtering never edits the full list.
        QCOMPARE(model.allApplications(), sampleApps());
    }

    void newListIsFilteredByTheCurrentQuery()
    {
        AppListViewModel model;
        model.setSearchQuery(u"notes"_s);
        QVERIFY(model.applications().isEmpty());

        QSignalSpy applicationsChanged(&model, &AppListViewModel::applicationsChanged);
        model.update(sampleApps(), VisibilityPolicy{});
        QCOMPARE(describe(model.applications()), QStringList{u"Terminal['Notes']"_s});
        QCOMPARE(applicationsChanged.count(), 1);

        // A refresh with an equal list publishes nothing.
        model.update(sampleApps(), VisibilityPolicy{});
        QCOMPARE(applicationsChanged.count(), 1);

        // The window moved away: the list follows, the query stays.
        QList<ShareableApp> changed = sampleApps();
        changed[2].windows.removeAt(1);
        model.update(changed, VisibilityPolicy{});
        QVERIFY(model.applications().isEmpty());
        QCOMPARE(model.searchQuery(), u"notes"_s);

        model.setSearchQuery(QString());
        QCOMPARE(model.applications(), changed);
    }

    void windowShownFollowsModeAndRules_data()
    {
        QTest::addColumn<VisibilityMode>("mode");
        QTest::addColumn<bool>("applicationRule");
        QTest::addColumn<bool>("windowRule");
        QTest::addColumn<bool>("shown");

        QTest::newRow("allow, app rule") << VisibilityMode::allowList << true << false << true;
        QTest::newRow("block, app rule") << VisibilityMode::blockList << true << false << false;
        QTest::newRow("allow, window rule") << VisibilityMode::allowList << false << true << true;
        QTest::newRow("block, window rule") << VisibilityMode::blockList << false << true << false;
        QTest::newRow("allow, no rule") << VisibilityMode::allowList << false << false << false;
        QTest::newRow("block, no rule") << VisibilityMode::blockList << false << false << true;
    }

    void windowShownFollowsModeAndRules()
    {
        QFETCH(VisibilityMode, mode);
        QFETCH(bool, applicationRule);
        QFETCH(bool, windowRule);
        QFETCH(bool, shown);

        const QList<ShareableApp> apps = sampleApps();
        const ShareableApp& mail = apps.at(0);
        const ShareableWindow& inbox = mail.windows.at(0);

        VisibilityPolicy policy;
        policy.mode = mode;
        if (applicationRule)
            policy.activeRules().applications.insert(mail.identity);
        if (windowRule)
            policy.activeRules().windows.insert(WindowIdentity(inbox));
        // The inactive list's rules must not count.
        RuleSet& inactive = mode == VisibilityMode::allowList ? policy.blockList : policy.allowList;
        inactive.applications.insert(mail.identity);

        AppListViewModel model;
        model.update(apps, policy);
        QCOMPARE(model.isWindowShown(inbox), shown);
        // A sibling without a rule of its own follows only the app rule.
        const bool siblingCovered = applicationRule;
        QCOMPARE(model.isWindowShown(mail.windows.at(1)),
                 mode == VisibilityMode::allowList ? siblingCovered : !siblingCovered);
    }
};

QTEST_GUILESS_MAIN(AppListViewModelTest)
#include "tst_app_list_view_model.moc"
