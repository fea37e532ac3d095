// The preview panel: its frame over the control window and the presets that
// get a chip, by table; then the panel on the scripted desktop (Qt's
// offscreen platform) as the user meets it: it follows the control window,
// moves it when dragged, and its buttons act on the main view model.

#include "app/AppEnvironment.h"
#include "app/PlatformServices.h"
#include "coordination/MainViewModel.h"
#include "coordination/PresetModel.h"
#include "presentation/PopoverHub.h"
#include "presentation/PreviewChips.h"
#include "presentation/PreviewPanel.h"
#include "presentation/PreviewPanelController.h"
#include "presentation/WindowRegistry.h"

#include <QAbstractButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vistrel;

namespace {

const QRect control{700, 770, 520, 170};

ShareableDisplay display(qreal width, qreal height)
{
    ShareableDisplay result;
    result.logicalSize = QSizeF(width, height);
    return result;
}

SharePreset preset(const QString& id, bool saved)
{
    SharePreset result;
    result.id = id;
    result.title = id.toUpper();
    if (saved)
        result.lastUpdated = QDateTime(QDate(2026, 11, 1), QTime(9, 0), Qt::UTC);
    return result;
}

} // namespace

class TestPreviewPanel : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void frameKeepsTheAspectRatio_data()
    {
        QTest::addColumn<std::optional<QSizeF>>("canvas");
        QTest::addColumn<std::optional<ShareableDisplay>>("active");
        QTest::addColumn<std::optional<ShareableDisplay>>("preferred");
        QTest::addColumn<int>("height");

        using Screen = std::optional<ShareableDisplay>;
        QTest::newRow("4:3 canvas")
            << std::optional(QSizeF(1024, 768)) << Screen(display(1920, 1080)) << Screen() << 390;
        QTest::newRow("active display") << std::optional<QSizeF>() << Screen(display(2560, 1600))
                                        << Screen(display(1920, 1080)) << 325;
        QTest::newRow("an empty canvas counts as none")
            << std::optional(QSizeF(0, 768)) << Screen() << Screen(display(1440, 900)) << 325;
        QTest::newRow("nothing: 16:9") << std::optional<QSizeF>() << Screen() << Screen() << 293;
        QTest::newRow("a flat display: 16:9")
            << std::optional<QSizeF>() << Screen(display(1920, 0)) << Screen() << 293;
    }

    void frameKeepsTheAspectRatio()
    {
        QFETCH(std::optional<QSizeF>, canvas);
        QFETCH(std::optional<ShareableDisplay>, active);
        QFETCH(std::optional<ShareableDisplay>, preferred);
        QFETCH(int, height);
        const QSizeF ratio = PreviewPanelController::aspectRatio(canvas, active, preferred);
        // As wide as the control window, 4 above its top edge.
        QCOMPARE(PreviewPanelController::panelFrame(control, ratio),
                 QRect(700, 770 - 4 - height, 520, height));
    }

    void chipsForSavedPresetsOnly()
    {
        const QList<SharePreset> presets{preset(u"a"_s, true), preset(u"b"_s, false),
                                         preset(u"c"_s, true)};
        QCOMPARE(previewChips(presets, u"c"_s),
                 (QList<PreviewChip>{{u"a"_s, u"A"_s, false}, {u"c"_s, u"C"_s, true}}));
        QCOMPARE(previewChips(presets, u"b"_s).size(), 2);
        QVERIFY(previewChips({preset(u"b"_s, false)}, std::nullopt).isEmpty());
    }

    void panelFollowsAndActs()
    {
        QTemporaryDir root;
        AppEnvironment environment(createPlatformServices({PlatformBackendKind::sim, u"test"_s}),
                                   root.path());
        MainViewModel& model = environment.mainViewModel();
        WindowRegistry& registry = environment.windowRegistry();
        model.start();
        PopoverHub hub;
        QWidget controlWindow;
        controlWindow.setGeometry(control);
        controlWindow.show();
        PreviewPanelController controller(registry, environment.outputViewModel(), model, hub,
                                          &controlWindow);
        QVERIFY(!controller.panel());

        // Shown twice: one panel, over the control window.
        registry.setPreviewVisible(true);
        registry.setPreviewVisible(false);
        registry.setPreviewVisible(true);
        PreviewPanel* panel = controller.panel();
        QVERIFY(panel && panel->isVisible());
        QCOMPARE(controlWindow.findChildren<PreviewPanel*>().size(), 1);
        QCOMPARE(panel->windowTitle(), u"Vistrel Preview"_s);
        // Client areas: the offscreen platform gives windows a frame.
        const auto attached = [&] {
            const QRect c = controlWindow.geometry();
            return panel->geometry() == QRect(c.left(), c.top() - 4 - 293, 520, 293);
        };
        QVERIFY(attached());

        // It follows the control window; dragging it moves the control window.
        controlWindow.move(100, 600);
        QVERIFY(attached());
        QSignalSpy closeRequests(&hub, &PopoverHub::closePopovers);
        QTest::mousePress(panel, Qt::LeftButton, {}, QPoint(200, 100));
        QCOMPARE(closeRequests.size(), 1);
        QTest::mouseMove(panel, QPoint(250, 130));
        QTest::mouseRelease(panel, Qt::LeftButton, {}, QPoint(250, 130));
        QCOMPARE(controlWindow.pos(), QPoint(150, 630));
        QVERIFY(attached());

        // The camera button flips the bubble.
        const bool cameraWasOn = model.cameraOverlay().isEnabled;
        panel->cameraButton()->click();
        QCOMPARE(model.cameraOverlay().isEnabled, !cameraWasOn);

        // A chip per saved preset; a chip applies its preset.
        QVERIFY(panel->chips().isEmpty());
        const QList<SharePreset> builtIns = model.presetModel()->builtInPresets();
        model.savePreset(builtIns.at(0).id);
        model.savePreset(builtIns.at(1).id);
        QCOMPARE(panel->chips().size(), 2);
        panel->chips().at(0)->click();
        QCOMPARE(model.presetModel()->activePresetID(), std::optional(builtIns.at(0).id));

        // Hidden with the control window and when not wanted; a later move
        // does not bring it back.
        controlWindow.hide();
        QVERIFY(!panel->isVisible());
        controlWindow.show();
        QVERIFY(panel->isVisible());
        registry.setPreviewVisible(false);
        QVERIFY(!panel->isVisible());
        controlWindow.move(300, 600);
        QVERIFY(!panel->isVisible());
    }
};

QTEST_MAIN(TestPreviewPanel)
#include "tst_preview_panel.moc"
