#include "platform/sim/SimCaptureStream.h"

#include "platform/sim/SimStreamController.h"
#include "platform/sim/SimStreamLedger.h"
#include "platform/sim/SimWorld.h"

namespace vistrel {

using namespace Qt::StringLiterals;

namespace {

// Counts the call, then completes it later with the scripted failure or with
// success after applying its effect, if the stream still exists by then.
void scriptedCall(SimStreamLedger& ledger, SimStreamOperation operation,
                  const std::shared_ptr<SimStreamController>& controller,
                  std::function<void(SimStreamController&)> effect,
                  CaptureStream::Completion completion)
{
    ledger.count(operation);
    const std::optional<PlatformError> error = ledger.failure(operation);
    std::weak_ptr<SimStreamController> weak = controller;
    ledger.complete([weak, error, effect = std::move(effect), completion = std::move(completion)] {
        if (!error) {
            if (const auto live = weak.lock())
                effect(*live);
        }
        if (completion)
            completion(error);
    });
}

} // namespace

SimCaptureStream::SimCaptureStream(SimWorld& world, std::shared_ptr<SimStreamLedger> ledger,
                                   std::shared_ptr<SimStreamController> controller)
    : m_ledger(std::move(ledger)), m_controller(std::move(controller)),
      m_sceneWatch(std::make_unique<QObject>())
{
    // A change of the scene is a change of the picture: a running stream
    // delivers a new frame, as a compositor does on damage.
    QObject::connect(&world, &SimWorld::sceneChanged, m_sceneWatch.get(),
                     [controller = m_controller.get()] {
                         if (controller->isRunning())
                             controller->pushFrame();
                     });
}

SimCaptureStream::~SimCaptureStream()
{
    // A stream its owner let go of captures nothing more, even if a test
    // still holds the controller.
    m_controller->setRunning(false);
}

std::optional<PlatformError> SimCaptureStream::addStreamOutput(SampleOutputType type)
{
    m_ledger->count(SimStreamOperation::addStreamOutput);
    if (auto error = m_ledger->failure(SimStreamOperation::addStreamOutput))
        return error;
    if (type != SampleOutputType::screen)
        return PlatformError{u"vistrel.sim"_s, 1, u"The scripted stream produces no audio."_s};
    m_controller->addOutput(type);
    return std::nullopt;
}

void SimCaptureStream::startCapture(Completion completion)
{
    scriptedCall(
        *m_ledger, SimStreamOperation::start, m_controller,
        [](SimStreamController& controller) {
            controller.setRunning(true);
            if (controller.deliversFrameOnStart())
                controller.pushFrame({.frameStatus = qint64(FrameStatus::started)});
        },
        std::move(completion));
}

void SimCaptureStream::stopCapture(Completion completion)
{
    scriptedCall(
        *m_ledger, SimStreamOperation::stop, m_controller,
        [](SimStreamController& controller) { controller.setRunning(false); },
        std::move(completion));
}

void SimCaptureStream::updateConfiguration(const StreamConfiguration& configuration,
                                           Completion completion)
{
    scriptedCall(
        *m_ledger, SimStreamOperation::updateConfiguration, m_controller,
        [configuration](SimStreamController& controller) {
            controller.setConfiguration(configuration);
        },
        std::move(completion));
}

void SimCaptureStream::updateContentFilter(const ContentFilter& filter, Completion completion)
{
    scriptedCall(
        *m_ledger, SimStreamOperation::updateContentFilter, m_controller,
        [filter](SimStreamController& controller) { controller.setFilter(filter); },
        std::move(completion));
}

} // namespace vistrel
