#include "platform/camera/CameraCaptureSession.h"

#include "platform/camera/CameraFrameMailbox.h"
#include "platform/camera/CameraSourceInput.h"
#include "platform/camera/CameraWorkerThread.h"

#include <QCoreApplication>
#include <QPointer>

using namespace Qt::StringLiterals;

namespace vistrel {

CameraCaptureSession::CameraCaptureSession(std::shared_ptr<CameraWorkerThread> worker,
                                           CameraSessionPreset preset, QObject* parent)
    : CameraSession(parent), m_worker(std::move(worker)), m_preset(preset)
{
    QPointer<CameraCaptureSession> self(this);
    m_mailbox = std::make_shared<CameraFrameMailbox>(
        [self] {
            if (self) {
                Q_EMIT self->frameChanged();
            }
        },
        [self](PlatformError error) {
            if (self && self->m_started) { // also while still starting
                self->stopRunning();
                Q_EMIT self->runtimeError(error);
            }
        });
}

CameraCaptureSession::~CameraCaptureSession()
{
    stop(false);
}

QImage CameraCaptureSession::latestFrame() const
{
    return m_mailbox->latest();
}

bool CameraCaptureSession::canAddInput(const CameraInput& input) const
{
    return !m_input && dynamic_cast<const CameraSourceInput*>(&input) != nullptr;
}

void CameraCaptureSession::addInput(std::shared_ptr<CameraInput> input)
{
    if (!input || !canAddInput(*input)) {
        return;
    }
    m_input = std::dynamic_pointer_cast<CameraSourceInput>(std::move(input));
}

std::shared_ptr<CameraInput> CameraCaptureSession::input() const
{
    return m_input;
}

void CameraCaptureSession::removeInput(const CameraInput& input)
{
    if (m_input.get() != &input) {
        return;
    }
    stopRunning();
    m_input.reset();
}

void CameraCaptureSession::startRunning(StartCompletion completion)
{
    if (!m_input) {
        // Answer on a later turn like a real start would.
        QMetaObject::invokeMethod(
            this,
            [completion = std::move(completion)] {
                if (completion) {
                    completion(PlatformError{u"vistrel.camera"_s, 1,
                                             u"The camera session has no input."_s});
                }
            },
            Qt::QueuedConnection);
        return;
    }
    if (m_started) {
        stopRunning();
    }
    m_started = true;
    const quint64 token = ++m_startToken;
    m_mailbox->setOpen(true);

    QPointer<CameraCaptureSession> self(this);
    m_worker->post([self, token, input = m_input, mailbox = m_mailbox, preset = m_preset,
                    completion = std::move(completion)]() mutable {
        std::optional<PlatformError> error = input->open(preset, mailbox);
        QCoreApplication* app = QCoreApplication::instance();
        if (!app) {
            return;
        }
        QMetaObject::invokeMethod(
            app,
            [self, token, error = std::move(error), completion = std::move(completion)] {
                if (!self || self->m_startToken != token || !self->m_started) {
                    return;
                }
                if (error) {
                    self->m_started = false;
                    self->m_mailbox->setOpen(false);
                } else {
                    self->m_running = true;
                }
                if (completion) {
                    completion(error);
                }
            },
            Qt::QueuedConnection);
    });
}

void CameraCaptureSession::stopRunning()
{
    stop(true);
}

void CameraCaptureSession::stop(bool notify)
{
    if (!m_started) {
        return;
    }
    m_started = false;
    m_running = false;
    ++m_startToken;
    m_mailbox->setOpen(false);
    // The job keeps the input alive, so it is closed and released on the
    // worker thread after any open still in flight.
    m_worker->post([input = m_input] { input->close(); });
    if (notify) {
        Q_EMIT frameChanged(); // previews drop the last picture
    }
}

} // namespace vistrel
