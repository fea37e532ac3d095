#pragma once

// One window of an expanded application: title, "Focused" and on-screen
// badges, visibility badge and the check action. Updated in place like the
// application rows.
//
// Main thread only.

#include "control/SourcePickerRows.h"

#include <QWidget>

class QCheckBox;

namespace vistrel {

class ElidedLabel;
class SourceBadgeView;

class WindowRowView : public QWidget {
    Q_OBJECT

public:
    explicit WindowRowView(QWidget* parent);

    void apply(const SourcePickerWindowRow& row, const ShareableApp& app);
    const SourcePickerWindowRow& row() const { return m_row; }
    const ShareableApp& application() const { return m_app; }

    QCheckBox* actionButton() const { return m_action; }

Q_SIGNALS:
    void selectionToggled();

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    SourcePickerWindowRow m_row;
    ShareableApp m_app;
    ElidedLabel* m_title;
    SourceBadgeView* m_focused;
    SourceBadgeView* m_screen;
    SourceBadgeView* m_visibility;
    QCheckBox* m_action;
};

} // namespace vistrel
