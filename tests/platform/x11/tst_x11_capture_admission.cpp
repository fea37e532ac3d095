// Which windows each filter form lets into a frame: the rules the compositor
// applies per window, per frame. No display needed.

#include "platform/x11/X11Admission.h"

#include <QTest>

using namespace vistrel;
using namespace vistrel::x11;

Q_DECLARE_METATYPE(vistrel::ContentFilter)
Q_DECLARE_METATYPE(vistrel::x11::AdmissionFacts)

namespace {

constexpr qint32 allowedPid = 100;
constexpr qint32 otherPid = 200;
constexpr quint32 listedWindow = 0x400001;
constexpr quint32 plainWindow = 0x500001;

ContentFilter filter(ContentFilterForm form, QList<qint32> pids, QList<quint32> windows,
                     bool menuBar)
{
    ContentFilter f;
    f.form = form;
    f.processIDs = std::move(pids);
    f.windowIDs = std::move(windows);
    f.includeMenuBar = menuBar;
    return f;
}

AdmissionFacts facts(quint32 window, std::optional<qint32> pid,
                     WindowKind kind = WindowKind::normal)
{
    return AdmissionFacts{window, pid, kind};
}

} // namespace

class TestX11CaptureAdmission : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void admits_data()
    {
        QTest::addColumn<ContentFilter>("filter");
        QTest::addColumn<AdmissionFacts>("window");
        QTest::addColumn<bool>("admitted");

        const auto allow = ContentFilterForm::displayIncludingApplications;
        const auto block = ContentFilterForm::displayExcludingApplications;
        const auto desktop = ContentFilterForm::displayExcludingWindows;

        // Allow list: processes and extra windows, nothing of unknown origin.
        QTest::newRow("allow: window of an allowed process")
            << filter(allow, {allowedPid}, {}, false) << facts(plainWindow, allowedPid) << true;
        QTest::newRow("allow: window of another process")
            << filter(allow, {allowedPid}, {}, false) << facts(plainWindow, otherPid) << false;
        QTest::newRow("allow: extra window of another process")
            << filter(allow, {allowedPid}, {listedWindow}, false) << facts(listedWindow, otherPid)
            << true;
        QTest::newRow("allow: unknown owner left out")
            << filter(allow, {allowedPid}, {}, false) << facts(plainWindow, std::nullopt) << false;
        QTest::newRow("allow: dock without menu bar")
            << filter(allow, {allowedPid}, {}, false)
            << facts(plainWindow, otherPid, WindowKind::dock) << false;
        QTest::newRow("allow: dock with menu bar")
            << filter(allow, {allowedPid}, {}, true)
            << facts(plainWindow, otherPid, WindowKind::dock) << true;
        QTest::newRow("allow: desktop window never, even of an allowed process")
            << filter(allow, {allowedPid}, {}, true)
            << facts(plainWindow, allowedPid, WindowKind::desktop) << false;
        QTest::newRow("allow: empty list admits nothing")
            << filter(allow, {}, {}, false) << facts(plainWindow, allowedPid) << false;

        // Block list: excluded processes and excluded single windows.
        QTest::newRow("block: window of an excluded process")
            << filter(block, {otherPid}, {}, true) << facts(plainWindow, otherPid) << false;
        QTest::newRow("block: window of another process")
            << filter(block, {otherPid}, {}, true) << facts(plainWindow, allowedPid) << true;
        QTest::newRow("block: listed window of an excluded process stays hidden")
            << filter(block, {otherPid}, {listedWindow}, true) << facts(listedWindow, otherPid)
            << false;
        QTest::newRow("block: listed window of a shown process is hidden")
            << filter(block, {otherPid}, {listedWindow}, true) << facts(listedWindow, allowedPid)
            << false;
        QTest::newRow("block: unknown owner left out when processes are excluded")
            << filter(block, {otherPid}, {}, true) << facts(plainWindow, std::nullopt) << false;
        QTest::newRow("block: unknown owner shown when no process is excluded")
            << filter(block, {}, {}, true) << facts(plainWindow, std::nullopt) << true;
        QTest::newRow("block: unknown owner, listed, still left out")
            << filter(block, {otherPid}, {listedWindow}, true) << facts(listedWindow, std::nullopt)
            << false;
        QTest::newRow("block: dock hidden without menu bar")
            << filter(block, {otherPid}, {}, false)
            << facts(plainWindow, allowedPid, WindowKind::dock) << false;
        QTest::newRow("block: dock of an excluded process stays out")
            << filter(block, {otherPid}, {}, true) << facts(plainWindow, otherPid, WindowKind::dock)
            << false;

        // Full desktop minus windows.
        QTest::newRow("desktop: unlisted window of any origin")
            << filter(desktop, {}, {listedWindow}, true) << facts(plainWindow, std::nullopt)
            << true;
        QTest::newRow("desktop: listed window") << filter(desktop, {}, {listedWindow}, true)
                                                << facts(listedWindow, allowedPid) << false;
        QTest::newRow("desktop: process list plays no part")
            << filter(desktop, {allowedPid}, {}, true) << facts(plainWindow, allowedPid) << true;
        QTest::newRow("desktop: dock with menu bar")
            << filter(desktop, {}, {}, true) << facts(plainWindow, otherPid, WindowKind::dock)
            << true;
    }

    void admits()
    {
        QFETCH(ContentFilter, filter);
        QFETCH(AdmissionFacts, window);
        QFETCH(bool, admitted);
        QCOMPARE(x11::admits(filter, window), admitted);
    }

    void desktopBackground_data()
    {
        QTest::addColumn<int>("form");
        QTest::addColumn<bool>("drawn");
        QTest::newRow("full desktop") << int(ContentFilterForm::displayExcludingWindows) << true;
        QTest::newRow("block list") << int(ContentFilterForm::displayExcludingApplications) << true;
        QTest::newRow("allow list")
            << int(ContentFilterForm::displayIncludingApplications) << false;
    }

    void desktopBackground()
    {
        QFETCH(int, form);
        QFETCH(bool, drawn);
        ContentFilter f;
        f.form = ContentFilterForm(form);
        QCOMPARE(drawsDesktopBackground(f), drawn);
    }
};

QTEST_GUILESS_MAIN(TestX11CaptureAdmission)
#include "tst_x11_capture_admission.moc"
