#pragma once

// One line of text that ends in "…" when it does not fit, so long names and
// window titles give way to the badges beside them instead of being cut.
//
// Main thread only.

#include <QString>
#include <QWidget>

namespace vistrel {

class ElidedLabel : public QWidget {
    Q_OBJECT

public:
    explicit ElidedLabel(QWidget* parent);

    QString text() const { return m_text; }
    // Repaints only when the text changed.
    void setText(const QString& text);
    void setTextColor(const QColor& color);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString m_text;
};

} // namespace vistrel
