#pragma once

#include <QList>
#include <QSize>

namespace vistrel {

// One picture format a camera offers, as far as the choice below cares.
struct CameraFormatCandidate {
    QSize resolution;
    float maxFrameRate = 0;
    bool compressed = false; // e.g. MJPEG: costs a decode per frame

    friend bool operator==(const CameraFormatCandidate&, const CameraFormatCandidate&) = default;
};

// The format of the medium preset: the resolution nearest to 640 x 480 by
// pixel count; among equal resolutions the one that reaches 30 fps (higher
// rates buy nothing in a bubble), then an uncompressed one. -1 when the list
// is empty or holds no usable size.
int chooseMediumFormat(const QList<CameraFormatCandidate>& candidates);

} // namespace vistrel
