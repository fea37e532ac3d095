#pragma once

// The scripted capture stream. Every platform call is counted in the
// backend's ledger, may be made to fail through it, and completes on the main
// thread on a later turn of the event loop; its effect (running, new filter,
// new configuration) takes hold when it completes successfully. Frames come
// only when the test pushes one through the controller, when the world's
// scene changes while the stream runs, or from a frame clock a test turns on.
//
// Threading: as the port says; main thread for every method.

#include "platform/CaptureStream.h"

#include <QObject>
#include <memory>

namespace vistrel {

class SimStreamController;
class SimStreamLedger;
class SimWorld;

class SimCaptureStream : public CaptureStream {
public:
    SimCaptureStream(SimWorld& world, std::shared_ptr<SimStreamLedger> ledger,
                     std::shared_ptr<SimStreamController> controller);
    ~SimCaptureStream() override;

    std::optional<PlatformError> addStreamOutput(SampleOutputType type) override;
    void startCapture(Completion completion) override;
    void stopCapture(Completion completion) override;
    void updateConfiguration(const StreamConfiguration& configuration,
                             Completion completion) override;
    void updateContentFilter(const ContentFilter& filter, Completion completion) override;

    const std::shared_ptr<SimStreamController>& controller() const { return m_controller; }

private:
    std::shared_ptr<SimStreamLedger> m_ledger;
    std::shared_ptr<SimStreamController> m_controller;
    std::unique_ptr<QObject> m_sceneWatch; // main-thread context of the scene connection
};

} // namespace vistrel
