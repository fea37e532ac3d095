#pragma once

// A synthetic camera for tests and demos: a picture with known colours (left
// half, right half) and a bar that moves along the bottom strip, at about
// 30 frames per second. Device ids start with "test-pattern:".

#include "platform/CameraPort.h"

#include <QColor>
#include <QSet>
#include <QSize>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>

namespace vistrel {

class CameraWorkerThread;

struct TestPatternOptions {
    int deviceCount = 1;
    bool accessGranted = true;
    // createInput fails for these ids, as for a camera another program holds.
    QSet<QString> busyDevices;
    // The device opens and then fails to start.
    QSet<QString> failingDevices;
    // Opening fails for lack of access, as for a device node the user may
    // not read.
    QSet<QString> deniedDevices;
    // Time a device takes to open, on the worker thread.
    std::chrono::milliseconds openDelay{0};
    int framesPerSecond = 30;
    // After this many frames the device reports that it was disconnected and
    // stops (0: while it opens); unset runs forever.
    std::optional<int> disconnectAfterFrames;
};

// Counts device opens and closes across all inputs of a port.
struct TestPatternStatistics {
    std::atomic_int opens = 0;
    std::atomic_int closes = 0;
};

class TestPatternCameraPort final : public CameraPort {
public:
    static constexpr QLatin1StringView idPrefix{"test-pattern:"};
    static constexpr QSize frameSize{640, 480};

    // Without a worker the port makes its own.
    explicit TestPatternCameraPort(TestPatternOptions options = {},
                                   std::shared_ptr<CameraWorkerThread> worker = nullptr);
    ~TestPatternCameraPort() override;

    // Applies to inputs created from now on.
    void setOptions(TestPatternOptions options) { m_options = std::move(options); }
    const TestPatternOptions& options() const { return m_options; }
    const TestPatternStatistics& statistics() const { return *m_statistics; }

    static QString deviceID(int index);
    static bool isTestPatternID(const QString& uniqueID);
    static QColor leftColor(int index);
    static QColor rightColor(int index);
    static QColor barColor() { return QColor(255, 255, 255); }
    // Frame number n of device index: the two halves, with the bottom tenth a
    // dark strip in which the bar moves from left to right.
    static QImage renderFrame(int index, qint64 frameNumber, QSize size = frameSize);

    void requestAccess(std::function<void(bool)> completion) override;
    QList<CameraDevice> devices() override;
    std::optional<CameraDevice> deviceWithUniqueID(const QString& uniqueID) override;
    std::unique_ptr<CameraSession> createSession(CameraSessionPreset preset) override;
    InputResult createInput(const CameraDevice& device) override;

private:
    TestPatternOptions m_options;
    std::shared_ptr<CameraWorkerThread> m_worker;
    std::shared_ptr<TestPatternStatistics> m_statistics;
};

} // namespace vistrel
