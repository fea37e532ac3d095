#include "control/SourcePickerList.h"

#include "control/ApplicationRowView.h"
#include "control/WindowRowView.h"
#include "presentation/SymbolIcon.h"

#include <QCheckBox>
#include <QPixmap>
#include <QVBoxLayout>

namespace vistrel {

SourcePickerList::SourcePickerList(QWidget* parent)
    : QScrollArea(parent), m_content(new QWidget), m_layout(new QVBoxLayout(m_content))
{
    m_layout->setContentsMargins(0, 0, 0, 0);
    m_layout->setSpacing(0);
    m_layout->addStretch(1);
    setWidget(m_content);
    setWidgetResizable(true);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setFrameShape(QFrame::NoFrame);
}

void SourcePickerList::apply(const QList<SourcePickerApplicationRow>& rows)
{
    QHash<QString, ApplicationRowView*> applications;
    QHash<quint32, WindowRowView*> windows;
    QList<QWidget*> order;
    order.reserve(rows.size());
    for (const SourcePickerApplicationRow& row : rows) {
        if (applications.contains(row.key))
            continue; // discovery lists each identity once; a repeat would share a widget
        ApplicationRowView* view = m_applications.take(row.key);
        if (!view)
            view = createApplicationRow(row.key);
        view->apply(row);
        applications.insert(row.key, view);
        order.append(view);
        for (const SourcePickerWindowRow& windowRow : row.windows) {
            const quint32 id = windowRow.window.id;
            if (windows.contains(id))
                continue;
            WindowRowView* windowView = m_windows.take(id);
            if (!windowView)
                windowView = createWindowRow();
            windowView->apply(windowRow, row.app);
            windows.insert(id, windowView);
            order.append(windowView);
        }
    }
    for (ApplicationRowView* gone : std::as_const(m_applications))
        retire(gone);
    for (WindowRowView* gone : std::as_const(m_windows))
        retire(gone);
    m_applications = std::move(applications);
    m_windows = std::move(windows);

    // Moves only the widgets that are out of place; the rest stay untouched.
    for (qsizetype i = 0; i < order.size(); ++i) {
        QWidget* wanted = order[i];
        const QLayoutItem* at = m_layout->itemAt(int(i));
        if (at && at->widget() == wanted)
            continue;
        m_layout->removeWidget(wanted);
        m_layout->insertWidget(int(i), wanted);
    }
}

ApplicationRowView* SourcePickerList::createApplicationRow(const QString& key)
{
    auto* view = new ApplicationRowView(
        [this](const QString& symbol) { return symbolIcon(symbol); }, m_content);
    connect(view, &ApplicationRowView::selectionToggled, this,
            [this, view] { Q_EMIT applicationToggled(view->row().app); });
    connect(view, &ApplicationRowView::expansionToggled, this,
            [this, key] { Q_EMIT expansionToggled(key); });
    return view;
}

WindowRowView* SourcePickerList::createWindowRow()
{
    auto* view = new WindowRowView(m_content);
    connect(view, &WindowRowView::selectionToggled, this,
            [this, view] { Q_EMIT windowToggled(view->row().window, view->application()); });
    return view;
}

QIcon SourcePickerList::symbolIcon(const QString& symbol)
{
    auto found = m_icons.constFind(symbol);
    if (found != m_icons.constEnd())
        return *found;
    const QImage image =
        symbolImage(symbol, 14, palette().color(QPalette::WindowText), devicePixelRatioF());
    const QIcon icon(QPixmap::fromImage(image));
    m_icons.insert(symbol, icon);
    return icon;
}

void SourcePickerList::retire(QWidget* row)
{
    m_layout->removeWidget(row);
    row->hide();
    // Later: the row may be the one whose click led here.
    row->deleteLater();
}

} // namespace vistrel
