#pragma once

// A small rounded caption ("Shown", "Off Screen") in a tinted pill. Painted
// by hand rather than through a style sheet: the picker holds hundreds of
// them and style sheets cost per widget.
//
// Main thread only.

#include <QColor>
#include <QString>
#include <QWidget>

namespace vistrel {

class SourceBadgeView : public QWidget {
    Q_OBJECT

public:
    explicit SourceBadgeView(QWidget* parent);

    QString text() const { return m_text; }
    QColor tint() const { return m_tint; }
    // Repaints and re-measures only when something changed.
    void setBadge(const QString& text, const QColor& tint);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString m_text;
    QColor m_tint;
};

} // namespace vistrel
