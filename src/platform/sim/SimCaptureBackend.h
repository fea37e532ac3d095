#pragma once

// The scripted capture backend: shareable content from the world's scene and
// scripted streams that compose the scene's windows.
//
// A test can make the content request fail with a given error, complete with
// neither content nor error, or wait until released; and, through the
// ledger, make any stream call fail, hold stream completions, and read how
// many platform calls were made, also after the stream's owner dropped it.
//
// Threading: main thread. The world must outlive the backend and its streams.

#include "platform/CaptureBackend.h"
#include "platform/sim/SimStreamController.h"
#include "platform/sim/SimStreamLedger.h"

#include <QList>
#include <memory>
#include <utility>

namespace vistrel {

class SimWorld;

class SimCaptureBackend : public CaptureBackend {
public:
    explicit SimCaptureBackend(SimWorld& world);
    ~SimCaptureBackend() override;

    void getShareableContent(bool excludingDesktopWindows, bool onScreenWindowsOnly,
                             ContentCompletion completion) override;
    std::unique_ptr<CaptureStream>
    createStream(const ContentFilter& filter, const StreamConfiguration& configuration,
                 std::weak_ptr<CaptureStreamDelegate> delegate) override;

    // Content requests. An error wins over "missing".
    void setContentError(std::optional<PlatformError> error) { m_contentError = std::move(error); }
    // Completes with neither content nor error.
    void setContentMissing(bool missing) { m_contentMissing = missing; }
    // Held requests complete only on releaseContentRequests, with the scene
    // as it is then.
    void setHoldsContentRequests(bool holds) { m_holdsContent = holds; }
    qsizetype pendingContentRequests() const { return m_heldContent.size(); }
    void releaseContentRequests();
    int contentRequestCount() const { return m_contentRequests; }
    // The two flags of the latest request: excludingDesktopWindows, onScreenWindowsOnly.
    std::pair<bool, bool> lastContentRequestFlags() const { return m_lastFlags; }

    // Streams.
    SimStreamLedger& ledger() { return *m_ledger; }
    SimStreamCalls streamCalls() const { return m_ledger->calls(); }
    void failStreamOperation(SimStreamOperation operation, const PlatformError& error)
    {
        m_ledger->setFailure(operation, error);
    }
    void clearStreamFailure(SimStreamOperation operation)
    {
        m_ledger->setFailure(operation, std::nullopt);
    }
    // The most recently created stream's controller; null once that stream
    // is gone (unless a test keeps the controller alive).
    std::shared_ptr<SimStreamController> latestStream() const { return m_latest.lock(); }
    // Streams created from now on deliver one "started" frame when they start.
    void setStreamsDeliverFrameOnStart(bool delivers) { m_framesOnStart = delivers; }

private:
    struct HeldRequest {
        bool excludingDesktopWindows = true;
        bool onScreenWindowsOnly = false;
        ContentCompletion completion;
    };
    void completeContent(const HeldRequest& request);

    SimWorld& m_world;
    std::shared_ptr<SimStreamLedger> m_ledger;
    std::weak_ptr<SimStreamController> m_latest;
    std::optional<PlatformError> m_contentError;
    bool m_contentMissing = false;
    bool m_holdsContent = false;
    bool m_framesOnStart = false;
    int m_contentRequests = 0;
    std::pair<bool, bool> m_lastFlags{false, false};
    QList<HeldRequest> m_heldContent;
    std::shared_ptr<bool> m_alive; // lets posted completions notice the backend is gone
};

} // namespace vistrel
