#pragma once

// Rules for the names users give presets: trimming, length in user-perceived
// characters, and the folded form under which two names count as the same.

#include <QString>

namespace vistrel {

// Leading and trailing white space and line breaks removed (every Unicode
// separator, the ASCII controls tab to carriage return, and U+0085).
QString trimmedPresetName(const QString& name);

// The number of extended grapheme clusters: "e" + U+0301 counts 1, as does a
// family emoji joined by zero-width joiners or a flag.
int presetNameLength(const QString& name);

// The trimmed name with diacritics removed (canonical decomposition, then
// every non-spacing mark dropped) and case folded, so "  Résumé" and
// "RESUME" fold alike. Full case mapping: "Straße" folds like "STRASSE".
QString foldedPresetName(const QString& name);

inline bool presetNamesEqual(const QString& a, const QString& b)
{
    return foldedPresetName(a) == foldedPresetName(b);
}

} // namespace vistrel
