#include "platform/camera/CameraPortFactory.h"

#include "platform/camera/CameraCaptureSession.h"
#include "platform/camera/CameraWorkerThread.h"
#include "platform/camera/QtCameraPort.h"
#include "platform/camera/TestPatternCamera.h"

#include <QtGlobal>

namespace vistrel {

namespace {

// The machine's cameras first, then the test pattern. Requests are routed by
// device id; sessions are shared, so any input runs in any session.
class CombinedCameraPort final : public CameraPort {
public:
    CombinedCameraPort()
        : m_worker(std::make_shared<CameraWorkerThread>()), m_qt(m_worker),
          m_testPattern(TestPatternOptions{}, m_worker)
    {
    }

    void requestAccess(std::function<void(bool)> completion) override
    {
        m_qt.requestAccess(std::move(completion));
    }

    QList<CameraDevice> devices() override { return m_qt.devices() + m_testPattern.devices(); }

    std::optional<CameraDevice> deviceWithUniqueID(const QString& uniqueID) override
    {
        return route(uniqueID).deviceWithUniqueID(uniqueID);
    }

    std::unique_ptr<CameraSession> createSession(CameraSessionPreset preset) override
    {
        return std::make_unique<CameraCaptureSession>(m_worker, preset);
    }

    InputResult createInput(const CameraDevice& device) override
    {
        return route(device.uniqueID).createInput(device);
    }

private:
    CameraPort& route(const QString& uniqueID)
    {
        return TestPatternCameraPort::isTestPatternID(uniqueID)
                   ? static_cast<CameraPort&>(m_testPattern)
                   : static_cast<CameraPort&>(m_qt);
    }

    std::shared_ptr<CameraWorkerThread> m_worker;
    QtCameraPort m_qt;
    TestPatternCameraPort m_testPattern;
};

} // namespace

CameraPortOptions CameraPortOptions::fromEnvironment()
{
    bool ok = false;
    const int value = qEnvironmentVariableIntValue("VISTREL_TEST_CAMERA", &ok);
    return {ok && value == 1};
}

std::unique_ptr<CameraPort> createCameraPort(const CameraPortOptions& options)
{
    if (options.includeTestPattern) {
        return std::make_unique<CombinedCameraPort>();
    }
    return std::make_unique<QtCameraPort>();
}

} // namespace vistrel
