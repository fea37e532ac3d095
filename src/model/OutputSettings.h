#pragma once

// The small settings that shape the output picture besides the visibility
// policy: content mode, frame mode, canvas background and camera bubble.
// caseName() gives the JSON raw value (the case name); title() the short
// user-facing text that belongs to the type.

#include <QString>
#include <array>
#include <optional>

namespace vistrel {

enum class OutputContentMode {
    sanitized,   // only what the policy allows, on the canvas (default)
    fullDesktop, // the whole display, no per-window filtering
};
inline constexpr std::array allOutputContentModes{OutputContentMode::sanitized,
                                                  OutputContentMode::fullDesktop};
QString caseName(OutputContentMode mode);
// "Sanitized Windows" / "Full Desktop".
QString title(OutputContentMode mode);

enum class OutputFrameMode {
    screen,  // the whole selected display (default)
    dynamic, // follows the area of the shared windows
};
inline constexpr std::array allOutputFrameModes{OutputFrameMode::screen, OutputFrameMode::dynamic};
QString caseName(OutputFrameMode mode);
// "Screen" / "Dynamic".
QString title(OutputFrameMode mode);

enum class CanvasBackgroundMode {
    black,
    white,
    gray,
    customImage,
};
inline constexpr std::array allCanvasBackgroundModes{
    CanvasBackgroundMode::black, CanvasBackgroundMode::white, CanvasBackgroundMode::gray,
    CanvasBackgroundMode::customImage};
QString caseName(CanvasBackgroundMode mode);
// "Black", "White", "Gray"; "Image" for customImage (the selection's title()
// says more).
QString title(CanvasBackgroundMode mode);

struct CanvasBackgroundSelection {
    CanvasBackgroundMode mode = CanvasBackgroundMode::black;
    // For customImage: the imported copy, relative to the application's data
    // folder ("CanvasBackgrounds/<name>"). Kept when the mode switches to a
    // colour, so switching back finds the last image again.
    std::optional<QString> imageRelativePath;
    std::optional<QString> imageDisplayName; // the file name the user picked

    // True for black without image fields (the default).
    bool isDefault() const { return *this == CanvasBackgroundSelection{}; }

    // Colour title, or "Image • <name>" / "Image • Not Selected".
    QString title() const;

    friend bool operator==(const CanvasBackgroundSelection&,
                           const CanvasBackgroundSelection&) = default;
};
size_t qHash(const CanvasBackgroundSelection& selection, size_t seed = 0) noexcept;

enum class CameraPosition {
    topLeft,
    top,
    topRight,
    left,
    center,
    right,
    bottomLeft,
    bottom,
    bottomRight,
};
// Row by row, top to bottom, left to right.
inline constexpr std::array allCameraPositions{
    CameraPosition::topLeft,    CameraPosition::top,    CameraPosition::topRight,
    CameraPosition::left,       CameraPosition::center, CameraPosition::right,
    CameraPosition::bottomLeft, CameraPosition::bottom, CameraPosition::bottomRight};
QString caseName(CameraPosition position);
// "Top Left", ..., "Bottom Right".
QString title(CameraPosition position);

enum class CameraShape {
    circle,
    square,
    roundedSquare,
};
inline constexpr std::array allCameraShapes{CameraShape::circle, CameraShape::square,
                                            CameraShape::roundedSquare};
QString caseName(CameraShape shape);

// The camera bubble drawn over the output. Sizes and margins are not clamped
// here: the controls keep them in range and the composition interprets them.
struct CameraOverlayConfiguration {
    bool isEnabled = false;
    std::optional<QString> cameraDeviceID; // absent: none chosen yet
    CameraPosition position = CameraPosition::bottomRight;
    CameraShape shape = CameraShape::circle;
    bool isMirrored = false;
    double sizeScale = 1.5;  // multiplier of the bubble's base size
    double marginTop = 50.0; // points from each edge
    double marginBottom = 50.0;
    double marginLeft = 50.0;
    double marginRight = 50.0;

    static const CameraOverlayConfiguration& defaultValue();

    // "Off" when disabled, otherwise the position's title.
    QString summaryText() const;

    friend bool operator==(const CameraOverlayConfiguration&,
                           const CameraOverlayConfiguration&) = default;
};
size_t qHash(const CameraOverlayConfiguration& configuration, size_t seed = 0) noexcept;

} // namespace vistrel
