#pragma once

#include "platform/CameraPort.h"

#include <memory>

namespace vistrel {

class CameraFrameMailbox;
class CameraSourceInput;
class CameraWorkerThread;

// The session of every camera backend: holds one CameraSourceInput, runs it
// on the worker thread and keeps its latest frame for the previews.
class CameraCaptureSession final : public CameraSession {
    Q_OBJECT
public:
    CameraCaptureSession(std::shared_ptr<CameraWorkerThread> worker, CameraSessionPreset preset,
                         QObject* parent = nullptr);
    // Stops a running input without waiting for it.
    ~CameraCaptureSession() override;

    QImage latestFrame() const override;
    CameraSessionPreset preset() const override { return m_preset; }
    bool canAddInput(const CameraInput& input) const override;
    void addInput(std::shared_ptr<CameraInput> input) override;
    void removeInput(const CameraInput& input) override;
    std::shared_ptr<CameraInput> input() const override;
    bool isRunning() const override { return m_running; }
    void startRunning(StartCompletion completion) override;
    void stopRunning() override;

private:
    void stop(bool notify);

    std::shared_ptr<CameraWorkerThread> m_worker;
    CameraSessionPreset m_preset;
    std::shared_ptr<CameraFrameMailbox> m_mailbox;
    std::shared_ptr<CameraSourceInput> m_input;
    bool m_started = false; // a start was requested and not stopped since
    bool m_running = false;
    quint64 m_startToken = 0; // tells a start's answer from an outdated one
};

} // namespace vistrel
