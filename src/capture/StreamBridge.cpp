#include "capture/StreamBridge.h"

#include "capture/CaptureEngine.h"

#include <QCoreApplication>
#include <QMetaObject>

namespace vistrel {

namespace {

// Posts to the main thread's event queue; posted events are delivered in the
// order they were posted, which keeps frames in stream order. The application
// object is the context because it outlives every engine and bridge.
template<typename Function> void postToMainThread(Function&& function)
{
    QCoreApplication* application = QCoreApplication::instance();
    if (!application)
        return;
    QMetaObject::invokeMethod(application, std::forward<Function>(function), Qt::QueuedConnection);
}

} // namespace

StreamBridge::StreamBridge(CaptureEngine* owner) : m_owner(owner) {}

void StreamBridge::streamDidOutputSampleBuffer(const SampleBuffer& buffer, SampleOutputType type)
{
    postToMainThread([weakBridge = weak_from_this(), buffer, type] {
        const std::shared_ptr<StreamBridge> bridge = weakBridge.lock();
        if (!bridge || !bridge->m_owner)
            return;
        bridge->m_owner->handleSample(buffer, type);
    });
}

void StreamBridge::streamDidStopWithError(const PlatformError& error)
{
    postToMainThread([weakBridge = weak_from_this(), error] {
        const std::shared_ptr<StreamBridge> bridge = weakBridge.lock();
        if (!bridge || !bridge->m_owner)
            return;
        bridge->m_owner->handleStreamStop(error);
    });
}

} // namespace vistrel
