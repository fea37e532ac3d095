// The Canvas and Camera Overlay popovers: their rules by table, then each
// popover driven like a user on the scripted desktop (Qt's offscreen
// platform) with a real main view model.

#include "app/AppEnvironment.h"
#include "app/PlatformServices.h"
#include "control/CameraControls.h"
#include "control/CameraPopover.h"
#include "control/CanvasOptions.h"
#include "control/CanvasPopover.h"
#include "control/CompactTile.h"
#include "control/ControlDeck.h"
#include "control/ImageDropZone.h"
#include "control/OptionRow.h"
#include "coordination/CameraSessionManager.h"
#include "coordination/MainViewModel.h"
#include "platform/camera/TestPatternCamera.h"
#include "presentation/PopoverHub.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QMimeData>
#include <QPushButton>
#include <QSlider>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

using namespace Qt::StringLiterals;
using namespace vistrel;

namespace {

using Titles = QList<std::pair<QString, bool>>;

Titles titles(const QList<CanvasOption>& options)
{
    Titles result;
    for (const CanvasOption& option : options)
        result.append({option.title, option.isSelected});
    return result;
}

// A drag of `data` over the zone, then a drop, as the window system sends it.
bool dropOn(ImageDropZone* zone, QMimeData* data)
{
    const QPoint centre = zone->rect().center();
    QDragEnterEvent enter(centre, Qt::CopyAction, data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(zone, &enter);
    const bool targeted = zone->isDropTargeted();
    QDropEvent drop(centre, Qt::CopyAction, data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(zone, &drop);
    return targeted && !zone->isDropTargeted();
}

QMimeData* filesData(const QList<QUrl>& urls, const QString& text = {})
{
    auto* data = new QMimeData;
    if (!urls.isEmpty())
        data->setUrls(urls);
    if (!text.isEmpty())
        data->setText(text);
    return data;
}

struct Desk {
    QTemporaryDir root;
    AppEnvironment environment{createPlatformServices({PlatformBackendKind::sim, u"test"_s}),
                               root.path()};
    MainViewModel& model = environment.mainViewModel();
    PopoverHub hub;
};

} // namespace

class TestSettingsPopovers : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void canvasRows_data()
    {
        QTest::addColumn<OutputContentMode>("content");
        QTest::addColumn<CanvasBackgroundSelection>("canvas");
        QTest::addColumn<Titles>("output");
        QTest::addColumn<Titles>("background");
        QTest::addColumn<QString>("imageName");
        QTest::addColumn<bool>("backgroundApplies");

        const Titles sanitized{{u"Sanitized Windows"_s, true}, {u"Full Desktop"_s, false}};
        const Titles desktop{{u"Sanitized Windows"_s, false}, {u"Full Desktop"_s, true}};
        const auto background = [](int selected) {
            Titles rows{{u"Black"_s, false},
                        {u"White"_s, false},
                        {u"Gray"_s, false},
                        {u"Custom Image"_s, false}};
            rows[selected].second = true;
            return rows;
        };
        const CanvasBackgroundSelection image{CanvasBackgroundMode::customImage,
                                              u"CanvasBackgrounds/a.png"_s, u"sunset.png"_s};
        CanvasBackgroundSelection grayKeepsImage = image;
        grayKeepsImage.mode = CanvasBackgroundMode::gray;
        CanvasBackgroundSelection nameWithoutFile = image;
        nameWithoutFile.imageRelativePath.reset();

        QTest::newRow("defaults") << OutputContentMode::sanitized << CanvasBackgroundSelection{}
                                  << sanitized << background(0) << u"No image selected yet"_s
                                  << true;
        QTest::newRow("image") << OutputContentMode::sanitized << image << sanitized
                               << background(3) << u"sunset.png"_s << true;
        QTest::newRow("a colour keeps the image")
            << OutputContentMode::sanitized << grayKeepsImage << sanitized << background(2)
            << u"sunset.png"_s << true;
        QTest::newRow("a name without its file")
            << OutputContentMode::sanitized << nameWithoutFile << sanitized << background(3)
            << u"No image selected yet"_s << true;
        QTest::newRow("full desktop") << OutputContentMode::fullDesktop << image << desktop
                                      << background(3) << u"sunset.png"_s << false;
    }

    void canvasRows()
    {
        QFETCH(OutputContentMode, content);
        QFETCH(CanvasBackgroundSelection, canvas);
        const CanvasOptions options = canvasOptions(content, canvas);
        QTEST(titles(options.output), "output");
        QTEST(titles(options.background), "background");
        QTEST(options.imageName, "imageName");
        QTEST(options.backgroundApplies, "backgroundApplies");
    }

    void droppedFiles()
    {
        const QUrl local = QUrl::fromLocalFile(u"/tmp/a.png"_s);
        const QUrl remote(u"https://example.invalid/a.png"_s);
        const std::unique_ptr<QMimeData> text(filesData({}, u"/tmp/a.png"_s));
        const std::unique_ptr<QMimeData> onlyRemote(filesData({remote}));
        const std::unique_ptr<QMimeData> mixed(filesData({remote, local}));
        QCOMPARE(ImageDropZone::droppedFile(*text), std::nullopt);
        QCOMPARE(ImageDropZone::droppedFile(*onlyRemote), std::nullopt);
        QCOMPARE(ImageDropZone::droppedFile(*mixed), std::optional(local));
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

    void canvasPopoverImportsAndChooses()
    {
        Desk desk;
        ControlDeck deck(desk.model, desk.environment.windowRegistry(), desk.hub, {}, nullptr);
        deck.resize(520, 170);
        deck.show();
        QTest::mouseClick(deck.tile(DeckTile::canvas), Qt::LeftButton, {}, QPoint(20, 20));
        auto* popover = deck.findChild<CanvasPopover*>();
        QVERIFY(popover && popover->isVisible());

        // Output and background rows act at once and the popover stays.
        const QList<OptionRow*> rows = popover->findChildren<OptionRow*>();
        QCOMPARE(rows.size(), 6);
        QTest::mouseClick(rows.at(1), Qt::LeftButton);
        QCOMPARE(desk.model.outputContentMode(), OutputContentMode::fullDesktop);
        QVERIFY(rows.at(1)->isSelected() && !rows.at(0)->isSelected());
        QTest::mouseClick(rows.at(0), Qt::LeftButton);
        QTest::mouseClick(rows.at(3), Qt::LeftButton);
        QCOMPARE(desk.model.canvasBackground().mode, CanvasBackgroundMode::white);
        QVERIFY(popover->isVisible());

        // A dropped text file changes nothing and says why.
        const QString notes = desk.root.filePath(u"notes.txt"_s);
        QFile(notes).open(QIODevice::WriteOnly);
        const CanvasBackgroundSelection before = desk.model.canvasBackground();
        std::unique_ptr<QMimeData> textFile(filesData({QUrl::fromLocalFile(notes)}));
        QVERIFY(dropOn(popover->dropZone(), textFile.get()));
        QCOMPARE(desk.model.canvasBackground(), before);
        QVERIFY2(popover->importMessage().contains(u"only accepts image files"_s),
                 qPrintable(popover->importMessage()));
        // Dragged text is not a file: no highlight, nothing imported.
        std::unique_ptr<QMimeData> text(filesData({}, notes));
        QVERIFY(!dropOn(popover->dropZone(), text.get()));

        // A dropped picture becomes the canvas; the message goes.
        QImage picture(40, 30, QImage::Format_RGB32);
        picture.fill(Qt::magenta);
        const QString sunset = desk.root.filePath(u"sunset.png"_s);
        QVERIFY(picture.save(sunset));
        std::unique_ptr<QMimeData> image(filesData({QUrl::fromLocalFile(sunset)}));
        QVERIFY(dropOn(popover->dropZone(), image.get()));
        QCOMPARE(desk.model.canvasBackground().mode, CanvasBackgroundMode::customImage);
        QCOMPARE(desk.model.canvasBackground().imageDisplayName, std::optional(u"sunset.png"_s));
        QCOMPARE(popover->importMessage(), QString());

        // "Choose Image": a file dialog for images; confirming imports.
        const QString dawn = desk.root.filePath(u"dawn.jpg"_s);
        QVERIFY(picture.save(dawn));
        QTest::mouseClick(popover->chooseButton(), Qt::LeftButton);
        auto* dialog = popover->findChild<QFileDialog*>();
        QVERIFY(dialog && dialog->isVisible());
        QCOMPARE(dialog->fileMode(), QFileDialog::ExistingFile);
        QVERIFY(dialog->nameFilters().join(u' ').contains(u"*.png"_s));
        dialog->selectFile(dawn);
        QMetaObject::invokeMethod(dialog, "accept");
        QCOMPARE(desk.model.canvasBackground().imageDisplayName, std::optional(u"dawn.jpg"_s));

        // It survives presses elsewhere, but a press on its tile closes it
        // without opening it again, and a hidden deck takes it along.
        QTest::mouseClick(deck.tile(DeckTile::canvas), Qt::LeftButton, {}, QPoint(20, 20));
        QTRY_VERIFY(!deck.activePopover());
        deck.openPopover(DeckPopover::canvas);
        QVERIFY(deck.activePopover());
        deck.hide();
        QTRY_VERIFY(!deck.activePopover());
    }

    void cameraPopoverEditsTheOverlay()
    {
        Desk desk;
        TestPatternOptions options;
        options.deviceCount = 2;
        TestPatternCameraPort port(options);
        int helpOpened = 0;
        auto* popover = new CameraPopover(desk.model,
                                          {&port, nullptr,
                                           [&] {
                                               ++helpOpened;
                                           }},
                                          desk.hub, nullptr);
        const std::unique_ptr<CameraPopover> owner(popover);
        popover->show();

        // Opening picks the first camera and saves it.
        QTRY_COMPARE(popover->availableCameras().size(), 2);
        QCOMPARE(desk.model.cameraOverlay().cameraDeviceID,
                 std::optional(TestPatternCameraPort::deviceID(0)));
        QVERIFY(desk.model.hasPendingSave());
        QCOMPARE(popover->sourceChoice()->count(), 3);
        QVERIFY(!popover->cameraPermissionDenied() && popover->deniedPanel()->isHidden());

        popover->enableToggle()->click();
        popover->mirrorToggle()->click();
        popover->sourceChoice()->setCurrentIndex(2);
        Q_EMIT popover->sourceChoice()->activated(2);
        popover->shapeButtons()->button(int(CameraShape::roundedSquare))->click();
        popover->sizeSlider()->setValue(12);
        popover->marginSliders().at(3)->setValue(120);
        popover->positionButton(CameraPosition::topLeft)->click();
        CameraOverlayConfiguration expected = desk.model.cameraOverlay();
        expected.isEnabled = true;
        expected.isMirrored = true;
        expected.cameraDeviceID = TestPatternCameraPort::deviceID(1);
        expected.shape = CameraShape::roundedSquare;
        expected.sizeScale = 1.2;
        expected.marginRight = 120;
        expected.position = CameraPosition::topLeft;
        QCOMPARE(desk.model.cameraOverlay(), expected);
        QVERIFY(popover->marginsPanel()->isVisibleTo(popover));

        // The centre has no margins; "None" clears the camera.
        popover->positionButton(CameraPosition::center)->click();
        QVERIFY(!popover->marginsPanel()->isVisibleTo(popover));
        Q_EMIT popover->sourceChoice()->activated(0);
        QCOMPARE(desk.model.cameraOverlay().cameraDeviceID, std::nullopt);

        // Without access: the denied state, and Settings opens the help.
        TestPatternOptions refused;
        refused.accessGranted = false;
        TestPatternCameraPort deniedPort(refused);
        CameraPopover denied(desk.model,
                             {&deniedPort, nullptr,
                              [&] {
                                  ++helpOpened;
                              }},
                             desk.hub, nullptr);
        denied.show();
        QTRY_VERIFY(denied.cameraPermissionDenied());
        QVERIFY(denied.deniedPanel()->isVisible());
        denied.deniedPanel()->findChild<QPushButton*>()->click();
        QCOMPARE(helpOpened, 1);
    }

    // A device the user may not open shows the same state as soon as the
    // session says so.
    void refusedDeviceShowsDenied()
    {
        Desk desk;
        TestPatternOptions options;
        options.deniedDevices = {TestPatternCameraPort::deviceID(0)};
        TestPatternCameraPort port(options);
        CameraSessionManager session(port);
        CameraPopover popover(desk.model, {&port, &session, {}}, desk.hub, nullptr);
        popover.show();
        QTRY_COMPARE(popover.availableCameras().size(), 1);
        QVERIFY(!popover.cameraPermissionDenied());
        popover.enableToggle()->click();
        session.apply(desk.model.cameraOverlay());
        QTRY_VERIFY(popover.cameraPermissionDenied());
        QVERIFY(popover.deniedPanel()->isVisible());
    }
};

QTEST_MAIN(TestSettingsPopovers)
#include "tst_settings_popovers.moc"
