#pragma once

// The whole persisted state, one JSON document ("VistrelState.json").
//
// Written pretty-printed with the keys of every object sorted; optional
// values are omitted, never null; dates as in IsoDate.h (written in UTC with
// whole seconds; read with a fraction of a second, which is dropped, or with
// a numeric offset, which is converted to UTC; a date without a zone is
// rejected, like any other unreadable value).
//
// Read strictly: the document must be a JSON object holding a valid
// "policy"; any failure anywhere (invalid JSON, wrong type, unknown
// enumeration string, an older-format preset without "kind", a display id
// that is not an unsigned 32-bit integer, an unreadable date) rejects the
// whole document, and nothing of it is used. Every other key may be missing
// (or null) and then takes the default of defaultState().

#include "model/JsonResult.h"
#include "model/OutputSettings.h"
#include "model/ShareConfiguration.h"
#include "model/SharePreset.h"
#include "model/VisibilityPolicy.h"

#include <QByteArray>
#include <QList>
#include <optional>

namespace vistrel {

struct PersistedAppState {
    ShareConfiguration configuration;
    QList<SharePreset> presets = defaultBuiltInPresets();
    bool isAlwaysOnTop = true;
    CameraOverlayConfiguration cameraOverlay = CameraOverlayConfiguration::defaultValue();

    // Default policy, no display, the two empty built-ins, always on top,
    // screen frame, sanitized content, black canvas, default camera overlay.
    static const PersistedAppState& defaultState();

    // A copy whose preset list starts with exactly one Presentation and one
    // Meeting preset (the first stored preset carrying that built-in kind, or
    // an empty one), followed by the custom presets in stored order. A custom
    // preset is dropped when its id was already kept (built-ins included; the
    // first occurrence wins) or when it carries a built-in kind. Other fields
    // are copied unchanged.
    PersistedAppState normalized() const;

    friend bool operator==(const PersistedAppState&, const PersistedAppState&) = default;
};

// The document's bytes; fails only for values JSON cannot represent
// (non-finite numbers, dates outside years 1..9999).
JsonResult<QByteArray> encodePersistedAppState(const PersistedAppState& state);
// The document as stored, not normalised.
JsonResult<PersistedAppState> decodePersistedAppState(const QByteArray& bytes);

} // namespace vistrel
