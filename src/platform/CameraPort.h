#pragma once

// The camera as the rest of the system sees it: access, devices, and a
// capture session that runs one device and hands its latest picture to any
// number of previews. Backends live in platform/camera.
//
// Threading: every member is called on the main thread unless it says
// otherwise. Opening and closing a device can block for a long time, so
// sessions do that on a worker thread and report back on the main thread.

#include "platform/PlatformError.h"

#include <QHashFunctions>
#include <QImage>
#include <QList>
#include <QObject>
#include <QString>
#include <functional>
#include <memory>
#include <optional>

namespace vistrel {

// A camera the system can open.
struct CameraDevice {
    QString uniqueID; // stable while the device stays connected
    QString localizedName;

    friend bool operator==(const CameraDevice&, const CameraDevice&) = default;
};
inline size_t qHash(const CameraDevice& device, size_t seed = 0) noexcept
{
    return qHashMulti(seed, device.uniqueID, device.localizedName);
}

// The error of a device the user may not open (on Linux: no read and write
// access to its device node), so that the interface can say so.
inline constexpr QLatin1StringView cameraAccessErrorDomain{"vistrel.camera.access"};
inline bool isCameraAccessError(const PlatformError& error)
{
    return error.domain == cameraAccessErrorDomain;
}

// Picture quality asked of a session. Medium is about 640 x 480: plenty for a
// small bubble and cheap to convert.
enum class CameraSessionPreset { medium };

// A device opened for a session. Opaque to callers; the session that a backend
// creates knows what to do with the inputs of the same backend.
class CameraInput {
public:
    virtual ~CameraInput() = default;
    virtual CameraDevice device() const = 0;
};

// The latest picture of a running camera. Any number of previews may read it.
class CameraFrameSource : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // Any thread. Null before the first frame and after the session stops.
    // Frames are delivered as they come: a slow reader sees the newest one and
    // never a backlog.
    virtual QImage latestFrame() const = 0;

Q_SIGNALS:
    // Main thread; several frames arriving before the main loop turns give one
    // signal.
    void frameChanged();
};

class CameraSession : public CameraFrameSource {
    Q_OBJECT
public:
    using StartCompletion = std::function<void(std::optional<PlatformError>)>;

    using CameraFrameSource::CameraFrameSource;

    virtual CameraSessionPreset preset() const = 0;

    // A session holds at most one input, and only inputs of its own backend.
    virtual bool canAddInput(const CameraInput& input) const = 0;
    virtual void addInput(std::shared_ptr<CameraInput> input) = 0;
    virtual void removeInput(const CameraInput& input) = 0;
    virtual std::shared_ptr<CameraInput> input() const = 0;

    // True from a successful start until stopRunning.
    virtual bool isRunning() const = 0;

    // Opens the input's device on the worker thread. The completion runs on
    // the main thread on a later turn, with the error when the device did not
    // start; it never runs when the session is stopped or destroyed first.
    virtual void startRunning(StartCompletion completion) = 0;

    // Returns at once; the device is closed on the worker thread. Destroying a
    // running session stops it the same way.
    virtual void stopRunning() = 0;

Q_SIGNALS:
    // Main thread. The device failed after startRunning (for example it was
    // unplugged), possibly before the start's answer; the session has stopped
    // and the start's completion will not run.
    void runtimeError(const vistrel::PlatformError& error);
};

// Entry point of a camera backend.
class CameraPort {
public:
    struct InputResult {
        std::shared_ptr<CameraInput> input; // set on success
        std::optional<PlatformError> error; // set on failure
    };

    virtual ~CameraPort() = default;

    // The completion runs on the main thread on a later turn. Backends without
    // an access prompt answer from what they know (on Linux: refused when
    // there are video devices and the user may open none of them).
    virtual void requestAccess(std::function<void(bool granted)> completion) = 0;

    // Cameras connected now, in the backend's order. May take a few
    // milliseconds the first time.
    virtual QList<CameraDevice> devices() = 0;
    virtual std::optional<CameraDevice> deviceWithUniqueID(const QString& uniqueID) = 0;

    virtual std::unique_ptr<CameraSession> createSession(CameraSessionPreset preset) = 0;
    virtual InputResult createInput(const CameraDevice& device) = 0;
};

} // namespace vistrel
