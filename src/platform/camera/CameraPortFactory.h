#pragma once

// Picks the camera backends in one place: the machine's cameras through Qt
// Multimedia, plus the synthetic test pattern when asked for (tests, demos,
// machines without a camera). The app asks for the test pattern only when
// VISTREL_TEST_CAMERA is set to 1.

#include "platform/CameraPort.h"

#include <memory>

namespace vistrel {

struct CameraPortOptions {
    bool includeTestPattern = false;

    // includeTestPattern from the environment (VISTREL_TEST_CAMERA=1).
    static CameraPortOptions fromEnvironment();
};

std::unique_ptr<CameraPort> createCameraPort(const CameraPortOptions& options);

} // namespace vistrel
