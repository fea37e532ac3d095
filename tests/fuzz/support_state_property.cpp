#include "support_state_property.h"

#include "model/PersistedAppState.h"

#include <QSet>

namespace vistrel::fuzz {

using namespace Qt::StringLiterals;

namespace {

// Where two states differ: the first line their documents differ in.
QString difference(const PersistedAppState& a, const PersistedAppState& b)
{
    const JsonResult<QByteArray> left = encodePersistedAppState(a);
    const JsonResult<QByteArray> right = encodePersistedAppState(b);
    if (!left || !right)
        return u"a state that cannot be written"_s;
    const QList<QByteArray> l = left.value().split('\n'), r = right.value().split('\n');
    for (qsizetype i = 0; i < std::min(l.size(), r.size()); ++i) {
        if (l[i] != r[i])
            return QString::fromUtf8(l[i].trimmed().left(100) + " / " + r[i].trimmed().left(100));
    }
    return u"values written as the same text"_s;
}

// Writes, reads back and writes again; empty when all three agree.
QString roundTripFailure(const PersistedAppState& state, const QString& what)
{
    const JsonResult<QByteArray> written = encodePersistedAppState(state);
    if (!written)
        return what + u" cannot be written: "_s + written.error().description();
    const JsonResult<PersistedAppState> reread = decodePersistedAppState(written.value());
    if (!reread)
        return what + u" is rejected once written: "_s + reread.error().description();
    if (!(reread.value() == state))
        return what + u" reads back different: "_s + difference(state, reread.value());
    const JsonResult<QByteArray> again = encodePersistedAppState(reread.value());
    if (!again || again.value() != written.value())
        return what + u" gives different bytes when written twice"_s;
    return {};
}

QString layoutFailure(const PersistedAppState& normal)
{
    if (normal.presets.size() < 2 ||
        normal.presets[0].builtInKind != BuiltInPresetKind::presentation ||
        normal.presets[1].builtInKind != BuiltInPresetKind::meeting)
        return u"the normalised list does not start with Presentation and Meeting"_s;
    QSet<QString> ids{normal.presets[0].id, normal.presets[1].id};
    for (qsizetype i = 2; i < normal.presets.size(); ++i) {
        const SharePreset& preset = normal.presets[i];
        if (preset.category != PresetCategory::custom || preset.builtInKind)
            return u"normalised preset %1 is not a plain custom preset"_s.arg(i);
        if (ids.contains(preset.id))
            return u"normalised preset %1 repeats the id \"%2\""_s.arg(i).arg(preset.id.left(40));
        ids.insert(preset.id);
    }
    if (!(normal.normalized() == normal))
        return u"normalising twice changes: "_s + difference(normal, normal.normalized());
    return {};
}

} // namespace

StatePropertyOutcome checkStateDocument(const QByteArray& bytes)
{
    const JsonResult<PersistedAppState> decoded = decodePersistedAppState(bytes);
    if (!decoded) {
        const QString reason = decoded.error().description();
        return {false, reason, reason.isEmpty() ? u"rejected without a reason"_s : QString()};
    }
    QString failure = roundTripFailure(decoded.value(), u"the accepted document"_s);
    if (failure.isEmpty()) {
        const PersistedAppState normal = decoded->normalized();
        failure = layoutFailure(normal);
        // An already normal document was written and read back above.
        if (failure.isEmpty() && !(normal == decoded.value()))
            failure = roundTripFailure(normal, u"the normalised document"_s);
    }
    return {true, {}, failure};
}

} // namespace vistrel::fuzz
