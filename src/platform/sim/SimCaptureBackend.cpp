#include "platform/sim/SimCaptureBackend.h"

#include "platform/sim/SimCaptureStream.h"
#include "platform/sim/SimWorld.h"

#include <QCoreApplication>
#include <QMetaObject>

namespace vistrel {

SimCaptureBackend::SimCaptureBackend(SimWorld& world)
    : m_world(world), m_ledger(std::make_shared<SimStreamLedger>()),
      m_alive(std::make_shared<bool>(true))
{
}

SimCaptureBackend::~SimCaptureBackend() = default;

void SimCaptureBackend::getShareableContent(bool excludingDesktopWindows, bool onScreenWindowsOnly,
                                            ContentCompletion completion)
{
    ++m_contentRequests;
    m_lastFlags = {excludingDesktopWindows, onScreenWindowsOnly};
    HeldRequest request{excludingDesktopWindows, onScreenWindowsOnly, std::move(completion)};
    if (m_holdsContent) {
        m_heldContent.append(std::move(request));
        return;
    }
    std::weak_ptr<bool> alive = m_alive;
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [this, alive, request = std::move(request)] {
            if (alive.lock())
                completeContent(request);
        },
        Qt::QueuedConnection);
}

void SimCaptureBackend::releaseContentRequests()
{
    const QList<HeldRequest> held = std::exchange(m_heldContent, {});
    std::weak_ptr<bool> alive = m_alive;
    for (const HeldRequest& request : held) {
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [this, alive, request] {
                if (alive.lock())
                    completeContent(request);
            },
            Qt::QueuedConnection);
    }
}

void SimCaptureBackend::completeContent(const HeldRequest& request)
{
    if (!request.completion)
        return;
    if (m_contentError) {
        request.completion(std::nullopt, m_contentError);
        return;
    }
    if (m_contentMissing) {
        request.completion(std::nullopt, std::nullopt);
        return;
    }
    request.completion(
        m_world.scene().toContent(request.excludingDesktopWindows, request.onScreenWindowsOnly),
        std::nullopt);
}

std::unique_ptr<CaptureStream>
SimCaptureBackend::createStream(const ContentFilter& filter,
                                const StreamConfiguration& configuration,
                                std::weak_ptr<CaptureStreamDelegate> delegate)
{
    m_ledger->count(SimStreamOperation::create);
    auto controller =
        std::make_shared<SimStreamController>(m_world, filter, configuration, std::move(delegate));
    controller->setDeliversFrameOnStart(m_framesOnStart);
    m_latest = controller;
    return std::make_unique<SimCaptureStream>(m_world, m_ledger, std::move(controller));
}

} // namespace vistrel
