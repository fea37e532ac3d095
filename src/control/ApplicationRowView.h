#pragma once

// One application in the source picker: expand control, name and hint,
// window count, visibility badge and the check action. Updated in place on
// every refresh; only what changed is touched, so focus, hover and the
// pointer's place survive.
//
// Main thread only.

#include "control/SourcePickerRows.h"

#include <QIcon>
#include <QWidget>
#include <functional>

class QCheckBox;
class QLabel;
class QToolButton;

namespace vistrel {

class ElidedLabel;
class SourceBadgeView;

class ApplicationRowView : public QWidget {
    Q_OBJECT

public:
    using IconLookup = std::function<QIcon(const QString& symbol)>;

    ApplicationRowView(IconLookup icons, QWidget* parent);

    void apply(const SourcePickerApplicationRow& row);
    const SourcePickerApplicationRow& row() const { return m_row; }

    QCheckBox* actionButton() const { return m_action; }
    QToolButton* expandButton() const { return m_expand; }

Q_SIGNALS:
    void selectionToggled();
    void expansionToggled();

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    IconLookup m_icons;
    SourcePickerApplicationRow m_row;
    bool m_applied = false;
    QToolButton* m_expand;
    ElidedLabel* m_name;
    ElidedLabel* m_detail;
    QLabel* m_count;
    SourceBadgeView* m_visibility;
    QCheckBox* m_action;
};

} // namespace vistrel
