#include "support_coordination_rig.h"

#include <QImage>
#include <QSignalSpy>
#include <QTest>
#include <functional>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace vistrel;
using namespace vistrel::test;

namespace {

const QString mainCategory = u"quorbit.Vistrel.MainViewModel"_s;

// Log lines of one category, while it lives.
class CategoryLog {
public:
    explicit CategoryLog(QString category) : m_category(std::move(category))
    {
        current() = this;
        m_previous = qInstallMessageHandler(&CategoryLog::handle);
    }
    ~CategoryLog()
    {
        qInstallMessageHandler(m_previous);
        current() = nullptr;
    }
    QStringList criticals;

private:
    static CategoryLog*& current()
    {
        static CategoryLog* log = nullptr;
        return log;
    }
    static void handle(QtMsgType type, const QMessageLogContext& context, const QString& text)
    {
        CategoryLog* log = current();
        if (log && type == QtCriticalMsg &&
            QString::fromUtf8(context.category ? context.category : "") == log->m_category)
            log->criticals.append(text);
    }
    QString m_category;
    QtMessageHandler m_previous = nullptr;
};

// Runs the pending jobs and waits until the engine's answers have arrived.
bool quiet(CoordinationRig& rig)
{
    rig.runJobs();
    QTest::qWait(50);
    settle();
    return !rig.mainViewModel->hasPendingCaptureUpdate();
}

// Keeps the discovery loop from publishing again, so that every capture
// update a test sees comes from the test's own changes.
void freezeDiscovery(CoordinationRig& rig)
{
    rig.backend.setHoldsContentRequests(true);
}

} // namespace

class MainViewModelTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void constructionLoadsStateAndFetchesNothing()
    {
        CoordinationRig rig;
        PersistedAppState state;
        state.configuration.policy.activeRules().applications.insert(
            AppIdentity{u"org.example.mail"_s, u"Mail"_s});
        state.configuration.selectedDisplayID = scene::rightDisplay;
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
        // The engine's canvas is configured from the loaded state at once.
        QCOMPARE(rig.engine.canvasBackgroundColor(), QColor(Qt::white));

        rig.runJobs();
        QTest::qWait(50);
        QCOMPARE(rig.backend.contentRequestCount(), 0);
        QVERIFY(!rig.discovery.isAutoRefreshing());
        QCOMPARE(rig.builderScreens.reads(), 0);
        QCOMPARE(rig.engine.streamStatus(), StreamStatus::idle());
        QCOMPARE(rig.backend.streamCalls().total(), 0);
        QVERIFY(!model.hasPendingSave());
    }

    void burstOfTogglesGivesOneUpdateAndOneSave()
    {
        CoordinationRig rig;
        MainViewModel& model = rig.makeMainViewModel();
        QVERIFY(rig.startAndDiscover());
        freezeDiscovery(rig);
        QVERIFY(quiet(rig));
        QCOMPARE(model.selectedDisplayID(), std::optional(scene::leftDisplay));

        const int buildsBefore = rig.builderScreens.reads();
        const SimStreamCalls callsBefore = rig.backend.streamCalls();
        QSignalSpy statusSpy(&rig.engine, &CaptureEngine::streamStatusChanged);
        QSignalSpy resetSpy(&rig.renderer, &OutputRenderer::hasDisplayedFrameChanged);
        const quint64 fileBefore = fileInode(rig.stateFilePath());

        const ShareableApp mail = rig.application(scene::mailPid);
        const ShareableApp terminal = rig.application(scene::terminalPid);
        const QList<std::function<void()>> toggles{
            [&] { model.toggleApplication(terminal); },
            [&] { model.toggleApplication(mail); },
            [&] { model.toggleWindow(rig.window(scene::draftWindow), mail); },
            [&] { model.toggleApplication(terminal); },
            [&] { model.toggleWindow(rig.window(scene::shellWindow), terminal); },
        };
        for (qsizetype i = 0; i < toggles.size(); ++i) {
            if (i > 0)
                rig.clock.advance(20ms);
            toggles[i]();
        }
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
        QCOMPARE(rig.builderScreens.reads() - buildsBefore, 1);
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

        QCOMPARE(rig.builderScreens.reads() - buildsBefore, 1);
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
        QCOMPARE(rig.permission->preflightCount() >= 1, true);
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
        model.toggleApplication(ShareableApp{AppIdentity{u"org.example.mail"_s, u"Mail"_s},
                                             0,
                                             u"Mail"_s,
                                             u"org.example.mail"_s,
                                             {}});
        QVERIFY(rig.startAndDiscover());
        freezeDiscovery(rig);
        rig.runJobs();
        QTRY_COMPARE_WITH_TIMEOUT(rig.engine.streamStatus(), StreamStatus::running(), 5000);
        QVERIFY(quiet(rig));

        // While the permission is being checked, updates leave the engine alone.
        const int builds = rig.builderScreens.reads();
        QSignalSpy statusSpy(&rig.engine, &CaptureEngine::streamStatusChanged);
        Q_EMIT rig.permissionManager.stateChanged(ScreenRecordingPermissionState::checking);
        QCOMPARE(model.permissionState(), ScreenRecordingPermissionState::granted);
        settle();
        QCOMPARE(model.permissionState(), ScreenRecordingPermissionState::checking);
        QVERIFY(model.hasPendingCaptureUpdate());
        QVERIFY(quiet(rig));
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

    void catalogValidatesTheSelectionWithoutSaving_data()
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

    void catalogValidatesTheSelectionWithoutSaving()
    {
        QFETCH(std::optional<quint32>, stored);
        QFETCH(bool, noDisplays);
        QFETCH(std::optional<quint32>, expected);

        SimScene sceneData = standardScene();
        if (noDisplays)
            sceneData.displays.clear();
        CoordinationRig rig(sceneData);
        PersistedAppState state;
        state.configuration.selectedDisplayID = stored;
        rig.writeState(state);
        MainViewModel& model = rig.makeMainViewModel();
        const quint64 file = fileInode(rig.stateFilePath());

        // Before start() a catalog still updates the lists, but captures nothing.
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
        QCOMPARE(rig.engine.streamStatus(), StreamStatus::idle());
    }

    void settersScheduleWhatTheyAffect_data()
    {
        QTest::addColumn<QString>("change");
        QTest::addColumn<bool>("capture");
        QTest::addColumn<bool>("save");

        QTest::newRow("display") << u"display"_s << true << true;
        QTest::newRow("visibility mode") << u"mode"_s << true << true;
        QTest::newRow("frame mode") << u"frame"_s << true << true;
        QTest::newRow("content mode") << u"content"_s << true << true;
        QTest::newRow("canvas colour") << u"canvas"_s << false << true;
        QTest::newRow("always on top") << u"onTop"_s << false << true;
        QTest::newRow("camera overlay") << u"camera"_s << false << true;
        QTest::newRow("panic") << u"panic"_s << true << false;
        QTest::newRow("reset rules") << u"reset"_s << true << true;
    }

    void settersScheduleWhatTheyAffect()
    {
        QFETCH(QString, change);
        QFETCH(bool, capture);
        QFETCH(bool, save);

        CoordinationRig rig;
        PersistedAppState state;
        ShareConfiguration& c = state.configuration;
        c.selectedDisplayID = scene::leftDisplay;
        c.policy.blockList.applications.insert(AppIdentity{std::nullopt, u"Terminal"_s});
        c.policy.activeRules().applications.insert(AppIdentity{u"org.example.mail"_s, u"Mail"_s});
        rig.writeState(state);
        MainViewModel& model = rig.makeMainViewModel();
        CameraOverlayConfiguration camera = model.cameraOverlay();
        camera.isMirrored = !camera.isMirrored;

        const QHash<QString, std::function<void(bool)>> changes{
            {u"display"_s,
             [&](bool same) {
                 model.selectDisplay(same ? scene::leftDisplay : scene::rightDisplay);
             }},
            {u"mode"_s,
             [&](bool same) {
                 model.setVisibilityMode(same ? VisibilityMode::allowList
                                              : VisibilityMode::blockList);
             }},
            {u"frame"_s,
             [&](bool same) {
                 model.setOutputFrameMode(same ? OutputFrameMode::screen
                                               : OutputFrameMode::dynamic);
             }},
            {u"content"_s,
             [&](bool same) {
                 model.setOutputContentMode(same ? OutputContentMode::sanitized
                                                 : OutputContentMode::fullDesktop);
             }},
            {u"canvas"_s,
             [&](bool same) {
                 model.setCanvasBackgroundMode(same ? CanvasBackgroundMode::black
                                                    : CanvasBackgroundMode::gray);
             }},
            {u"onTop"_s,
             [&](bool same) {
                 model.setAlwaysOnTop(same);
             }},
            {u"camera"_s,
             [&](bool same) {
                 model.setCameraOverlay(same ? CameraOverlayConfiguration::defaultValue() : camera);
             }},
            {u"panic"_s,
             [&](bool same) {
                 model.setPanicHidden(!same);
             }},
            {u"reset"_s,
             [&](bool same) {
                 if (!same)
                     model.resetRules();
             }},
        };

        // The current value: nothing is scheduled, nothing is published.
        QSignalSpy configurationSpy(&model, &MainViewModel::configurationChanged);
        changes[change](true);
        QVERIFY(!model.hasPendingCaptureUpdate());
        QVERIFY(!model.hasPendingSave());
        QCOMPARE(configurationSpy.count(), 0);

        changes[change](false);
        QCOMPARE(model.hasPendingCaptureUpdate(), capture);
        QCOMPARE(model.hasPendingSave(), save);

        if (change == u"mode"_s) {
            // Only the mode: both rule lists stay.
            QCOMPARE(model.policy().allowList, c.policy.allowList);
            QCOMPARE(model.policy().blockList, c.policy.blockList);
        } else if (change == u"reset"_s) {
            // Only the active list is cleared.
            QVERIFY(model.policy().allowList.isEmpty());
            QCOMPARE(model.policy().blockList, c.policy.blockList);
            QCOMPARE(model.ruleCountText(), u"0 rules"_s);
            // Nothing left to reset: a second call does nothing.
            rig.runJobs();
            model.resetRules();
            QVERIFY(!model.hasPendingSave());
        } else if (change == u"content"_s) {
            QCOMPARE(rig.engine.outputContentMode(), OutputContentMode::fullDesktop);
        } else if (change == u"canvas"_s) {
            // The engine's canvas changes at once, without a capture rebuild.
            QCOMPARE(rig.engine.canvasBackgroundColor(), CaptureEngine::grayCanvasBackgroundColor);
        }
    }

    void panicTwiceWithinTheDelayGivesOneUpdate()
    {
        CoordinationRig rig;
        MainViewModel& model = rig.makeMainViewModel();
        QVERIFY(rig.startAndDiscover());
        freezeDiscovery(rig);
        model.toggleApplication(rig.application(scene::mailPid));
        rig.runJobs();
        QTRY_COMPARE_WITH_TIMEOUT(rig.engine.streamStatus(), StreamStatus::running(), 5000);
        QVERIFY(quiet(rig));

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
        QVERIFY(quiet(rig));

        // One update, built with the final flag: the running plan is
        // re-applied, never blanked for panic.
        QCOMPARE(rig.builderScreens.reads() - builds, 1);
        QCOMPARE(resetSpy.count(), 0);
        QCOMPARE(statusSpy.count(), 1);
        QCOMPARE(statusSpy.at(0).at(0).value<StreamStatus>(), StreamStatus::running());
        QCOMPARE(rig.backend.streamCalls(), calls);
        QVERIFY(!model.hasPendingSave());

        // A single toggle does blank the output.
        model.togglePanicHidden();
        rig.runJobs();
        QTRY_COMPARE_WITH_TIMEOUT(rig.engine.streamStatus(),
                                  StreamStatus::blank(OutputBlankReason::panicHidden), 5000);
        QVERIFY(!rig.savedState().presets.isEmpty());
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
            CategoryLog log(mainCategory);
            QVERIFY(!model.importCanvasBackground(QUrl::fromLocalFile(notImage)));
            QCOMPARE(log.criticals,
                     QStringList{u"Importing canvas background failed: Vistrel only accepts image "
                                 "files for the custom background canvas."_s});
        }
        QCOMPARE(model.canvasBackground(), before);
        QVERIFY(!model.hasPendingSave());

        const QString picture = rig.dataRoot.filePath(u"sunset.png"_s);
        QImage image(8, 6, QImage::Format_RGB32);
        image.fill(Qt::red);
        QVERIFY(image.save(picture));
        QVERIFY(model.importCanvasBackground(QUrl::fromLocalFile(picture)));
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
        auto model =
            std::make_unique<MainViewModel>(rig.permissionManager, rig.discovery, rig.filterBuilder,
                                            rig.engine, rig.presetStore, rig.clock);
        QSignalSpy statusSpy(model.get(), &MainViewModel::streamStatusChanged);
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
        model.reset();
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
        freezeDiscovery(rig);

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
        QVERIFY(model.appListViewModel()->isWindowShown(rig.window(scene::inboxWindow)));
        QVERIFY(!model.appListViewModel()->isWindowShown(rig.window(scene::draftWindow)));
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
