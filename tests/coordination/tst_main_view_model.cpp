#include "support_coordination_rig.h"

#include <QImage>
#include <QSignalSpy>
#include <QTest>
#include <functional>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace vistrel;
using namespace vistrel::test;

using Change = std::function<void(MainViewModel&, bool same)>;

class MainViewModelTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Before start() the state file is loaded and the engine's canvas set
    // from it, and nothing is fetched. A catalog that arrives anyway updates
    // the lists and validates the selection, but captures and saves nothing.
    void beforeStartNothingIsFetchedCapturedOrSaved_data()
    {
        QTest::addColumn<std::optional<quint32>>("stored");
        QTest::addColumn<bool>("noDisplays");
        QTest::addColumn<std::optional<quint32>>("expected");

        QTest::newRow("still there")
            << std::optional(scene::rightDisplay) << false << std::optional(scene::rightDisplay);
        QTest::newRow("gone: first display")
            << std::optional<quint32>(77) << false << std::optional(scene::leftDisplay);
        QTest::newRow("none: first display")
            << std::optional<quint32>() << false << std::optional(scene::leftDisplay);
        QTest::newRow("no displays at all")
            << std::optional(scene::rightDisplay) << true << std::optional<quint32>();
    }

    void beforeStartNothingIsFetchedCapturedOrSaved()
    {
        QFETCH(std::optional<quint32>, stored);
        QFETCH(bool, noDisplays);
        QFETCH(std::optional<quint32>, expected);

        SimScene sceneData = standardScene();
        if (noDisplays)
            sceneData.displays.clear();
        CoordinationRig rig(sceneData);
        PersistedAppState state;
        state.configuration.policy.activeRules().applications.insert(
            AppIdentity{u"org.example.mail"_s, u"Mail"_s});
        state.configuration.selectedDisplayID = stored;
        state.isAlwaysOnTop = false;
        state.configuration.outputFrameMode = OutputFrameMode::dynamic;
        state.configuration.canvasBackground.mode = CanvasBackgroundMode::white;
        state.cameraOverlay.position = CameraPosition::topLeft;
        state.presets.append(makeCustomPreset(u"Mine"_s));
        rig.writeState(state);

        MainViewModel& model = rig.makeMainViewModel();
        QCOMPARE(model.persistedState(), state);
        QCOMPARE(model.presetModel()->activePresetID(), std::nullopt);
        QVERIFY(!model.hasStarted());
        QVERIFY(!model.isPanicHidden());
        QCOMPARE(model.permissionState(), ScreenRecordingPermissionState::granted);
        QCOMPARE(rig.engine.canvasBackgroundColor(), QColor(Qt::white));
        const quint64 file = fileInode(rig.stateFilePath());
        rig.runJobs();
        QTest::qWait(50);
        QCOMPARE(rig.backend.contentRequestCount(), 0);
        QVERIFY(!rig.discovery.isAutoRefreshing());
        QVERIFY(!model.hasPendingSave());

        QSignalSpy displaysSpy(&model, &MainViewModel::displaysChanged);
        rig.discovery.refreshOnce();
        QVERIFY(noDisplays || displaysSpy.wait(3000));
        QTest::qWait(noDisplays ? 200 : 0);
        settle();
        QCOMPARE(model.selectedDisplayID(), expected);
        QCOMPARE(model.displays().size(), sceneData.displays.size());
        QVERIFY(!model.hasPendingCaptureUpdate());
        QVERIFY(!model.hasPendingSave());
        if (!noDisplays) {
            QVERIFY(!model.appListViewModel()->allApplications().isEmpty());
            QCOMPARE(model.appListViewModel()->allApplications(),
                     rig.discovery.catalog().applicationsOnDisplay(expected));
        }
        rig.runJobs();
        QCOMPARE(fileInode(rig.stateFilePath()), file);
        QCOMPARE(rig.savedState().configuration.selectedDisplayID, stored);
        QCOMPARE(rig.builderScreens.reads(), 0);
        QCOMPARE(rig.engine.streamStatus(), StreamStatus::idle());
        QCOMPARE(rig.backend.streamCalls().total(), 0);
    }

    void burstOfTogglesGivesOneUpdateAndOneSave()
    {
        CoordinationRig rig;
        MainViewModel& model = rig.makeMainViewModel();
        QVERIFY(rig.startAndDiscover());
        rig.freezeDiscovery();
        QVERIFY(rig.quiet());
        QCOMPARE(model.selectedDisplayID(), std::optional(scene::leftDisplay));

        const int buildsBefore = rig.builderScreens.reads();
        const SimStreamCalls callsBefore = rig.backend.streamCalls();
        QSignalSpy statusSpy(&rig.engine, &CaptureEngine::streamStatusChanged);
        QSignalSpy resetSpy(&rig.renderer, &OutputRenderer::hasDisplayedFrameChanged);
        const quint64 fileBefore = fileInode(rig.stateFilePath());

        const ShareableApp mail = rig.application(scene::mailPid);
        const ShareableApp terminal = rig.application(scene::terminalPid);
        model.toggleApplication(terminal);
        rig.clock.advance(20ms);
        model.toggleApplication(mail);
        rig.clock.advance(20ms);
        model.toggleWindow(rig.window(scene::draftWindow), mail);
        rig.clock.advance(20ms);
        model.toggleApplication(terminal);
        rig.clock.advance(20ms);
        model.toggleWindow(rig.window(scene::shellWindow), terminal);
        const VisibilityPolicy finalPolicy = model.policy();
        // Mail demoted to its inbox; Terminal promoted again by its only window.
        QCOMPARE(finalPolicy.allowList.windows,
                 QSet<WindowIdentity>{WindowIdentity(rig.window(scene::inboxWindow))});
        QCOMPARE(finalPolicy.allowList.applications, QSet<AppIdentity>{terminal.identity});

        // Nothing until 120 ms after the last toggle.
        rig.clock.advance(119ms);
        settle();
        QCOMPARE(rig.builderScreens.reads(), buildsBefore);
        QCOMPARE(statusSpy.count(), 0);
        rig.clock.advance(1ms);
        QCOMPARE(rig.builderScreens.reads(), buildsBefore + 1);
        // The save 300 ms after the last toggle, once.
        rig.clock.advance(179ms);
        QCOMPARE(fileInode(rig.stateFilePath()), fileBefore);
        rig.clock.advance(1ms);
        const quint64 saved = fileInode(rig.stateFilePath());
        QVERIFY(saved != fileBefore);
        rig.clock.advance(1000ms);
        QTest::qWait(100);
        settle();
        QCOMPARE(fileInode(rig.stateFilePath()), saved);
        QCOMPARE(rig.builderScreens.reads(), buildsBefore + 1);
        QCOMPARE(statusSpy.at(0).at(0).value<StreamStatus>(), StreamStatus::starting());
        QCOMPARE(resetSpy.count(), 0);
        const SimStreamCalls calls = rig.backend.streamCalls();
        QCOMPARE(calls.create - callsBefore.create, 1);
        QCOMPARE(calls.updateContentFilter, callsBefore.updateContentFilter);
        QCOMPARE(calls.updateConfiguration, callsBefore.updateConfiguration);

        // Built from the final policy, and saved as it was last.
        const CaptureBuildResult expected =
            rig.filterBuilder.build(finalPolicy, scene::leftDisplay, rig.discovery.catalog(), false,
                                    OutputFrameMode::screen, OutputContentMode::sanitized);
        QVERIFY(std::holds_alternative<CapturePlan>(expected));
        QVERIFY(rig.backend.latestStream());
        QCOMPARE(rig.backend.latestStream()->filter(), std::get<CapturePlan>(expected).filter);
        QCOMPARE(rig.savedState().configuration.policy, finalPolicy);
    }

    void startWithoutPermissionBlanksWithoutDiscovery()
    {
        CoordinationRig rig(standardScene(), false);
        MainViewModel& model = rig.makeMainViewModel();
        QSignalSpy statusSpy(&rig.engine, &CaptureEngine::streamStatusChanged);
        model.start();
        QVERIFY(model.hasStarted());
        QVERIFY(rig.permission->preflightCount() >= 1);
        QCOMPARE(rig.permissionManager.state(), ScreenRecordingPermissionState::missing);
        QVERIFY(!rig.discovery.isAutoRefreshing());

        settle();
        QCOMPARE(model.permissionState(), ScreenRecordingPermissionState::missing);

        // Blanked 120 ms after the start, not before.
        rig.clock.advance(119ms);
        settle();
        QCOMPARE(statusSpy.count(), 0);
        rig.clock.advance(1ms);
        QTRY_COMPARE_WITH_TIMEOUT(statusSpy.count(), 1, 5000);
        QCOMPARE(rig.engine.streamStatus(),
                 StreamStatus::blank(OutputBlankReason::permissionMissing));
        settle();
        QCOMPARE(model.streamStatus(), StreamStatus::blank(OutputBlankReason::permissionMissing));
        // Neither the builder nor discovery was asked.
        QCOMPARE(rig.builderScreens.reads(), 0);
        QCOMPARE(rig.backend.contentRequestCount(), 0);

        // Only the first start counts.
        const int preflights = rig.permission->preflightCount();
        model.start();
        QCOMPARE(rig.permission->preflightCount(), preflights);
    }

    void permissionChangesAfterStart()
    {
        CoordinationRig rig;
        MainViewModel& model = rig.makeMainViewModel();
        QVERIFY(rig.startSharing(scene::mailPid));

        // While the permission is being checked, updates leave the engine alone.
        const int builds = rig.builderScreens.reads();
        QSignalSpy statusSpy(&rig.engine, &CaptureEngine::streamStatusChanged);
        Q_EMIT rig.permissionManager.stateChanged(ScreenRecordingPermissionState::checking);
        QCOMPARE(model.permissionState(), ScreenRecordingPermissionState::granted);
        settle();
        QCOMPARE(model.permissionState(), ScreenRecordingPermissionState::checking);
        QVERIFY(model.hasPendingCaptureUpdate());
        QVERIFY(rig.quiet());
        QCOMPARE(statusSpy.count(), 0);
        QCOMPARE(rig.builderScreens.reads(), builds);
        QVERIFY(rig.discovery.isAutoRefreshing());

        // Revoked: discovery stops (publishing the empty catalog) and the
        // output blanks for the permission.
        rig.permission->setGranted(false);
        rig.permissionManager.refreshState();
        rig.runJobs();
        QTRY_COMPARE_WITH_TIMEOUT(rig.engine.streamStatus(),
                                  StreamStatus::blank(OutputBlankReason::permissionMissing), 3000);
        QVERIFY(!rig.discovery.isAutoRefreshing());
        QVERIFY(rig.discovery.catalog().displays.isEmpty());

        // Granted again: discovery resumes and capture follows the catalog.
        rig.backend.setHoldsContentRequests(false);
        rig.backend.releaseContentRequests();
        rig.permission->setGranted(true);
        rig.permissionManager.refreshState();
        QTRY_VERIFY_WITH_TIMEOUT(rig.discovery.isAutoRefreshing(), 3000);
        QTRY_VERIFY_WITH_TIMEOUT(model.hasPendingCaptureUpdate(), 5000);
        rig.runJobs();
        QTRY_COMPARE_WITH_TIMEOUT(rig.engine.streamStatus(), StreamStatus::running(), 5000);
        QCOMPARE(model.selectedDisplayID(), std::optional(scene::leftDisplay));
    }

    // Each setter: its current value schedules and publishes nothing; a new
    // value schedules what it affects.
    void settersScheduleWhatTheyAffect_data()
    {
        QTest::addColumn<Change>("change");
        QTest::addColumn<bool>("capture");
        QTest::addColumn<bool>("save");
        using M = MainViewModel;
        QTest::newRow("display") << Change([](M& m, bool same) {
            m.selectDisplay(same ? scene::leftDisplay : scene::rightDisplay);
        }) << true << true;
        QTest::newRow("visibility mode") << Change([](M& m, bool same) {
            m.setVisibilityMode(same ? VisibilityMode::allowList : VisibilityMode::blockList);
        }) << true << true;
        QTest::newRow("frame mode") << Change([](M& m, bool same) {
            m.setOutputFrameMode(same ? OutputFrameMode::screen : OutputFrameMode::dynamic);
        }) << true << true;
        QTest::newRow("content mode") << Change([](M& m, bool same) {
            m.setOutputContentMode(same ? OutputContentMode::sanitized
                                        : OutputContentMode::fullDesktop);
        }) << true << true;
        QTest::newRow("canvas colour") << Change([](M& m, bool same) {
            m.setCanvasBackgroundMode(same ? CanvasBackgroundMode::black
                                           : CanvasBackgroundMode::gray);
        }) << false << true;
        QTest::newRow("always on top")
            << Change([](M& m, bool same) { m.setAlwaysOnTop(same); }) << false << true;
        QTest::newRow("camera overlay") << Change([](M& m, bool same) {
            CameraOverlayConfiguration camera = CameraOverlayConfiguration::defaultValue();
            camera.isMirrored = !same;
            m.setCameraOverlay(camera);
        }) << false << true;
        QTest::newRow("panic") << Change([](M& m, bool same) { m.setPanicHidden(!same); }) << true
                               << false;
        QTest::newRow("reset rules") << Change([](M& m, bool same) {
            if (!same)
                m.resetRules();
        }) << true << true;
    }

    void settersScheduleWhatTheyAffect()
    {
        QFETCH(Change, change);
        QFETCH(bool, capture);
        QFETCH(bool, save);

        CoordinationRig rig;
        PersistedAppState state;
        VisibilityPolicy& policy = state.configuration.policy;
        state.configuration.selectedDisplayID = scene::leftDisplay;
        policy.blockList.applications.insert(AppIdentity{std::nullopt, u"Terminal"_s});
        policy.allowList.applications.insert(AppIdentity{u"org.example.mail"_s, u"Mail"_s});
        rig.writeState(state);
        MainViewModel& model = rig.makeMainViewModel();

        QSignalSpy configurationSpy(&model, &MainViewModel::configurationChanged);
        change(model, true);
        QVERIFY(!model.hasPendingCaptureUpdate());
        QVERIFY(!model.hasPendingSave());
        QCOMPARE(configurationSpy.count(), 0);

        change(model, false);
        QCOMPARE(model.hasPendingCaptureUpdate(), capture);
        QCOMPARE(model.hasPendingSave(), save);
        const QByteArray row = QTest::currentDataTag();
        if (row == "visibility mode") {
            // Only the mode: both rule lists stay.
            QCOMPARE(model.policy().allowList, policy.allowList);
            QCOMPARE(model.policy().blockList, policy.blockList);
        } else if (row == "reset rules") {
            // Only the active list is cleared; then there is nothing to reset.
            QVERIFY(model.policy().allowList.isEmpty());
            QCOMPARE(model.policy().blockList, policy.blockList);
            QCOMPARE(model.ruleCountText(), u"0 rules"_s);
            rig.runJobs();
            model.resetRules();
            QVERIFY(!model.hasPendingSave());
        } else if (row == "content mode") {
            QCOMPARE(rig.engine.outputContentMode(), OutputContentMode::fullDesktop);
        } else if (row == "canvas colour") {
            // The engine's canvas changes at once, without a capture rebuild.
            QCOMPARE(rig.engine.canvasBackgroundColor(), CaptureEngine::grayCanvasBackgroundColor);
        }
    }

    void panicTwiceWithinTheDelayGivesOneUpdate()
    {
        CoordinationRig rig;
        MainViewModel& model = rig.makeMainViewModel();
        QVERIFY(rig.startSharing(scene::mailPid));

        const int builds = rig.builderScreens.reads();
        const SimStreamCalls calls = rig.backend.streamCalls();
        QSignalSpy statusSpy(&rig.engine, &CaptureEngine::streamStatusChanged);
        QSignalSpy resetSpy(&rig.renderer, &OutputRenderer::hasDisplayedFrameChanged);
        model.togglePanicHidden();
        QVERIFY(model.isPanicHidden());
        rig.clock.advance(100ms);
        settle();
        model.togglePanicHidden();
        QVERIFY(!model.isPanicHidden());
        QVERIFY(rig.quiet());

        // One update, built with the final flag: the running plan is
        // re-applied, never blanked for panic.
        QCOMPARE(rig.builderScreens.reads() - builds, 1);
        QCOMPARE(resetSpy.count(), 0);
        QCOMPARE(statusSpy.count(), 1);
        QCOMPARE(statusSpy.at(0).at(0).value<StreamStatus>(), StreamStatus::running());
        QCOMPARE(rig.backend.streamCalls(), calls);
        QVERIFY(!model.hasPendingSave());
    }

    void importCanvasBackground()
    {
        CoordinationRig rig;
        MainViewModel& model = rig.makeMainViewModel();
        const CanvasBackgroundSelection before = model.canvasBackground();

        const QString notImage = rig.dataRoot.filePath(u"notes.png"_s);
        {
            QFile file(notImage);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write("not an image");
        }
        {
            const QString refusal =
                u"Vistrel only accepts image files for the custom background canvas."_s;
            MessageLog log;
            QCOMPARE(model.importCanvasBackground(QUrl::fromLocalFile(notImage)),
                     std::optional(refusal));
            QCOMPARE(log.texts(u"quorbit.Vistrel.MainViewModel"_s),
                     QStringList{u"Importing canvas background failed: "_s + refusal});
        }
        QCOMPARE(model.canvasBackground(), before);
        QVERIFY(!model.hasPendingSave());

        const QString picture = rig.dataRoot.filePath(u"sunset.png"_s);
        QImage image(8, 6, QImage::Format_RGB32);
        image.fill(Qt::red);
        QVERIFY(image.save(picture));
        QCOMPARE(model.importCanvasBackground(QUrl::fromLocalFile(picture)), std::nullopt);
        QCOMPARE(model.canvasBackground().mode, CanvasBackgroundMode::customImage);
        QCOMPARE(model.canvasBackground().imageDisplayName, std::optional(u"sunset.png"_s));
        QVERIFY(model.canvasBackground().imageRelativePath);
        QCOMPARE(rig.engine.canvasBackgroundImage().size(), QSize(8, 6));
        QVERIFY(model.hasPendingSave());
        QVERIFY(!model.hasPendingCaptureUpdate());

        // Switching to a colour keeps the image for later.
        model.setCanvasBackgroundMode(CanvasBackgroundMode::black);
        QVERIFY(rig.engine.canvasBackgroundImage().isNull());
        QVERIFY(model.canvasBackground().imageRelativePath);
        model.setCanvasBackgroundMode(CanvasBackgroundMode::customImage);
        QCOMPARE(rig.engine.canvasBackgroundImage().size(), QSize(8, 6));
    }

    void subscriptionsArriveLaterAndStopWithTheModel()
    {
        CoordinationRig rig;
        MainViewModel* model = &rig.makeMainViewModel();
        QSignalSpy statusSpy(model, &MainViewModel::streamStatusChanged);
        rig.engine.blank(OutputBlankReason::contentUnavailable);
        QCOMPARE(model->streamStatus(), StreamStatus::idle());
        settle();
        QCOMPARE(model->streamStatus(), StreamStatus::blank(OutputBlankReason::contentUnavailable));
        QCOMPARE(statusSpy.count(), 1);

        rig.backend.setContentError(PlatformError{u"SimDomain"_s, 3, u"The display went away."_s});
        rig.discovery.refreshOnce();
        QTRY_COMPARE_WITH_TIMEOUT(model->discoveryErrorMessage(),
                                  std::optional(u"The display went away."_s), 3000);

        // Gone with jobs pending and deliveries posted: nothing more happens.
        model->start();
        model->schedulePersistence();
        model->scheduleCaptureUpdate();
        rig.engine.blank(OutputBlankReason::noDisplaySelected);
        rig.mainViewModel.reset();
        rig.runJobs();
        QTest::qWait(100);
        QCOMPARE(rig.engine.streamStatus(),
                 StreamStatus::blank(OutputBlankReason::noDisplaySelected));
        QVERIFY(!QFile::exists(rig.stateFilePath()));
    }

    void queries()
    {
        CoordinationRig rig;
        MainViewModel& model = rig.makeMainViewModel();
        QCOMPARE(model.selectedDisplayName(), u"Not Selected"_s);
        QVERIFY(rig.startAndDiscover());
        rig.freezeDiscovery();

        QCOMPARE(model.selectedDisplayName(), u"Left"_s);
        QCOMPARE(model.sourceSummary(), u"2 apps \u2022 3 windows"_s);
        model.selectDisplay(scene::rightDisplay);
        QCOMPARE(model.selectedDisplayName(), u"Right"_s);
        QCOMPARE(model.sourceSummary(), u"1 apps \u2022 1 windows"_s);
        model.selectDisplay(99);
        QCOMPARE(model.selectedDisplayName(), u"Not Selected"_s);
        model.selectDisplay(scene::leftDisplay);

        // Mail as the left display lists it, not as the caller passes it.
        ShareableApp mail = rig.application(scene::mailPid);
        ShareableApp stale = mail;
        stale.windows.removeLast();
        QCOMPARE(model.windowIdentities(stale).size(), 2);
        QVERIFY(
            model.windowIdentities(stale).contains(WindowIdentity(rig.window(scene::draftWindow))));
        // An application the display does not list keeps its own windows.
        const ShareableApp editor = rig.application(scene::editorPid);
        QCOMPARE(model.windowIdentities(editor),
                 QList<WindowIdentity>{WindowIdentity(rig.window(scene::editorWindow))});

        QCOMPARE(model.visibilityState(mail), SourceVisibilityState::hidden);
        model.toggleWindow(rig.window(scene::inboxWindow), mail);
        QCOMPARE(model.visibilityState(mail), SourceVisibilityState::partial);
        QVERIFY(!model.isApplicationSelected(mail));
        // Selecting the last window promotes the rules to the application.
        model.toggleWindow(rig.window(scene::draftWindow), stale);
        QVERIFY(model.isApplicationSelected(mail));
        QCOMPARE(model.visibilityState(mail), SourceVisibilityState::shown);
        QCOMPARE(model.ruleCountText(), u"1 rule"_s);
        QVERIFY(model.policy().allowList.applications.contains(mail.identity));
    }
};

QTEST_GUILESS_MAIN(MainViewModelTest)
#include "tst_main_view_model.moc"
