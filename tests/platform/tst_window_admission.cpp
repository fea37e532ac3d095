// The admission rules every capture backend applies: each filter form
// against each kind of window, and what the rules name by identity.

#include "platform/WindowAdmission.h"

#include <QTest>

using namespace vistrel;
using namespace Qt::StringLiterals;

namespace {

constexpr qint32 namedPid = 100; // named by process id (discovery saw it)
constexpr qint32 newPid = 300;   // a process of a named application discovery has not seen
constexpr qint32 otherPid = 200; // nobody names it
constexpr qint32 ownPid = 900;   // Vistrel
constexpr quint32 listedWindow = 0x400001;
constexpr quint32 ownWindow = 0x900001;

enum Form { allow, block, desktop };

ContentFilter filter(Form form, bool menuBar)
{
    ContentFilter f;
    f.form = form == allow   ? ContentFilterForm::displayIncludingApplications
             : form == block ? ContentFilterForm::displayExcludingApplications
                             : ContentFilterForm::displayExcludingWindows;
    f.processIDs = {namedPid};
    f.windowIDs = {listedWindow};
    f.includeMenuBar = menuBar;
    f.applications = {AppIdentity{std::nullopt, u"Slides"_s},
                      AppIdentity{u"org.example.Mail"_s, u"Mail"_s}};
    f.ownProcessID = ownPid;
    f.ownWindowIDs = {ownWindow};
    return f;
}

WindowFacts window(std::optional<qint32> pid, WindowKind kind = WindowKind::normal,
                   quint32 id = 0x500001, AppIdentity identity = {})
{
    return WindowFacts{id, pid, std::move(identity), kind};
}

const AppIdentity slides{std::nullopt, u"SLIDES"_s};
const AppIdentity mailByBundle{u"org.example.Mail"_s, u"Post"_s};
const AppIdentity mailByNameOnly{std::nullopt, u"mail"_s};

} // namespace

Q_DECLARE_METATYPE(vistrel::WindowFacts)

class TestWindowAdmission : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void admits_data()
    {
        QTest::addColumn<bool>("menuBar");
        QTest::addColumn<WindowFacts>("facts");
        QTest::addColumn<QList<bool>>("admittedInForm"); // allow, block, full desktop

        const auto row = [](const char* name, WindowFacts facts, bool menuBar,
                            QList<bool> admitted) {
            QTest::newRow(name) << menuBar << facts << admitted;
        };
        //                                                                 allow  block  desktop
        row("normal window of a named process", window(namedPid), true, {true, false, true});
        row("normal window of another process", window(otherPid), true, {false, true, true});
        row("dialog/utility of a named process", window(namedPid), false, {true, false, true});
        row("menu follows a named owner", window(namedPid, WindowKind::menu), false,
            {true, false, true});
        row("menu of another process", window(otherPid, WindowKind::menu), false,
            {false, true, true});
        row("dock with the menu bar", window(otherPid, WindowKind::dock), true, {true, true, true});
        row("dock without the menu bar", window(namedPid, WindowKind::dock), false,
            {false, false, false});
        row("dock of a named process with the menu bar", window(namedPid, WindowKind::dock), true,
            {true, false, true});
        row("desktop window", window(namedPid, WindowKind::desktop), true, {false, false, true});
        row("listed window of another process", window(otherPid, WindowKind::normal, listedWindow),
            true, {true, false, false});
        row("listed window of a named process", window(namedPid, WindowKind::normal, listedWindow),
            true, {true, false, false});
        row("unknown owner", window(std::nullopt), true, {false, false, false});
        row("unknown owner, listed", window(std::nullopt, WindowKind::normal, listedWindow), true,
            {false, false, false});
        row("own process", window(ownPid), true, {false, false, false});
        row("own window id, whatever its process", window(otherPid, WindowKind::normal, ownWindow),
            true, {false, false, false});
        row("own process even if named", window(ownPid, WindowKind::normal, 0x500001, slides), true,
            {false, false, false});
        row("new process named by class, any case",
            window(newPid, WindowKind::normal, 0x500001, slides), true, {true, false, true});
        row("new process named by bundle identifier",
            window(newPid, WindowKind::normal, 0x500001, mailByBundle), true, {true, false, true});
        // A rule with a bundle identifier is strict when it admits, loose when it hides.
        row("name alone against a rule with a bundle identifier",
            window(newPid, WindowKind::normal, 0x500001, mailByNameOnly), true,
            {false, false, true});
    }

    void admits()
    {
        QFETCH(bool, menuBar);
        QFETCH(WindowFacts, facts);
        QFETCH(QList<bool>, admittedInForm);
        for (Form form : {allow, block, desktop}) {
            WindowAdmission admission(filter(form, menuBar));
            admission.noteWindow(facts);
            QCOMPARE(admission.admits(facts), admittedInForm.at(form));
        }
    }

    void processNamedByOneWindowHidesItsOthers()
    {
        // The classless popup of a process whose main window names it.
        const WindowFacts main = window(newPid, WindowKind::normal, 0x600001, slides);
        const WindowFacts popup = window(newPid, WindowKind::menu, 0x600002);
        for (Form form : {allow, block}) {
            WindowAdmission admission(filter(form, false));
            QCOMPARE(admission.admits(popup), form == block);
            admission.noteWindow(popup);
            admission.noteWindow(main);
            QCOMPARE(admission.admits(popup), form == allow);
            // A new filter starts again from discovery's processes alone.
            admission.setFilter(filter(form, false));
            QCOMPARE(admission.admits(popup), form == block);
        }
    }

    void desktopBackgroundAndLayers()
    {
        QVERIFY(WindowAdmission(filter(block, true)).drawsDesktop());
        QVERIFY(WindowAdmission(filter(desktop, true)).drawsDesktop());
        QVERIFY(!WindowAdmission(filter(allow, true)).drawsDesktop());
        QCOMPARE(windowKindForLayer(0), WindowKind::normal);
        QCOMPARE(windowKindForLayer(3), WindowKind::normal);
        QCOMPARE(windowKindForLayer(20), WindowKind::dock);
        QCOMPARE(windowKindForLayer(101), WindowKind::menu);
        QCOMPARE(windowKindForLayer(-1000), WindowKind::desktop);
    }
};

QTEST_GUILESS_MAIN(TestWindowAdmission)
#include "tst_window_admission.moc"
