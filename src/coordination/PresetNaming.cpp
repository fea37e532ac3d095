#include "coordination/PresetNaming.h"

#include <QTextBoundaryFinder>

namespace vistrel {

namespace {

QString withoutNonSpacingMarks(const QString& text)
{
    const QString decomposed = text.normalized(QString::NormalizationForm_D);
    QString result;
    result.reserve(decomposed.size());
    for (qsizetype i = 0; i < decomposed.size(); ++i) {
        char32_t codePoint = decomposed.at(i).unicode();
        qsizetype units = 1;
        if (QChar::isHighSurrogate(codePoint) && i + 1 < decomposed.size() &&
            decomposed.at(i + 1).isLowSurrogate()) {
            codePoint = QChar::surrogateToUcs4(decomposed.at(i), decomposed.at(i + 1));
            units = 2;
        }
        if (QChar::category(codePoint) != QChar::Mark_NonSpacing)
            result.append(decomposed.mid(i, units));
        i += units - 1;
    }
    return result;
}

} // namespace

QString trimmedPresetName(const QString& name)
{
    return name.trimmed();
}

int presetNameLength(const QString& name)
{
    if (name.isEmpty())
        return 0;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, name);
    int count = 0;
    while (finder.toNextBoundary() != -1)
        ++count;
    return count;
}

QString foldedPresetName(const QString& name)
{
    // Upper-casing first applies the full mappings (ß -> SS, ligatures) that
    // simple case folding leaves alone. Marks are stripped again afterwards
    // because some case mappings produce combining marks.
    const QString stripped = withoutNonSpacingMarks(trimmedPresetName(name));
    return withoutNonSpacingMarks(stripped.toUpper().toCaseFolded())
        .normalized(QString::NormalizationForm_C);
}

} // namespace vistrel
