#include "control/ApplicationRowView.h"
#include "control/SourcePickerList.h"
#include "control/SourcePickerView.h"
#include "control/WindowRowView.h"
#include "coordination/support_coordination_rig.h"

#include <QApplication>
#include <QCheckBox>
#include <QLineEdit>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

using namespace Qt::StringLiterals;
using namespace vistrel;
using namespace vistrel::test;

namespace {

constexpr int applicationCount = 30;

qint32 pid(int app)
{
    return 100 + app;
}
quint32 windowID(int app, int window)
{
    return quint32(1000 + app * 10 + window);
}
QString key(int app)
{
    return u"org.example.app%1"_s.arg(app, 2, 10, QChar(u'0'));
}

// 30 applications with two windows each on one display.
SimScene pickerScene()
{
    SimScene s;
    s.displays = {makeSimDisplay(1, QRectF(0, 0, 1920, 1080), u"Main"_s)};
    for (int a = 0; a < applicationCount; ++a) {
        s.applications.append({pid(a), key(a), u"Application %1"_s.arg(a, 2, 10, QChar(u'0'))});
        for (int w = 0; w < 2; ++w) {
            s.windows.append(makeSimWindow(windowID(a, w), pid(a), QRectF(10 * a, 10 * w, 300, 200),
                                           Qt::gray, u"Document %1-%2"_s.arg(a).arg(w)));
        }
    }
    return s;
}

bool publish(CoordinationRig& rig)
{
    QSignalSpy published(rig.mainViewModel->appListViewModel(),
                         &AppListViewModel::allApplicationsChanged);
    rig.discovery.refreshOnce();
    if (!published.wait(3000))
        return false;
    settle();
    return true;
}

} // namespace

class SourcePickerViewTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void refreshKeepsRowsScrollExpansionAndFocus();
};

void SourcePickerViewTest::refreshKeepsRowsScrollExpansionAndFocus()
{
    CoordinationRig rig(pickerScene());
    MainViewModel& model = rig.makeMainViewModel();
    QVERIFY(publish(rig));

    SourcePickerView view(model, nullptr);
    view.resize(520, 420);
    view.show();
    QVERIFY(QTest::qWaitForWindowActive(&view));
    SourcePickerList* list = view.list();
    QScrollBar* scroll = list->verticalScrollBar();
    QVERIFY(scroll->maximum() > 0);
    scroll->setValue(scroll->maximum() / 2);
    const int scrolled = scroll->value();

    list->applicationRow(key(15))->expandButton()->click();
    QVERIFY(list->windowRow(windowID(15, 0)));
    QCheckBox* focused = list->applicationRow(key(16))->actionButton();
    focused->setFocus();
    QCOMPARE(QApplication::focusWidget(), focused);

    QList<QWidget*> before;
    for (int a = 0; a < applicationCount - 1; ++a)
        before.append(list->applicationRow(key(a)));
    WindowRowView* renamed = list->windowRow(windowID(15, 1));

    // A title changed, a window added, an application gone.
    rig.world.edit([](SimScene& s) {
        for (SimWindow& w : s.windows) {
            if (w.windowID == windowID(15, 1))
                w.title = u"Document renamed"_s;
        }
        s.windows.append(makeSimWindow(windowID(3, 5), pid(3), QRectF(0, 0, 100, 100), Qt::gray,
                                       u"Document added"_s));
        s.windows.removeIf([](const SimWindow& w) { return w.ownerProcessID == pid(29); });
    });
    QVERIFY(publish(rig));

    for (int a = 0; a < applicationCount - 1; ++a)
        QCOMPARE(list->applicationRow(key(a)), before[a]);
    QVERIFY(!list->applicationRow(key(29)));
    QCOMPARE(list->windowRow(windowID(15, 1)), renamed);
    QCOMPARE(renamed->row().title, u"Document renamed"_s);
    QCOMPARE(list->applicationRow(key(3))->row().windowCount, u"3 windows"_s);
    QCOMPARE(scroll->value(), scrolled);
    QCOMPARE(QApplication::focusWidget(), focused);

    // The action checks the whole application into the active list.
    const ShareableApp app16 = list->applicationRow(key(16))->row().app;
    focused->click();
    settle();
    QVERIFY(model.policy().allowList.applications.contains(app16.identity));
    QVERIFY(focused->isChecked());
    QCOMPARE(focused->text(), u"Show"_s);

    QTest::keyClicks(view.searchField(), u"zzz"_s);
    QCOMPARE(model.appListViewModel()->searchQuery(), u"zzz"_s);
    settle();
    QCOMPARE(view.content().emptyState->title, u"No Matching Sources"_s);
    QVERIFY(!list->isVisible());
}

QTEST_MAIN(SourcePickerViewTest)
#include "tst_source_picker_view.moc"
