#pragma once

#include <QString>

namespace vistrel {

// An error reported by a platform service. Only the description reaches the
// user; domain and code are for logs and tests.
struct PlatformError {
    QString domain;
    int code = 0;
    QString localizedDescription;

    friend bool operator==(const PlatformError&, const PlatformError&) = default;
};

} // namespace vistrel
