#pragma once

// JSON form of the sharing model's values, as stored in the state file.
//
// Writing omits optional values that are absent (never null) and writes the
// arrays of a rule set in a stable order (their order carries no meaning).
// Reading is strict: a missing required key, a value of the wrong JSON type
// or an unknown enumeration string fails and names the key path. Optional
// keys that are missing or null take their documented defaults. Unknown
// keys are ignored. The canvas background mode alone reads leniently: any
// string it does not know (the older "desktop" included) reads as black.
//
// Supported T: AppIdentity, WindowIdentity, RuleSet, VisibilityPolicy,
// CanvasBackgroundSelection, CameraOverlayConfiguration, SharePreset.

#include "model/JsonContext.h"
#include "model/JsonResult.h"
#include "model/OutputSettings.h"
#include "model/ShareConfiguration.h"
#include "model/SharePreset.h"
#include "model/SourceIdentity.h"
#include "model/VisibilityPolicy.h"

#include <QJsonObject>
#include <QJsonValue>

namespace vistrel {

// Fails only for values JSON cannot hold (non-finite numbers, dates outside
// years 1..9999).
template<class T> JsonResult<QJsonValue> encodeJson(const T& value);

template<class T> JsonResult<T> decodeJson(const QJsonValue& json);

namespace json {
// Building blocks shared by the document reader and writer.
QJsonValue write(Context& context, const AppIdentity& value);
QJsonValue write(Context& context, const WindowIdentity& value);
QJsonValue write(Context& context, const RuleSet& value);
QJsonValue write(Context& context, const VisibilityPolicy& value);
QJsonValue write(Context& context, const CanvasBackgroundSelection& value);
QJsonValue write(Context& context, const CameraOverlayConfiguration& value);
QJsonValue write(Context& context, const SharePreset& value);
// The configuration's keys, as a preset and the state document both hold them.
void writeMembers(Context& context, const ShareConfiguration& value, QJsonObject& object);

bool read(Context& context, const QJsonValue& json, AppIdentity& out);
bool read(Context& context, const QJsonValue& json, WindowIdentity& out);
bool read(Context& context, const QJsonValue& json, RuleSet& out);
bool read(Context& context, const QJsonValue& json, VisibilityPolicy& out);
bool read(Context& context, const QJsonValue& json, CanvasBackgroundSelection& out);
bool read(Context& context, const QJsonValue& json, CameraOverlayConfiguration& out);
// Current format, or the older one ("kind" instead of "id"), migrated.
bool read(Context& context, const QJsonValue& json, SharePreset& out);
// `policyRequired`: the state document must hold a policy, a preset need not.
bool readMembers(Context& context, const QJsonObject& object, ShareConfiguration& out,
                 bool policyRequired);
} // namespace json

} // namespace vistrel
