#pragma once

// The scrolling list of application and window rows. apply() brings the row
// widgets in line with new rows without rebuilding: rows are matched by
// identity (application key, window id), updated in place, created only when
// they appear and deleted only when they go, so the scroll position, focus
// and the row under the pointer stay where they are across refreshes.
//
// Main thread only.

#include "control/SourcePickerRows.h"

#include <QHash>
#include <QIcon>
#include <QScrollArea>

class QVBoxLayout;

namespace vistrel {

class ApplicationRowView;
class WindowRowView;

class SourcePickerList : public QScrollArea {
    Q_OBJECT

public:
    explicit SourcePickerList(QWidget* parent);

    void apply(const QList<SourcePickerApplicationRow>& rows);

    ApplicationRowView* applicationRow(const QString& key) const
    {
        return m_applications.value(key);
    }
    WindowRowView* windowRow(quint32 windowID) const { return m_windows.value(windowID); }

Q_SIGNALS:
    void applicationToggled(const vistrel::ShareableApp& app);
    void windowToggled(const vistrel::ShareableWindow& window, const vistrel::ShareableApp& app);
    void expansionToggled(const QString& key);

private:
    ApplicationRowView* createApplicationRow(const QString& key);
    WindowRowView* createWindowRow();
    QIcon symbolIcon(const QString& symbol);
    void retire(QWidget* row);

    QWidget* m_content;
    QVBoxLayout* m_layout;
    QHash<QString, ApplicationRowView*> m_applications;
    QHash<quint32, WindowRowView*> m_windows;
    QHash<QString, QIcon> m_icons; // rendered once, shared by every row
};

} // namespace vistrel
