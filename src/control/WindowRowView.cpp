#include "control/WindowRowView.h"

#include "control/ElidedLabel.h"
#include "control/SourceBadgeView.h"
#include "control/SourcePickerStyle.h"

#include <QCheckBox>
#include <QHBoxLayout>

namespace vistrel {

namespace {

// Window rows sit under their application's name, past its expand control.
constexpr int indent = 32;

} // namespace

WindowRowView::WindowRowView(QWidget* parent)
    : QWidget(parent), m_title(new ElidedLabel(this)), m_focused(new SourceBadgeView(this)),
      m_screen(new SourceBadgeView(this)), m_visibility(new SourceBadgeView(this)),
      m_action(new QCheckBox(this))
{
    setAttribute(Qt::WA_Hover);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(indent, 2, 8, 2);
    layout->addWidget(m_title, 1);
    layout->addWidget(m_focused);
    layout->addWidget(m_screen);
    layout->addWidget(m_visibility);
    layout->addWidget(m_action);
    m_focused->hide();
    connect(m_action, &QCheckBox::clicked, this, &WindowRowView::selectionToggled);
}

void WindowRowView::apply(const SourcePickerWindowRow& row, const ShareableApp& app)
{
    m_app = app;
    if (m_title->text() != row.title) {
        m_title->setText(row.title);
        m_title->setToolTip(row.title);
    }
    const QPalette& colours = palette();
    if (row.focusedBadge)
        m_focused->setBadge(row.focusedBadge->text, toneTint(row.focusedBadge->tone, colours));
    if (m_focused->isVisibleTo(this) != row.focusedBadge.has_value())
        m_focused->setVisible(row.focusedBadge.has_value());
    m_screen->setBadge(row.screenBadge.text, toneTint(row.screenBadge.tone, colours));
    m_visibility->setBadge(SourcePickerRows::visibilityText(row.visibility),
                           visibilityTint(row.visibility, colours));
    if (m_action->text() != row.actionLabel)
        m_action->setText(row.actionLabel);
    m_action->setChecked(row.isSelected);
    m_row = row;
}

void WindowRowView::paintEvent(QPaintEvent*)
{
    paintRowHover(*this);
}

} // namespace vistrel
