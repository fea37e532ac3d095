#pragma once

// The Sources popover's content: a search field bound to the source list
// model's search text, the discovery summary, the list of applications (each
// expandable into its windows) or an empty state, and "Reset All Sources".
//
// Discovery republishes every 2 s; each publication schedules one refresh
// for the next turn of the event loop, which updates the rows in place (see
// SourcePickerList). Which applications are expanded is this view's own
// state: a new view starts with all of them collapsed.
//
// Main thread only. The view model outlives the view.

#include "control/SourcePickerRows.h"

#include <QSet>
#include <QWidget>

class QLabel;
class QLineEdit;
class QPushButton;
class QStackedWidget;

namespace vistrel {

class MainViewModel;
class SourcePickerList;

class SourcePickerView : public QWidget {
    Q_OBJECT

public:
    SourcePickerView(MainViewModel& viewModel, QWidget* parent);

    // Brings everything in line with the view model now; a scheduled
    // refresh that has not run yet is then skipped.
    void refresh();

    QSize sizeHint() const override { return {520, 420}; }

    QLineEdit* searchField() const { return m_search; }
    SourcePickerList* list() const { return m_list; }
    QPushButton* resetButton() const { return m_reset; }
    const SourcePickerContent& content() const { return m_content; }

private:
    void scheduleRefresh();
    void toggleExpansion(const QString& key);
    QWidget* createEmptyPage();

    MainViewModel& m_viewModel;
    QSet<QString> m_expanded;
    SourcePickerContent m_content;
    bool m_refreshPending = false;
    QLineEdit* m_search;
    QLabel* m_summary;
    QStackedWidget* m_pages;
    SourcePickerList* m_list;
    QLabel* m_emptySymbol;
    QLabel* m_emptyTitle;
    QLabel* m_emptyText;
    QString m_emptySymbolName;
    QPushButton* m_reset;
};

} // namespace vistrel
