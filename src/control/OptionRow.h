#pragma once

// One choice in a popover: a title, a secondary subtitle and a trailing
// check mark when selected (an empty circle when not). The whole row is the
// button.

#include <QAbstractButton>

namespace vistrel {

class OptionRow : public QAbstractButton {
    Q_OBJECT

public:
    OptionRow(const QString& title, const QString& subtitle, bool isSelected, QWidget* parent);

    bool isSelected() const { return m_isSelected; }
    void setSelected(bool selected);
    QString subtitle() const { return m_subtitle; }
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    QString m_subtitle;
    bool m_isSelected;
    bool m_isHovered = false;
};

} // namespace vistrel
