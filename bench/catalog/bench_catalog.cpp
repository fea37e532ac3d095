// Microseconds per discovery catalog and per filter build on a busy desktop:
// 3 displays, 60 applications, 500 windows. Both run on the main thread every
// 2 seconds (catalog) and after every change (build), so they must stay far
// below a frame.

#include "capture/CaptureFilterBuilder.h"
#include "capture/ShareableCatalog.h"

#include <QCoreApplication>
#include <benchmark/benchmark.h>
#include <random>

using namespace vistrel;
using namespace Qt::StringLiterals;

namespace {

constexpr int applicationCount = 60;
constexpr int windowCount = 500;
constexpr qint32 selfPid = 5000;

class FixedScreens : public ScreenProvider {
public:
    QList<ScreenInfo> screens() const override { return m_screens; }
    QList<ScreenInfo> m_screens;
};

struct Scene {
    ShareableContent content;
    FixedScreens screens;
};

const Scene& scene()
{
    static const Scene built = [] {
        Scene s;
        std::mt19937 random(42);
        const QList<QRectF> frames = {QRectF(0, 0, 2560, 1440), QRectF(2560, 0, 1920, 1080),
                                      QRectF(4480, -200, 1920, 1200)};
        for (int i = 0; i < frames.size(); ++i) {
            const QRectF& f = frames[i];
            s.content.displays.append(LiveDisplay{quint32(100 + i), f, f.width(), f.height(),
                                                  f.width() * 2, f.height() * 2});
            s.screens.m_screens.append(ScreenInfo{quint32(100 + i), u"Monitor %1"_s.arg(i), f,
                                                  f.adjusted(0, 32, 0, 0), 60});
        }
        for (int i = 0; i < applicationCount; ++i) {
            std::optional<QString> bundle;
            if (i % 3 != 0)
                bundle = u"org.example.app%1"_s.arg(i / 2); // pairs share a bundle
            s.content.applications.append(
                LiveApplication{1000 + i, bundle, u"Application %1"_s.arg(i)});
        }
        s.content.applications.append(LiveApplication{selfPid, u"org.vistrel"_s, u"Vistrel"_s});
        std::uniform_int_distribution<int> app(0, applicationCount - 1);
        std::uniform_real_distribution<double> x(-200, 6200), y(-300, 1300), size(80, 1400);
        std::uniform_int_distribution<int> chance(0, 99);
        for (int i = 0; i < windowCount; ++i) {
            LiveWindow w;
            w.windowID = quint32(0x400000 + i * 7);
            w.owningApplication = s.content.applications[app(random)];
            if (i < 3)
                w.owningApplication = s.content.applications.last();
            const int roll = chance(random);
            w.title = roll < 5    ? std::optional<QString>()
                      : roll < 10 ? std::optional(u"Window"_s)
                                  : std::optional(u"Document %1 \u2014 notes"_s.arg(i));
            w.frame = QRectF(x(random), y(random), size(random), size(random));
            w.windowLayer = roll >= 95 ? 20 : 0;
            w.isOnScreen = roll % 4 != 0;
            w.isActive = i == 10;
            s.content.windows.append(w);
        }
        return s;
    }();
    return built;
}

ShareableCatalog makeCatalog()
{
    return ShareableCatalog::fromContent(scene().content, selfPid, u"org.vistrel"_s,
                                         {0x400000 + 7 * 3}, scene().screens.screens());
}

VisibilityPolicy policy(VisibilityMode mode, const ShareableCatalog& catalog)
{
    VisibilityPolicy p;
    p.mode = mode;
    RuleSet& rules = p.activeRules();
    for (int i = 0; i < catalog.applications.size(); ++i) {
        const ShareableApp& app = catalog.applications[i];
        if (i % 6 == 0)
            rules.applications.insert(app.identity);
        else if (i % 6 == 1 && !app.windows.isEmpty())
            rules.windows.insert(WindowIdentity(app.windows.first()));
        else if (i % 6 == 2 && !app.windows.isEmpty())
            rules.windows.insert(WindowIdentity(app.identity, app.windows.last().title, {}));
    }
    return p;
}

void BM_CatalogFromContent(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(makeCatalog());
    const ShareableCatalog catalog = makeCatalog();
    state.counters["applications"] = double(catalog.applications.size());
    state.counters["liveWindows"] = double(catalog.liveWindows.size());
}
BENCHMARK(BM_CatalogFromContent)->Unit(benchmark::kMicrosecond);

void BM_Build(benchmark::State& state)
{
    const ShareableCatalog catalog = makeCatalog();
    const auto mode = state.range(0) == 0 ? VisibilityMode::allowList : VisibilityMode::blockList;
    const auto frame = state.range(1) == 0 ? OutputFrameMode::screen : OutputFrameMode::dynamic;
    const auto content =
        state.range(2) == 0 ? OutputContentMode::sanitized : OutputContentMode::fullDesktop;
    const VisibilityPolicy rules = policy(mode, catalog);
    const CaptureFilterBuilder builder(scene().screens);
    for (auto _ : state)
        benchmark::DoNotOptimize(builder.build(rules, 100u, catalog, false, frame, content));
    const CaptureBuildResult result = builder.build(rules, 100u, catalog, false, frame, content);
    if (const auto* plan = std::get_if<CapturePlan>(&result)) {
        state.counters["pids"] = double(plan->filter.processIDs.size());
        state.counters["windows"] = double(plan->filter.windowIDs.size());
    }
}
BENCHMARK(BM_Build)
    ->ArgNames({"blockList", "dynamic", "fullDesktop"})
    ->Args({0, 0, 0})
    ->Args({0, 1, 0})
    ->Args({1, 0, 0})
    ->Args({1, 1, 0})
    ->Args({0, 0, 1})
    ->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv); // the locale-aware collation wants one
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
